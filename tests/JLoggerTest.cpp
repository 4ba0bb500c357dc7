#include "jlog/JLogger.h"

#include <cstring>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cutils/trace.h>

#include "jlog/DefaultJLogger.h"
#include "jlog/MultiJLogger.h"
#include "jlog/TraceJLogger.h"
#include "jlog/TraceSection.h"
#include "support/LogCapture.h"
#include "support/Policy.h"
#include "support/RecordingLogger.h"

namespace {
std::atomic<int> sTagCalls{0};  // other tests of this program log from many threads
}  // namespace

/// Stands in front of the platform's, and counts calls.
extern "C" __attribute__((visibility("default"))) uint64_t atrace_get_enabled_tags() {
    ++sTagCalls;
    return ~ATRACE_TAG_NOT_READY;
}

namespace JCam::Utils::JLog {
namespace {

using ::testing::ElementsAre;

/// Leaves the process-wide logging state as a freshly loaded library has it.
class JLoggerTest : public ::testing::Test {
  protected:
    ~JLoggerTest() override {
        JLogger::sJLogger = getDefaultJLogger();
        Support::resetPolicy();
    }

    Support::LogCapture mLog;
};

TEST_F(JLoggerTest, DetailsPassWhenAFilterBitAndTheLevelMatch) {
    const auto pass = [](unsigned int module, unsigned int number) {
        const auto level = static_cast<JLogLevel>(number);
        const bool wanted = JLogger::wantsDetails(module, level);
        EXPECT_EQ(JLogger::isLogDetailsEnabled(module, level), wanted);
        return wanted;
    };
    JLogger::setLevel(LEVEL_INFO);
    JLogger::setFilter(0x6);
    EXPECT_TRUE(pass(0x2, LEVEL_INFO));
    EXPECT_TRUE(pass(0x6, LEVEL_ERROR));
    EXPECT_TRUE(pass(0x4, 0));
    EXPECT_FALSE(pass(0x4, LEVEL_DEBUG_HIGH));
    EXPECT_FALSE(pass(0x1, LEVEL_ERROR));
    JLogger::setFilter(~0UL);
    EXPECT_FALSE(pass(MODULE_INVALID, LEVEL_ERROR));
    EXPECT_TRUE(pass(0x80000000, LEVEL_ERROR));
    // A filter bit beyond the 32 bits of a module id matches nobody.
    JLogger::setFilter(0x100000000);
    EXPECT_FALSE(pass(0xFFFFFFFF, LEVEL_ERROR));
    // The comparison is unsigned: a threshold of all ones lets everything pass.
    JLogger::setFilter(~0UL);
    JLogger::setLevel(0xFFFFFFFF);
    EXPECT_TRUE(pass(0x1, 0xFFFFFFFF));
}

TEST_F(JLoggerTest, DebugLevelFourPrintsEveryDetailsAndFileTest) {
    JLogger::setFilter(~0UL);
    JLogger::setLevel(LEVEL_DEBUG);
    JLogger::setMode(MODE_FILE_ALONE | MODE_TRACE);
    const auto texts = [this](int32_t debugLevel) {
        JLogger::sDebugLevel = debugLevel;
        mLog.clear();
        JLogger::isLogDetailsEnabled(0x20, LEVEL_DEBUG);
        JLogger::isLogDetailsEnabled(0, LEVEL_VERBOSE);
        JLogger::isFileModeEnabled();
        return mLog.texts();
    };
    EXPECT_THAT(texts(4), ElementsAre("[isLogDetailsEnabled] enable:1, level:5, moduleId:0x20, "
                                      "sFilter:0xFFFFFFFFFFFFFFFF 0x20",
                                      "[isLogDetailsEnabled] enable:0, level:6, moduleId:0x0, "
                                      "sFilter:0xFFFFFFFFFFFFFFFF 0x0",
                                      "[isFileModeEnabled] enable:1, sMode:0x14"));
    EXPECT_EQ(texts(3).size(), 0U);
    EXPECT_EQ(texts(-1).size(), 3U);
}

std::vector<std::string> sCalls;

template <char kName>
struct Named : Support::RecordingLogger {
    Named() : RecordingLogger(std::string(1, kName), sCalls) {}
};

TEST_F(JLoggerTest, EventsReachBothLoggersOfAPairInOrderWithoutNullNames) {
    auto pair = std::make_unique<MultiJLogger<Named<'1'>, Named<'2'>>>();
    JLogger::sJLogger = pair.get();
    pair->onInit();
    JLogger::logEnter(0x4, "scope", 1);
    JLogger::logNormalDetails(0x8, "Tag", LEVEL_WARN, "text", 4);
    JLogger::logEnter(0x4, nullptr, 3);
    JLogger::logExit(0x6, nullptr, 4);
    JLogger::logNormalDetails(0x8, nullptr, static_cast<JLogLevel>(9), nullptr, 0);
    JLogger::flush(-7);
    std::vector<std::string> expected;
    for (const std::string call :
         {"init", "enter 4 'scope' 1", "details 8 'Tag' 2 'text' 4", "enter 4 '' 3", "exit 6 '' 4",
          "details 8 '' 9 'null' 0", "flush -7"}) {
        expected.push_back("1: " + call);
        expected.push_back("2: " + call);
    }
    EXPECT_EQ(sCalls, expected);
    sCalls.clear();
    pair->onUninit();
    pair.reset();
    EXPECT_THAT(sCalls, ElementsAre("2: uninit", "1: uninit", "2: destroyed", "1: destroyed"));
}

std::string sectionOf(unsigned int moduleId, const std::string& name) {
    char section[kTraceSectionBytes];
    memset(section, 'x', sizeof(section));
    formatTraceSection(section, moduleId, name.c_str());
    return section;
}

TEST(TraceJLogger, SectionIsModuleAndNameCutTo127CharactersForEnterAndExit) {
    EXPECT_EQ(sectionOf(MODULE_PREVIEW, ""), "Preview ");
    EXPECT_EQ(sectionOf(0x6, "processFrame"), "  processFrame");
    EXPECT_EQ(sectionOf(MODULE_VIDEO, std::string(121, 'n')), "Video " + std::string(121, 'n'));
    EXPECT_EQ(sectionOf(MODULE_VIDEO, std::string(300, 'n')), "Video " + std::string(121, 'n'));
    TraceJLogger logger;
    sTagCalls = 0;
    logger.onLogDetails(MODULE_VIDEO, "Tag", LEVEL_ERROR, "text", 4);
    EXPECT_EQ(sTagCalls, 0);
    logger.onLogEnter(MODULE_VIDEO, "scope", 1);
    EXPECT_EQ(sTagCalls, 1);
    logger.onLogExit(MODULE_VIDEO, "scope", 1);
    EXPECT_EQ(sTagCalls, 2);
}

}  // namespace
}  // namespace JCam::Utils::JLog
