#include "jlog/JLogInitializer.h"

#include <memory>
#include <typeinfo>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <android/log.h>

#include "jlog/DefaultJLogger.h"
#include "jlog/file/FileAloneJLogger.h"
#include "jlog/file/FileMergeJLogger.h"
#include "jlog/JLogInitializerImpl.h"
#include "jlog/MultiJLogger.h"
#include "jlog/TraceJLogger.h"
#include "support/LogCapture.h"
#include "support/Policy.h"
#include "support/Properties.h"
#include "support/TempFolder.h"

namespace JCam::Utils::JLog {
namespace {

using Support::LogLine;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

using Settings = std::vector<std::pair<const char*, const char*>>;

// Kinds of build, and what may be set beside them.
const Settings kPre = {{"ro.build.release_type", "true"},
                       {"ro.build.version.ota", "PKX_11_PRE_0042"}};
const Settings kDailyPre = {{"ro.build.release_type", "true"}, {"ro.jovix.dailyota", "true"}};
const Settings kMarket = {{"ro.build.release_type", "true"}};
const Settings kConfidential = {{"ro.build.release_type", "true"},
                                {"ro.version.confidential", "true"}};
const std::pair<const char*, const char*> kPanic = {"persist.sys.assert.panic", "true"};
const std::pair<const char*, const char*> kLao = {"persist.sys.camera.lao.enable", "true"};
const std::pair<const char*, const char*> kForceLog = {"jovix.autotest.camera.debug.forcelog",
                                                       "true"};
const std::pair<const char*, const char*> kAging = {"ro.jovix.image.my_engineering.type", "aging"};
constexpr char kMode[] = "vendor.debug.camera.jlog.mode";
constexpr char kUserLevel[] = "persist.vendor.jovix.camera.log_level";

Settings operator+(Settings settings, const Settings& more) {
    settings.insert(settings.end(), more.begin(), more.end());
    return settings;
}

/// Every test begins with the statics of a freshly loaded library.
class JLogInitializerTest : public ::testing::Test {
  protected:
    JLogInitializerTest() {
        Support::resetPolicy();
        mProperties.set("vendor.debug.camera.ulog.folder", mFolder.path());
    }
    ~JLogInitializerTest() override {
        EXPECT_EQ(JLogInitializerImpl::sInited, 0);
        Support::resetPolicy();
    }

    static std::unique_ptr<Support::Properties> apply(const Settings& settings) {
        auto properties = std::make_unique<Support::Properties>();
        for (const auto& [key, value] : settings) {
            properties->set(key, value);
        }
        return properties;
    }

