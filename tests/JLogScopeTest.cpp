#include "jlog/JLogScope.h"

#include <cstdint>

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "jlog/DefaultJLogger.h"
#include "jlog/JLogMacros.h"
#include "support/RecordingLogger.h"

namespace JCam::Utils::JLog {
namespace {

TEST(JLogScope, ScopesAreLeftInTurnAndAskTheFilterOnce) {
    std::vector<std::string> calls;
    Support::RecordingLogger logger("log", calls);
    JLogger::sJLogger = &logger;
    JLogger::setFilter(MODULE_PREVIEW | MODULE_VIDEO);
    {
        const int frame = -1;
        JLOG_SCOPE(MODULE_PREVIEW, "outer", frame);
        JLOG_SCOPE(MODULE_CAPTURE, "unwanted", 8);
        const auto inner = [&calls] {
            JLOG_SCOPE(MODULE_VIDEO, nullptr, INT64_C(0x100000009));
            JLogger::setFilter(MODULE_CAPTURE);
            return calls.size();
        };
        EXPECT_EQ(inner(), 2U);
        calls.emplace_back("between");
    }
    JLogger::sJLogger = getDefaultJLogger();
    JLogger::setFilter(0);
    EXPECT_THAT(calls, ::testing::ElementsAre("log: enter 4 'outer' 4294967295",
                                              "log: enter 16 '' 9", "log: exit 16 '' 9", "between",
                                              "log: exit 4 'outer' 4294967295"));
}

TEST(JLogScope, IsOfLevelDebugWhereTheAndroidLogIsInstalled) {
    struct Case {
        unsigned int mode;
        JLogLevel level;
        bool isDefault;
        bool wanted;
    };
    for (const Case& each : {
                 Case{MODE_DEFAULT, LEVEL_DEBUG_HIGH, true, false},
                 Case{MODE_DEFAULT, LEVEL_DEBUG, true, true},
                 Case{MODE_DEFAULT | MODE_TRACE, LEVEL_INFO, false, false},
                 Case{MODE_DEFAULT | MODE_TRACE, LEVEL_VERBOSE, false, true},
                 Case{MODE_FILE_MERGE, LEVEL_ERROR, false, true},
                 Case{MODE_FILE_ALONE | MODE_TRACE, LEVEL_ERROR, false, true},
                 // After the last initializer.
                 Case{MODE_FILE_ALONE, LEVEL_INFO, true, false},
         }) {
        std::vector<std::string> calls;
        Support::RecordingLogger logger("log", calls);
        JLogger::sJLogger = each.isDefault ? getDefaultJLogger() : &logger;
        JLogger::setMode(each.mode);
        JLogger::setLevel(each.level);
        JLogger::setFilter(MODULE_PREVIEW);
        EXPECT_EQ(JLogger::wantsScope(MODULE_PREVIEW), each.wanted) << each.mode << each.level;
        EXPECT_FALSE(JLogger::wantsScope(MODULE_VIDEO));
        { JLOG_FUNCTION_SCOPE(MODULE_PREVIEW, 1); }
        EXPECT_EQ(!calls.empty() && calls[0] == "log: enter 4 'TestBody' 1",
                  each.wanted && !each.isDefault);
        JLogger::sJLogger = getDefaultJLogger();
        JLogger::logEnter(MODULE_PREVIEW, "filters nothing", 1);
    }
    JLogger::setMode(0);
    JLogger::setLevel(0);
    JLogger::setFilter(0);
}

}  // namespace
}  // namespace JCam::Utils::JLog
