// What reaches the Android log, read from where it prints: on a host from stderr. The stand-in and
// Android's own liblog must agree on it, so nothing is used here that only one of them has.

#include <android/log.h>

#include <cstring>

#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "jlog/DefaultJLogger.h"
#include "jlog/JLogInitializer.h"
#include "jlog/track/EventTrackJLogger.h"

namespace JCam::Utils::JLog {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;

/// Makes "LETTER/TAG: TEXT" of a line of either layout: that of today's liblog, which is logcat's,
/// or that of its predecessor, "TAG L MM-DD hh:mm:ss PID TID TEXT".
std::string parse(const std::string& line) {
    static const std::regex kLogcat(
            R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} +\d+ +\d+ ([VDIWEF]) (.*?) *: (.*))");
    static const std::regex kOlder(R"((.*?) ([VDIWEF]) \d\d-\d\d \d\d:\d\d:\d\d +\d+ +\d+ (.*))");
    return std::regex_match(line, kLogcat) ? std::regex_replace(line, kLogcat, "$1/$2: $3")
                                           : std::regex_replace(line, kOlder, "$2/$1: $3");
}

class AndroidLogTest : public ::testing::Test {
  protected:
    AndroidLogTest() {
        ::testing::internal::CaptureStderr();
        __android_log_set_logger(__android_log_stderr_logger);
        __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    }

    /// What was printed. For one call.
    static std::vector<std::string> lines() {
        std::vector<std::string> result;
        std::istringstream printed(::testing::internal::GetCapturedStderr());
        for (std::string line; std::getline(printed, line);) {
            result.push_back(parse(line));
        }
        return result;
    }

    DefaultJLogger mLogger;
};

TEST_F(AndroidLogTest, EnterAndExitArePrintedWithTheModulesName) {
    for (const unsigned int module : {0x0U, 0x1U, 0x2U, 0x4U, 0x8U, 0x10U, 0x20U, 0x6U, 0x40U}) {
        mLogger.onLogEnter(module, "open", 12);
    }
    mLogger.onLogExit(0xFFFFFFFF, "100%s", 4294967295);
    EXPECT_THAT(
            lines(),
            ElementsAre("D/JLOG: open R[12] M[MODULE_INVALID : 0] +",
                        "D/JLOG: open R[12] M[DEFAULT : 1] +", "D/JLOG: open R[12] M[Common : 2] +",
                        "D/JLOG: open R[12] M[Preview : 4] +",
                        "D/JLOG: open R[12] M[Capture : 8] +", "D/JLOG: open R[12] M[Video : 10] +",
                        "D/JLOG: open R[12] M[FeatureSAT : 20] +",
                        "D/JLOG: open R[12] M[(null) : 6] +", "D/JLOG: open R[12] M[(null) : 40] +",
                        "D/JLOG: 100%s R[4294967295] M[(null) : ffffffff] -"));
}

TEST_F(AndroidLogTest, DetailsArePrintedAtThePriorityOfTheirLevelUnderTheCallersTag) {
    for (uint32_t level = 0; level <= 7; ++level) {
        mLogger.onLogDetails(MODULE_PREVIEW, "IspNode", static_cast<JLogLevel>(level), "100%n", 5);
    }
    // Texts are cut after 1023 bytes, and may be empty.
    const std::string text(3000, 'x');
    mLogger.onLogDetails(MODULE_PREVIEW, "Cut", LEVEL_INFO, text.c_str(), text.size());
    mLogger.onLogDetails(MODULE_PREVIEW, "Empty", LEVEL_INFO, "", 0);
    mLogger.onLogDetails(MODULE_PREVIEW, "Null", LEVEL_INFO, nullptr, 5);
    __android_log_set_minimum_priority(ANDROID_LOG_WARN);
    EXPECT_EQ(__android_log_is_loggable(ANDROID_LOG_INFO, "IspNode", ANDROID_LOG_VERBOSE), 0);
    EXPECT_EQ(__android_log_is_loggable(ANDROID_LOG_WARN, "IspNode", ANDROID_LOG_VERBOSE), 1);
    mLogger.onLogDetails(MODULE_PREVIEW, "Filtered", LEVEL_INFO, "text", 4);
    EXPECT_THAT(lines(), ElementsAre("E/IspNode: 100%n", "W/IspNode: 100%n", "I/IspNode: 100%n",
                                     "D/IspNode: 100%n", "D/IspNode: 100%n", "V/IspNode: 100%n",
                                     "I/Cut: " + text.substr(0, 1023), "I/Empty: ", "I/Null: "));
}

TEST_F(AndroidLogTest, TheFrontEndLogsBeforeDuringAndAfterAnInitializer) {
    const auto log = [](const char* text) {
        JLogger::logNormalDetails(MODULE_PREVIEW, "IspNode", LEVEL_ERROR, text, strlen(text));
    };
    EXPECT_FALSE(JLogger::isLogDetailsEnabled(0xFFFFFFFF, JLogLevel{}));
    EXPECT_FALSE(JLogger::isModeEnabled(0xFFFFFFFF));
    log("before");
    {
        const JLogInitializer initializer(0);
        log("through the front end");
    }
    log("after");
    EXPECT_THAT(lines(), ::testing::IsSupersetOf({"E/IspNode: before", "E/IspNode: after",
                                                  "D/JLOG: new JLogInitializerImpl",
                                                  "E/IspNode: through the front end",
                                                  "D/JLOG: delete JLogInitializerImpl"}));
}

TEST_F(AndroidLogTest, AnAbsentLogCollectorIsAFailedRaise) {
    // This program is linked without one.
    Track::EventTrackJLogger::getInstance()->camJlcRaiseException(0x10025005);
    EXPECT_THAT(lines(), Contains("E/EventTrackJLogger: jlc_raise_exception failed"));
}

}  // namespace
}  // namespace JCam::Utils::JLog