    Support::LogCapture mLog;
    Support::TempFolder mFolder;
    Support::Properties mProperties;
};

TEST_F(JLogInitializerTest, StartUpConfigurationFollowsBuildMaskAndProperties) {
    struct Row {
        const char* what;
        Settings settings;
        int mask;
        uint32_t mode, level;
        bool lao;
    };
    const Row rows[] = {
            {"engineering", {}, 0, 0x01, 1, false},
            {"engineering, jlog", {}, 1, 0x02, 1, false},
            {"engineering, other mask bits", {}, 6, 0x01, 1, false},
            {"engineering, jlog, aging", {kAging}, 1, 0x02, 5, false},
            {"engineering, aging without a file", {kAging}, 0, 0x01, 1, false},
            {"not quite true", {{"ro.build.release_type", "TRUE"}}, 1, 0x02, 1, false},
            {"pre", kPre, 0, 0x11, 3, true},
            {"pre, jlog, allowed", kPre, 5, 0x02, 3, true},
            {"pre, jlog, not allowed", kPre, 3, 0x01, 3, true},
            {"pre, jlog, allowed, aging", kPre + Settings{kAging}, 5, 0x02, 5, true},
            {"daily pre", kDailyPre, 0, 0x11, 3, true},
            {"lower-case pre is market",
             {{"ro.build.release_type", "true"}, {"ro.build.version.ota", "pre"}},
             0,
             0x01,
             3,
             false},
            {"market", kMarket, 0, 0x01, 3, false},
            {"market, lao and panic", kMarket + Settings{kLao, kPanic}, 0, 0x11, 3, true},
            {"market, lao alone", kMarket + Settings{kLao}, 0, 0x01, 3, false},
            {"market, jlog, not allowed", kMarket, 1, 0x01, 3, false},
            {"market, jlog, allowed", kMarket, 3, 0x02, 3, false},
            {"market, jlog, allowed, aging", kMarket + Settings{kAging}, 3, 0x02, 5, false},
            {"market takes no own file", kMarket + Settings{{kMode, "20"}}, 3, 0x02, 3, false},
            {"neither", kConfidential, 0, 0x01, 1, false},
            {"neither, user level", kConfidential + Settings{{kUserLevel, "4"}}, 0, 0x01, 6, false},
            {"neither, lao and panic", kConfidential + Settings{kLao, kPanic}, 0, 0x11, 3, true},
            {"neither, forced", kConfidential + Settings{kForceLog, kPanic}, 1, 0x02, 3, false},
            {"neither, forced without panic", kConfidential + Settings{kForceLog}, 1, 0x02, 1,
             false},
            {"neither, jlog, aging", kConfidential + Settings{kAging}, 1, 0x02, 5, false},
            {"mode 0 forces the level", {{kMode, "0"}, {kUserLevel, "4"}}, 1, 0x01, 1, false},
            {"mode 5 is none", {{kMode, "5"}, {kUserLevel, "0"}}, 1, 0x01, 2, false},
            {"mode 0x15 is none", {{kMode, "0x15"}}, 1, 0x01, 1, false},
            {"negative mode is none", {{kMode, "-1"}}, 1, 0x01, 1, false},
            {"user level 2", {{kUserLevel, "2"}}, 0, 0x01, 3, false},
            {"user level 3", {{kUserLevel, "3"}}, 0, 0x01, 5, false},
            {"user level 1", {{kUserLevel, "1"}}, 0, 0x01, 1, false},
            {"user level 7", {{kUserLevel, "7"}}, 0, 0x01, 1, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        Support::resetPolicy();
        const auto properties = apply(row.settings);
        const JLogInitializer initializer(row.mask);
        EXPECT_EQ(JLogger::sMode, row.mode);
        EXPECT_EQ(JLogger::sLevel, row.level);
        EXPECT_EQ(JLogger::sInitJlogLevel, row.level);
        EXPECT_EQ(JLogger::sFilter, ~0UL);
        EXPECT_EQ(JLogInitializerImpl::sLaoEnable, row.lao);
        EXPECT_EQ(JLogger::getLogger() == getDefaultJLogger(), row.mode == 0x01);
    }
}

TEST_F(JLogInitializerTest, ModeChoosesTheLogger) {
    struct Row {
        const char* mode;
        const std::type_info& logger;
    };
    for (const Row& row :
         {Row{"1", typeid(DefaultJLogger)}, Row{"2", typeid(File::FileMergeJLogger)},
          Row{"4", typeid(File::FileAloneJLogger)}, Row{"16", typeid(TraceJLogger)},
          Row{"0x11", typeid(MultiJLogger<DefaultJLogger, TraceJLogger>)},
          Row{"0x12", typeid(MultiJLogger<File::FileMergeJLogger, TraceJLogger>)},
          Row{"0x14", typeid(MultiJLogger<File::FileAloneJLogger, TraceJLogger>)},
          Row{"3", typeid(DefaultJLogger)}, Row{"0x13", typeid(DefaultJLogger)}}) {
        SCOPED_TRACE(row.mode);
        const auto properties = apply({{kMode, row.mode}});
        {
            const JLogInitializer initializer(0);
            JLogger* logger = JLogger::getLogger();
            EXPECT_EQ(typeid(*logger), row.logger);
        }
        EXPECT_EQ(JLogger::getLogger(), getDefaultJLogger());
    }
    EXPECT_EQ(mLog.count("File ULogger stopped"), 2U);
}

TEST_F(JLogInitializerTest, SaysWhatItDecides) {
    {
        const JLogInitializer first(0);
        const JLogInitializer second(7);
    }
    const std::string policy =
            "propRelease: false, propVersion:  , propPanic: false, propLao: false, "
            "propForcelog: false, propConfidential: false, secLogEnable: 0, sDefaultLogLevel: 0";
    EXPECT_THAT(mLog.lines(),
                ElementsAre(LogLine{ANDROID_LOG_ERROR, "JLOG", "jlog enable mask:0"},
                            LogLine{ANDROID_LOG_INFO, "JLOG", "jlog is disabled"},
                            LogLine{ANDROID_LOG_INFO, "JLogInit", policy},
                            LogLine{ANDROID_LOG_INFO, "JLOG",
                                    "[JLogInit] jlogLevel:1 jlogMode:0x1 "
                                    "jlogFilter:0xFFFFFFFFFFFFFFFF"},
                            LogLine{ANDROID_LOG_DEBUG, "JLOG", "new JLogInitializerImpl"},
                            LogLine{ANDROID_LOG_DEBUG, "JLOG", "new JLogInitializerImpl"},
                            LogLine{ANDROID_LOG_DEBUG, "JLOG", "delete JLogInitializerImpl"},
                            LogLine{ANDROID_LOG_DEBUG, "JLOG", "delete JLogInitializerImpl"}));

    mLog.clear();
    JLogger::sDebugLevel = 1;
    const auto market = apply(kMarket + Settings{kAging, {kMode, "18"}});
    { const JLogInitializer initializer(3); }
    EXPECT_THAT(
            mLog.lines(),
            ElementsAre(
                    LogLine{ANDROID_LOG_ERROR, "JLOG", "jlog enable mask:3"},
                    LogLine{ANDROID_LOG_INFO, "JLOG", "jlog is enabled"},
                    LogLine{ANDROID_LOG_INFO, "JLogInit",
                            "propRelease: true, propVersion:  , propPanic: false, propLao: false, "
                            "propForcelog: false, propConfidential: false, secLogEnable: 0, "
                            "sDefaultLogLevel: 3"},
                    LogLine{ANDROID_LOG_INFO, "JLOG", "market version: ulogEnable: 1"},
                    LogLine{ANDROID_LOG_DEBUG, "JLogInit", "isAgingVer:1"},
                    LogLine{ANDROID_LOG_INFO, "JLOG", "aging version,set ulog level D"},
                    LogLine{ANDROID_LOG_DEBUG, "JLOG",
                            "[JLogInit] logLevelDefault:5, getDefaultJLogLevel:3, jlogLevel:5"},
                    LogLine{ANDROID_LOG_DEBUG, "ULog", "init"},
                    LogLine{ANDROID_LOG_INFO, "JLOG",
                            "[JLogInit] jlogLevel:5 jlogMode:0x2 jlogFilter:0xFFFFFFFFFFFFFFFF"},
                    LogLine{ANDROID_LOG_DEBUG, "JLOG", "new JLogInitializerImpl"},
                    LogLine{ANDROID_LOG_DEBUG, "ULog", "uninit"},
                    LogLine{ANDROID_LOG_DEBUG, "JLOG", "delete JLogInitializerImpl"}));
    EXPECT_TRUE(JLogInitializerImpl::sJlogEnable4Market);
}

TEST_F(JLogInitializerTest, SaysWhatAPreReleaseBuildAndTheFilterMean) {
    const auto pre = apply(kDailyPre + Settings{{"vendor.debug.camera.jlog.filter", "0x6"}});
    const JLogInitializer initializer(1);
    EXPECT_THAT(mLog.texts(),
                AllOf(Contains("pre version: ulogEnable: 0"),
                      Contains("[JLogInit] jlogLevel:3 jlogMode:0x1 jlogFilter:0x6")));
    EXPECT_EQ(JLogger::sFilter, 0x6U);
}

TEST_F(JLogInitializerTest, LaoFlagOfTheHostCountsOnlyOnEngineeringBuilds) {
    JLogInitializer::setCamLaoEnable(true);
    {
        const JLogInitializer initializer(0);
        EXPECT_EQ(JLogger::sMode, 0x11U);
    }
    const auto properties = apply(kMarket);
    const JLogInitializer initializer(0);
    EXPECT_EQ(JLogger::sMode, 0x01U);
    JLogInitializer::setIsReleaseVer(false);
    EXPECT_FALSE(JLogInitializerImpl::sReleaseVer);
}

TEST_F(JLogInitializerTest, UpdateLogLevelFollowsTheBuild) {
    const std::pair<const char*, const char*> usbUser = {"persist.sys.log.user", "0"};
    const std::pair<const char*, const char*> enable1 = {"vendor.debug.cameralog.enable", "1"};
    const std::pair<const char*, const char*> enable2 = {"vendor.debug.cameralog.enable", "2"};
    struct Row {
        const char* what;
        Settings build, settings;
        uint32_t level;
    };
    const Row rows[] = {
            {"market, USB capture", kMarket, {usbUser, kPanic}, 5},
            {"market, user alone", kMarket, {usbUser}, 3},
            {"market, panic alone", kMarket, {kPanic}, 3},
            {"market ignores the switch", kMarket, {enable1}, 3},
            {"pre, switch", kPre, {enable2}, 5},
            {"pre, panic", kPre, {kPanic}, 5},
            {"pre", kPre, {}, 3},
            {"engineering, switch at 1", {{kUserLevel, "0"}}, {enable1}, 5},
            {"engineering, switch at 2", {{kUserLevel, "0"}}, {enable2}, 2},
            {"engineering, panic", {{kUserLevel, "0"}}, {enable2, kPanic}, 5},
            {"engineering", {{kUserLevel, "0"}}, {}, 2},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        Support::resetPolicy();
        const auto build = apply(row.build);
        const JLogInitializer initializer(0);
        JLogger::setLevel(LEVEL_VERBOSE);
        const auto settings = apply(row.settings);
        mLog.clear();
        JLogInitializer::updateLogLevel();
        EXPECT_EQ(JLogger::getDetailsLevel(), row.level);
        // The message shows what was asked for: 0 stands for the initial level.
        const uint32_t asked = row.level == 2 ? 0 : row.level;
        EXPECT_EQ(mLog.lines().back(), (LogLine{ANDROID_LOG_ERROR, "JLogInit",
                                                "updateLogLevel:" + std::to_string(asked)}));
        const bool market = JLogInitializerImpl::sMarketVer;
        EXPECT_EQ(mLog.count("bCapsuleInUsbMode:"), market ? 1U : 0U);
    }
}

TEST_F(JLogInitializerTest, LoggerLivesUntilTheLastInitializerInAnyOrder) {
    const auto properties = apply({{kMode, "4"}});
    auto first = std::make_unique<JLogInitializer>(0);
    auto second = std::make_unique<JLogInitializer>(0);
    JLogger* logger = JLogger::getLogger();
    first.reset();
    EXPECT_EQ(JLogger::getLogger(), logger);
    JLogger::logEnter(MODULE_VIDEO, "still running", 1);
    auto third = std::make_unique<JLogInitializer>(0);
    second.reset();
    EXPECT_EQ(JLogger::getLogger(), logger);
    EXPECT_EQ(mLog.count("File ULogger stopped"), 0U);
    third.reset();
    EXPECT_EQ(JLogger::getLogger(), getDefaultJLogger());
    EXPECT_EQ(mLog.count("File ULogger stopped"), 1U);
    EXPECT_THAT(mFolder.logText(), HasSubstr(" +  :still running #1\n"));
    EXPECT_EQ(JLogger::sMode, 0x04U) << "mode and level stay";

    { const JLogInitializer again(0); }
    EXPECT_EQ(mLog.count("File ULogger stopped"), 2U);
}

}  // namespace
}  // namespace JCam::Utils::JLog
