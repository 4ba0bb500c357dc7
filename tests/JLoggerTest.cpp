#include "jlog/JLogger.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <android/log.h>

#include "jlog/DefaultJLogger.h"
#include "support/LogCapture.h"
#include "support/RecordingLogger.h"
#include "support/TempFolder.h"

namespace JCam::Utils::JLog {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Leaves the process-wide logging state as a freshly loaded library has it.
class JLoggerTest : public ::testing::Test {
  protected:
    ~JLoggerTest() override {
        JLogger::sJLogger = getDefaultJLogger();
        JLogger::sDebugLevel = 0;
        JLogger::sInitJlogLevel = 0;
        JLogger::sLevel = 0;
        JLogger::sMode = 0;
        JLogger::sFilter = 0;
    }

    Support::LogCapture mLog;
};

TEST_F(JLoggerTest, BeforeInitialisationEveryTestIsFalseAndEntryPointsReachTheAndroidLog) {
    for (const unsigned int module : {0U, 1U, 0x20U, 0xFFFFFFFFU}) {
        for (uint32_t level = 0; level <= 7; ++level) {
            EXPECT_FALSE(JLogger::isLogDetailsEnabled(module, static_cast<JLogLevel>(level)));
        }
    }
    EXPECT_FALSE(JLogger::isModeEnabled(0xFFFFFFFF));
    EXPECT_FALSE(JLogger::isDefaultModeOnly());
    EXPECT_FALSE(JLogger::isDefaultModeEnabled());
    EXPECT_FALSE(JLogger::isFileModeEnabled());
    EXPECT_EQ(JLogger::getLogger(), &sDefaultJLogger);
    JLogger::setLevel(0);
    EXPECT_EQ(JLogger::getDetailsLevel(), 0U);
    EXPECT_THAT(mLog.lines(), IsEmpty());

    JLogger::logEnter(MODULE_PREVIEW, "open", 12);
    EXPECT_THAT(mLog.lines(), ElementsAre(Support::LogLine{ANDROID_LOG_DEBUG, "JLOG",
                                                           "open R[12] M[Preview : 4] +"}));
}

TEST_F(JLoggerTest, DetailsPassWhenAFilterBitAndTheLevelMatch) {
    JLogger::setFilter(0x6);
    JLogger::setLevel(LEVEL_INFO);
    EXPECT_TRUE(JLogger::isLogDetailsEnabled(0x2, LEVEL_INFO));
    EXPECT_TRUE(JLogger::isLogDetailsEnabled(0x4, LEVEL_ERROR));
    EXPECT_TRUE(JLogger::isLogDetailsEnabled(0x6, LEVEL_INFO));
    EXPECT_TRUE(JLogger::isLogDetailsEnabled(0x4, static_cast<JLogLevel>(0)));
    EXPECT_FALSE(JLogger::isLogDetailsEnabled(0x4, LEVEL_DEBUG_HIGH));
    EXPECT_FALSE(JLogger::isLogDetailsEnabled(0x1, LEVEL_ERROR));
    for (const unsigned int module : {0x0U, 0x1U, 0x2U, 0x6U}) {
        for (const JLogLevel level : {LEVEL_ERROR, LEVEL_INFO, LEVEL_DEBUG_HIGH}) {
            EXPECT_EQ(JLogger::wantsDetails(module, level),
                      JLogger::isLogDetailsEnabled(module, level));
        }
    }

    JLogger::setFilter(~0UL);
    EXPECT_FALSE(JLogger::isLogDetailsEnabled(MODULE_INVALID, LEVEL_ERROR));
    EXPECT_TRUE(JLogger::isLogDetailsEnabled(0x80000000U, LEVEL_ERROR));
    // A filter bit beyond the 32 bits of a module id matches nobody.
    JLogger::setFilter(0x100000000UL);
    EXPECT_FALSE(JLogger::isLogDetailsEnabled(0xFFFFFFFFU, LEVEL_ERROR));

    // The comparison is unsigned: a threshold of all ones lets everything pass.
    JLogger::setFilter(~0UL);
    JLogger::setLevel(0xFFFFFFFFU);
    EXPECT_TRUE(JLogger::isLogDetailsEnabled(0x1, static_cast<JLogLevel>(0xFFFFFFFFU)));
}

TEST_F(JLoggerTest, LevelZeroRestoresTheInitialLevel) {
    JLogger::sInitJlogLevel = LEVEL_INFO;
    JLogger::setLevel(LEVEL_VERBOSE);
    EXPECT_EQ(JLogger::getDetailsLevel(), LEVEL_VERBOSE);
    JLogger::setLevel(0);
    EXPECT_EQ(JLogger::getDetailsLevel(), LEVEL_INFO);
    EXPECT_TRUE(JLogger::isLevelEnabled(LEVEL_INFO));
    EXPECT_FALSE(JLogger::isLevelEnabled(LEVEL_DEBUG_HIGH));
}

TEST_F(JLoggerTest, ModeTestsReadTheModeBits) {
    struct Row {
        unsigned int mode;
        bool defaultOnly, defaultEnabled, file;
    };
    for (const Row& row : {Row{0x01, true, true, false}, Row{0x02, false, false, true},
                           Row{0x04, false, false, true}, Row{0x10, false, false, false},
                           Row{0x11, false, true, false}, Row{0x12, false, false, true},
                           Row{0x14, false, false, true}, Row{0x08, false, false, false}}) {
        SCOPED_TRACE(row.mode);
        JLogger::setMode(row.mode);
        EXPECT_EQ(JLogger::isDefaultModeOnly(), row.defaultOnly);
        EXPECT_EQ(JLogger::isDefaultModeEnabled(), row.defaultEnabled);
        EXPECT_EQ(JLogger::isFileModeEnabled(), row.file);
        EXPECT_TRUE(JLogger::isModeEnabled(row.mode | 0x20));
        EXPECT_FALSE(JLogger::isModeEnabled(~row.mode));
    }
}

TEST_F(JLoggerTest, DebugLevelFourPrintsEveryDetailsAndFileTest) {
    JLogger::setFilter(0xFFFFFFFFFFFFFFFFUL);
    JLogger::setLevel(LEVEL_DEBUG);
    JLogger::setMode(MODE_FILE_ALONE | MODE_TRACE);
    JLogger::sDebugLevel = 3;
    JLogger::isLogDetailsEnabled(0x20, LEVEL_DEBUG);
    JLogger::isFileModeEnabled();
    EXPECT_THAT(mLog.lines(), IsEmpty());

    for (const int32_t loud : {4, -1}) {
        JLogger::sDebugLevel = loud;
        mLog.clear();
        JLogger::isLogDetailsEnabled(0x20, LEVEL_DEBUG);
        JLogger::isLogDetailsEnabled(0, LEVEL_VERBOSE);
        JLogger::isFileModeEnabled();
        JLogger::isModeEnabled(MODE_TRACE);
        JLogger::isLevelEnabled(LEVEL_DEBUG);
        EXPECT_THAT(mLog.lines(),
                    ElementsAre(Support::LogLine{ANDROID_LOG_DEBUG, "JLOG",
                                                 "[isLogDetailsEnabled] enable:1, level:5, "
                                                 "moduleId:0x20, sFilter:0xFFFFFFFFFFFFFFFF 0x20"},
                                Support::LogLine{ANDROID_LOG_DEBUG, "JLOG",
                                                 "[isLogDetailsEnabled] enable:0, level:6, "
                                                 "moduleId:0x0, sFilter:0xFFFFFFFFFFFFFFFF 0x0"},
                                Support::LogLine{ANDROID_LOG_DEBUG, "JLOG",
                                                 "[isFileModeEnabled] enable:1, sMode:0x14"}));
    }
}

TEST_F(JLoggerTest, EntryPointsForwardToTheInstalledLoggerWithoutNullNames) {
    std::vector<std::string> calls;
    Support::RecordingLogger logger("logger", calls);
    JLogger::sJLogger = &logger;
    JLogger::logEnter(0x4, "scope", 1);
    JLogger::logEnter(0x4, nullptr, 2);
    JLogger::logExit(0x6, nullptr, 3);
    JLogger::logNormalDetails(0x8, "Tag", LEVEL_WARN, "text", 4);
    JLogger::logNormalDetails(0x8, nullptr, static_cast<JLogLevel>(9), nullptr, 0);
    JLogger::flush(-7);
    EXPECT_THAT(calls, ElementsAre("logger: enter 4 'scope' 1", "logger: enter 4 '' 2",
                                   "logger: exit 6 '' 3", "logger: details 8 'Tag' 2 'text' 4",
                                   "logger: details 8 '' 9 'null' 0", "logger: flush -7"));
}

using JLoggerDeathTest = JLoggerTest;

TEST_F(JLoggerDeathTest, DebugLevelIsReadWhenTheLibraryIsLoaded) {
    const Support::TempFolder folder;
    const std::string file = folder.path("build.prop");
    Support::writeFile(file, "vendor.debug.camera.jlog.level=4\n");
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // runs this binary anew
    setenv("JCAM_PROPERTIES", file.c_str(), 1);
    EXPECT_EXIT(_exit(JLogger::sDebugLevel), ::testing::ExitedWithCode(4), "");
    unsetenv("JCAM_PROPERTIES");
}

}  // namespace
}  // namespace JCam::Utils::JLog
