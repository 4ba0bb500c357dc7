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

}  // namespace
}  // namespace JCam::Utils::JLog
