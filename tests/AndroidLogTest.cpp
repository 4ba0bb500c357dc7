// What reaches the Android log, read from where it prints: on a host from stderr. The stand-in and
// Android's own liblog must agree on it, so nothing is used here that only one of them has.

#include <android/log.h>

#include <unistd.h>

#include <cstdio>

#include <fstream>
#include <ostream>
#include <regex>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "jlog/DefaultJLogger.h"
#include "jlog/JLogInitializer.h"

namespace JCam::Utils::JLog {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct Line {
    char letter;
    std::string tag;
    std::string text;

    bool operator==(const Line&) const = default;
};

void PrintTo(const Line& line, std::ostream* out) {
    *out << line.letter << '/' << line.tag << ": " << line.text;
}

/// Reads a line of either layout: that of today's liblog, which is logcat's, or that of its
/// predecessor, "TAG L MM-DD hh:mm:ss PID TID TEXT".
Line parse(const std::string& text) {
    static const std::regex kLogcat(
            R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} +\d+ +\d+ ([VDIWEF]) (.*?) *: (.*))");
    static const std::regex kOlder(R"((.*?) ([VDIWEF]) \d\d-\d\d \d\d:\d\d:\d\d +\d+ +\d+ (.*))");
    std::smatch match;
    if (std::regex_match(text, match, kLogcat)) {
        return {match.str(1).front(), match.str(2), match.str(3)};
    }
    if (std::regex_match(text, match, kOlder)) {
        return {match.str(2).front(), match.str(1), match.str(3)};
    }
    return {'?', "", text};
}

class AndroidLogTest : public ::testing::Test {
  protected:
    AndroidLogTest() : mStderr(dup(STDERR_FILENO)) {
        mPath = ::testing::TempDir() + "android_log." + std::to_string(getpid());
        EXPECT_NE(freopen(mPath.c_str(), "w", stderr), nullptr);
        __android_log_set_logger(__android_log_stderr_logger);
        __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    }
    ~AndroidLogTest() override {
        static_cast<void>(fflush(stderr));
        dup2(mStderr, STDERR_FILENO);
        close(mStderr);
        unlink(mPath.c_str());
    }

    /// The lines so far.
    std::vector<Line> lines() {
        static_cast<void>(fflush(stderr));
        std::vector<Line> result;
        std::ifstream in(mPath);
        for (std::string text; std::getline(in, text);) {
            result.push_back(parse(text));
        }
        return result;
    }

    DefaultJLogger mLogger;

  private:
    std::string mPath;
    int mStderr;
};

TEST_F(AndroidLogTest, EnterAndExitArePrintedWithTheModulesName) {
    mLogger.onLogEnter(MODULE_PREVIEW, "open", 12);
    mLogger.onLogExit(0x40, "open", 4294967295);
    EXPECT_THAT(lines(), ElementsAre(Line{'D', "JLOG", "open R[12] M[Preview : 4] +"},
                                     Line{'D', "JLOG", "open R[4294967295] M[(null) : 40] -"}));
}

TEST_F(AndroidLogTest, DetailsArePrintedAtThePriorityOfTheirLevelUnderTheCallersTag) {
    for (uint32_t level = 0; level <= 7; ++level) {
        mLogger.onLogDetails(MODULE_PREVIEW, "IspNode", static_cast<JLogLevel>(level), "100% %s",
                             7);
    }
    EXPECT_THAT(lines(), ElementsAre(Line{'E', "IspNode", "100% %s"},  //
                                     Line{'W', "IspNode", "100% %s"},  //
                                     Line{'I', "IspNode", "100% %s"},  //
                                     Line{'D', "IspNode", "100% %s"},  //
                                     Line{'D', "IspNode", "100% %s"},  //
                                     Line{'V', "IspNode", "100% %s"}));
}

TEST_F(AndroidLogTest, TextsAreCutAfter1023BytesAndMayBeEmpty) {
    const std::string text(3000, 'x');
    mLogger.onLogDetails(MODULE_PREVIEW, "IspNode", LEVEL_INFO, text.c_str(), text.size());
    mLogger.onLogDetails(MODULE_PREVIEW, "IspNode", LEVEL_INFO, "", 0);
    EXPECT_THAT(lines(),
                ElementsAre(Line{'I', "IspNode", text.substr(0, 1023)}, Line{'I', "IspNode", ""}));
}

TEST_F(AndroidLogTest, WhatIsBelowTheMinimumIsNotPrinted) {
    __android_log_set_minimum_priority(ANDROID_LOG_WARN);
    EXPECT_EQ(__android_log_is_loggable(ANDROID_LOG_INFO, "IspNode", ANDROID_LOG_VERBOSE), 0);
    EXPECT_EQ(__android_log_is_loggable(ANDROID_LOG_WARN, "IspNode", ANDROID_LOG_VERBOSE), 1);
    mLogger.onLogEnter(MODULE_PREVIEW, "open", 12);
    mLogger.onLogDetails(MODULE_PREVIEW, "IspNode", LEVEL_INFO, "info", 4);
    EXPECT_THAT(lines(), IsEmpty());
    mLogger.onLogDetails(MODULE_PREVIEW, "IspNode", LEVEL_WARN, "warn", 4);
    EXPECT_THAT(lines(), ElementsAre(Line{'W', "IspNode", "warn"}));
}

TEST_F(AndroidLogTest, TheWholeWayFromTheInitializerToTheLog) {
    {
        const JLogInitializer initializer(0);
        JLogger::logNormalDetails(MODULE_PREVIEW, "IspNode", LEVEL_ERROR, "through the front end",
                                  21);
    }
    EXPECT_THAT(lines(), AllOf(Contains(Line{'D', "JLOG", "new JLogInitializerImpl"}),
                               Contains(Line{'E', "IspNode", "through the front end"}),
                               Contains(Line{'D', "JLOG", "delete JLogInitializerImpl"})));
}

}  // namespace
}  // namespace JCam::Utils::JLog
