#include "jlog/JLogInitializer.h"

#include <memory>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

using ::testing::ElementsAre;

using File::FileAloneJLogger;
using File::FileMergeJLogger;
template <typename Logger>
using WithTrace = MultiJLogger<Logger, TraceJLogger>;

using Setting = std::pair<const char*, const char*>;
using Settings = std::vector<Setting>;

// Kinds of build.
const Setting kRelease = {"ro.build.release_type", "true"};
const Settings kEngineering = {};
const Settings kMarket = {kRelease};
const Settings kPre = {kRelease, {"ro.build.version.ota", "PKX_11_PRE_0042"}};
const Settings kDailyPre = {kRelease, {"ro.jovix.dailyota", "true"}};
const Settings kConfidential = {kRelease, {"ro.version.confidential", "true"}};

// What may be set beside them.
const Setting kPanic = {"persist.sys.assert.panic", "true"};
const Setting kLao = {"persist.sys.camera.lao.enable", "true"};
const Setting kForceLog = {"jovix.autotest.camera.debug.forcelog", "true"};
const Setting kAging = {"ro.jovix.image.my_engineering.type", "aging"};
constexpr char kMode[] = "vendor.debug.camera.jlog.mode";
constexpr char kUserLevel[] = "persist.vendor.jovix.camera.log_level";

class Applied : public Support::Properties {
  public:
    explicit Applied(const Settings& build, const Settings& others = {}) {
        for (const Settings& settings : {build, others}) {
            for (const auto& [key, value] : settings) {
                set(key, value);
            }
        }
    }
};

/// Every test begins with the statics of a freshly loaded library.
class JLogInitializerTest : public ::testing::Test {
  protected:
    JLogInitializerTest() { Support::resetPolicy(); }
    ~JLogInitializerTest() override {
        EXPECT_EQ(JLogInitializerImpl::sInited, 0);
        Support::resetPolicy();
    }

    /// The lines since the last call, as "PRIORITY/TAG: TEXT".
    std::vector<std::string> takeLines() {
        std::vector<std::string> lines;
        for (const Support::LogLine& line : mLog.lines()) {
            lines.push_back(::testing::PrintToString(line));
        }
        mLog.clear();
        return lines;
    }

    Support::LogCapture mLog;
    Support::TempFolder mFolder;
    Support::Properties mProperties{{"vendor.debug.camera.ulog.folder", mFolder.path()}};
};

