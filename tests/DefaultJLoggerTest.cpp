#include "jlog/DefaultJLogger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <android/log.h>

#include "support/LogCapture.h"

namespace JCam::Utils::JLog {
namespace {

using Support::LogLine;
using ::testing::ElementsAre;

TEST(DefaultJLogger, EnterAndExitNameTheModule) {
    const Support::LogCapture log;
    DefaultJLogger logger;
    logger.onLogEnter(MODULE_PREVIEW, "open", 12);
    logger.onLogExit(MODULE_PREVIEW, "open", 12);
    logger.onLogEnter(0x40, "", 4294967295U);
    logger.onLogExit(0x6, "100%s", 0);
    logger.onLogEnter(MODULE_INVALID, "none", 1);
    EXPECT_THAT(
            log.lines(),
            ElementsAre(LogLine{ANDROID_LOG_DEBUG, "JLOG", "open R[12] M[Preview : 4] +"},
                        LogLine{ANDROID_LOG_DEBUG, "JLOG", "open R[12] M[Preview : 4] -"},
                        LogLine{ANDROID_LOG_DEBUG, "JLOG", " R[4294967295] M[(null) : 40] +"},
                        LogLine{ANDROID_LOG_DEBUG, "JLOG", "100%s R[0] M[(null) : 6] -"},
                        LogLine{ANDROID_LOG_DEBUG, "JLOG", "none R[1] M[MODULE_INVALID : 0] +"}));
}

TEST(DefaultJLogger, DetailsArePrintedAtThePriorityOfTheirLevel) {
    const Support::LogCapture log;
    DefaultJLogger logger;
    for (uint32_t level = 0; level <= 7; ++level) {
        const std::string text = "100% of " + std::to_string(level) + "%n";
        logger.onLogDetails(MODULE_COMMON, "Tag", static_cast<JLogLevel>(level), text.c_str(), 1);
    }
    logger.onLogDetails(MODULE_COMMON, "Tag", LEVEL_ERROR, nullptr, 5);
    EXPECT_THAT(log.lines(), ElementsAre(LogLine{ANDROID_LOG_ERROR, "Tag", "100% of 1%n"},
                                         LogLine{ANDROID_LOG_WARN, "Tag", "100% of 2%n"},
                                         LogLine{ANDROID_LOG_INFO, "Tag", "100% of 3%n"},
                                         LogLine{ANDROID_LOG_DEBUG, "Tag", "100% of 4%n"},
                                         LogLine{ANDROID_LOG_DEBUG, "Tag", "100% of 5%n"},
                                         LogLine{ANDROID_LOG_VERBOSE, "Tag", "100% of 6%n"},
                                         LogLine{ANDROID_LOG_ERROR, "Tag", ""}));
}

}  // namespace
}  // namespace JCam::Utils::JLog
