#include <gtest/gtest.h>

#include "jlog/track/EventTrackJLogger.h"
#include "support/LogCapture.h"

namespace JCam::Utils::JLog::Track {
namespace {

// This program is linked without a log collector.
TEST(EventTrackJLogger, AnAbsentLogCollectorIsAFailedRaise) {
    const Support::LogCapture log;
    EventTrackJLogger::getInstance()->camJlcRaiseException(0x10025005);
    EventTrackJLogger::releaseInstance();
    EXPECT_EQ(log.texts("jlc"),
              (std::vector<std::string>{"jlc raise exception exceptionId = 0x10025005",
                                        "jlc_raise_exception failed"}));
}

}  // namespace
}  // namespace JCam::Utils::JLog::Track