TEST_F(JLogInitializerTest, StartUpConfigurationFollowsBuildMaskAndProperties) {
    struct Row {
        Settings build, settings;
        int mask;
        uint32_t mode, level;
        bool lao;
    };
    const Row rows[] = {
            {kEngineering, {}, 0, 0x01, 1, false},
            {kEngineering, {}, 1, 0x02, 1, false},
            {kEngineering, {}, 6, 0x01, 1, false},
            {kEngineering, {kAging}, 1, 0x02, 5, false},
            {kEngineering, {kAging}, 0, 0x01, 1, false},
            {kEngineering, {{kRelease.first, "TRUE"}}, 1, 0x02, 1, false},
            {kPre, {}, 0, 0x11, 3, true},
            {kPre, {}, 5, 0x02, 3, true},
            {kPre, {}, 3, 0x01, 3, true},
            {kDailyPre, {}, 0, 0x11, 3, true},
            {kMarket, {{"ro.build.version.ota", "pre"}}, 0, 0x01, 3, false},
            {kMarket, {kLao, kPanic}, 0, 0x11, 3, true},
            {kMarket, {kLao}, 0, 0x01, 3, false},
            {kMarket, {}, 1, 0x01, 3, false},
            {kMarket, {}, 3, 0x02, 3, false},
            {kMarket, {{kAging.first, "hightempaging"}}, 3, 0x02, 5, false},
            {kMarket, {{kMode, "20"}}, 3, 0x02, 3, false},
            {kConfidential, {}, 0, 0x01, 1, false},
            {kConfidential, {{kUserLevel, "4"}}, 0, 0x01, 6, false},
            {kConfidential, {kLao, kPanic}, 0, 0x11, 3, true},
            {kConfidential, {kForceLog, kPanic}, 1, 0x02, 3, false},
            {kConfidential, {kForceLog}, 1, 0x02, 1, false},
            {kConfidential, {{kAging.first, "hightempaging"}}, 1, 0x02, 5, false},
            {kMarket, {{"ro.version.confidential", "1"}}, 0, 0x01, 1, false},
            // Mode 0 forces the level, other modes that are none do not.
            {kEngineering, {{kMode, "0"}, {kUserLevel, "4"}}, 1, 0x01, 1, false},
            {kEngineering, {{kMode, "5"}, {kUserLevel, "0"}}, 1, 0x01, 2, false},
            {kEngineering, {{kMode, "-1"}, {kUserLevel, "2"}}, 1, 0x01, 3, false},
            {kEngineering, {{kUserLevel, "3"}}, 0, 0x01, 5, false},
            {kEngineering, {{kUserLevel, "1"}}, 0, 0x01, 1, false},
            {kEngineering, {{kUserLevel, "7"}}, 0, 0x01, 1, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE("row " + std::to_string(&row - rows));
        Support::resetPolicy();
        const Applied properties(row.build, row.settings);
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
        bool defaultOnly, defaultEnabled, file;
    };
    for (const Row& row : {
                 Row{"1", typeid(DefaultJLogger), true, true, false},
                 Row{"2", typeid(FileMergeJLogger), false, false, true},
                 Row{"4", typeid(FileAloneJLogger), false, false, true},
                 Row{"16", typeid(TraceJLogger), false, false, false},
                 Row{"0x11", typeid(WithTrace<DefaultJLogger>), false, true, false},
                 Row{"0x12", typeid(WithTrace<FileMergeJLogger>), false, false, true},
                 Row{"0x14", typeid(WithTrace<FileAloneJLogger>), false, false, true},
                 Row{"3", typeid(DefaultJLogger), true, true, false},
                 Row{"0x13", typeid(DefaultJLogger), true, true, false},
         }) {
        SCOPED_TRACE(row.mode);
        const Applied properties(kEngineering, {{kMode, row.mode}});
        {
            const JLogInitializer initializer(0);
            JLogger* logger = JLogger::getLogger();
            EXPECT_EQ(typeid(*logger), row.logger);
            EXPECT_EQ(JLogger::isDefaultModeOnly(), row.defaultOnly);
            EXPECT_EQ(JLogger::isDefaultModeEnabled(), row.defaultEnabled);
            EXPECT_EQ(JLogger::isFileModeEnabled(), row.file);
        }
        EXPECT_EQ(JLogger::getLogger(), getDefaultJLogger());
    }
    EXPECT_EQ(mLog.count("File ULogger stopped"), 2U);
}

TEST_F(JLogInitializerTest, SaysWhatItDecides) {
    JLogger::sDebugLevel = -1;
    {
        const Applied market(kMarket, {kAging, {kMode, "18"}});
        const JLogInitializer first(3);
        const JLogInitializer second(7);
    }
    EXPECT_THAT(takeLines(),
                ElementsAre("6/JLOG: jlog enable mask:3", "4/JLOG: jlog is enabled",
                            "4/JLogInit: propRelease: true, propVersion:  , propPanic: false, "
                            "propLao: false, propForcelog: false, propConfidential: false, "
                            "secLogEnable: 0, sDefaultLogLevel: 3",
                            "4/JLOG: market version: ulogEnable: 1", "3/JLogInit: isAgingVer:1",
                            "4/JLOG: aging version,set ulog level D",
                            "3/JLOG: [JLogInit] logLevelDefault:5, getDefaultJLogLevel:3, "
                            "jlogLevel:5",
                            "3/ULog: init",
                            "4/JLOG: [JLogInit] jlogLevel:5 jlogMode:0x2 "
                            "jlogFilter:0xFFFFFFFFFFFFFFFF",
                            "3/JLOG: new JLogInitializerImpl", "3/JLOG: new JLogInitializerImpl",
                            "3/JLOG: delete JLogInitializerImpl", "3/ULog: uninit",
                            "3/JLOG: delete JLogInitializerImpl"));
    Support::resetPolicy();
    const Applied pre(kPre, {{kMode, "2"}, {"vendor.debug.camera.jlog.filter", "0x100000006"}});
    const JLogInitializer initializer(4);
    EXPECT_THAT(mLog.texts(),
                ::testing::IsSupersetOf(
                        {"jlog is disabled", "pre version: ulogEnable: 1",
                         "[JLogInit] jlogLevel:3 jlogMode:0x2 jlogFilter:0x100000006"}));
    EXPECT_EQ(JLogger::sFilter, 0x100000006U);
    EXPECT_TRUE(JLogInitializerImpl::sJlogEnable4Pre);
    EXPECT_FALSE(JLogInitializerImpl::sJlogEnable4Market);
}

TEST_F(JLogInitializerTest, LaoFlagOfTheHostCountsOnlyOnEngineeringBuilds) {
    for (const bool market : {false, true}) {
        JLogInitializer::setCamLaoEnable(true);
        const Applied properties(market ? kMarket : kEngineering);
        const JLogInitializer initializer(0);
        EXPECT_EQ(JLogger::sMode, market ? 0x01U : 0x11U);
    }
    { const JLogInitializer later(0); }
    EXPECT_TRUE(JLogInitializerImpl::sMarketVer) << "a process does not change its build";
    EXPECT_TRUE(JLogInitializerImpl::sReleaseVer);
    JLogInitializer::setIsReleaseVer(false);
    EXPECT_FALSE(JLogInitializerImpl::sReleaseVer);
}

TEST_F(JLogInitializerTest, UpdateLogLevelFollowsTheBuild) {
    const Setting usbUser = {"persist.sys.log.user", "0"};
    const Setting enable1 = {"vendor.debug.cameralog.enable", "1"};
    const Setting enable2 = {"vendor.debug.cameralog.enable", "2"};
    const Settings engineering = {{kUserLevel, "0"}};
    struct Row {
        Settings build, settings;
        uint32_t level;
    };
    const Row rows[] = {
            {kMarket, {usbUser, kPanic}, 5},
            {kMarket, {usbUser}, 3},
            {kMarket, {kPanic}, 3},
            {kMarket, {enable1}, 3},
            {kPre, {enable2}, 5},
            {kPre, {kPanic}, 5},
            {kPre, {}, 3},
            {engineering, {enable1}, 5},
            {engineering, {enable2}, 2},
            {engineering, {enable2, kPanic}, 5},
            {engineering, {}, 2},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE("row " + std::to_string(&row - rows));
        Support::resetPolicy();
        const Applied build(row.build);
        const JLogInitializer initializer(0);
        JLogger::setLevel(LEVEL_VERBOSE);
        const Applied settings(row.settings);
        mLog.clear();
        JLogInitializer::updateLogLevel();
        EXPECT_EQ(JLogger::getDetailsLevel(), row.level);
        EXPECT_EQ(mLog.count("bCapsuleInUsbMode:"), JLogInitializerImpl::sMarketVer ? 1U : 0U);
        // The message shows what was asked for: 0 stands for the initial level.
        EXPECT_EQ(takeLines().back(),
                  "6/JLogInit: updateLogLevel:" + std::to_string(row.level == 2 ? 0 : row.level));
    }
}

TEST_F(JLogInitializerTest, LoggerLivesUntilTheLastInitializerInAnyOrder) {
    const Applied properties(kEngineering, {{kMode, "4"}});
    auto first = std::make_unique<JLogInitializer>(0);
    auto second = std::make_unique<JLogInitializer>(0);
    JLogger* logger = JLogger::getLogger();
    first.reset();
    JLogger::logEnter(MODULE_VIDEO, "still running", 1);
    auto third = std::make_unique<JLogInitializer>(0);
    second.reset();
    EXPECT_EQ(JLogger::getLogger(), logger);
    EXPECT_EQ(mLog.count("File ULogger stopped"), 0U);
    third.reset();
    EXPECT_EQ(JLogger::getLogger(), getDefaultJLogger());
    EXPECT_EQ(mLog.count("File ULogger stopped"), 1U);
    EXPECT_THAT(mFolder.logText(), ::testing::HasSubstr(" +  :still running #1\n"));
    EXPECT_EQ(JLogger::sMode, 0x04U) << "mode and level stay";

    { const JLogInitializer again(0); }
    EXPECT_EQ(JLogInitializerImpl::sDefaultLogLevel, 1U) << "the user's level is read once";
    EXPECT_EQ(mLog.count("File ULogger stopped"), 2U);
}

}  // namespace
}  // namespace JCam::Utils::JLog
