#define JLOG_TAG "Ceiling"
#define JLOG_MAX_LEVEL 3
#include "jlog/JLogMacros.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "jlog/DefaultJLogger.h"
#include "support/RecordingLogger.h"

namespace JCam::Utils::JLog {

/// Declared and nowhere defined: a call that is compiled in does not link.
int nowhereDefined();

namespace {

TEST(JLogMacrosCeiling, CallsAboveItLeaveNoCodeBehind) {
    std::vector<std::string> calls;
    Support::RecordingLogger logger("log", calls);
    JLogger::sJLogger = &logger;
    JLogger::setFilter(~0UL);
    JLogger::setLevel(LEVEL_VERBOSE);
    JLOGI(MODULE_PREVIEW, "kept");
    JLOG_DETAILS(MODULE_PREVIEW, LEVEL_DEBUG_HIGH, "%d", nowhereDefined());
    JLOGD(MODULE_PREVIEW, "%d", nowhereDefined());
    JLOGV(MODULE_PREVIEW, "%d", nowhereDefined());
    JLOGD_EVERY_MS(MODULE_PREVIEW, 1000, "%d", nowhereDefined());
    unsigned int evaluated = 0;
    { JLOG_SCOPE(MODULE_PREVIEW, "scope", ++evaluated); }
    EXPECT_EQ(evaluated, 0U);
    JLogger::sJLogger = getDefaultJLogger();
    JLogger::setLevel(0);
    JLogger::setFilter(0);
    EXPECT_THAT(calls, ::testing::ElementsAre("log: details 4 'Ceiling' 3 'kept' 4"));
}

}  // namespace
}  // namespace JCam::Utils::JLog
