#pragma once

#include <android/log.h>

#include <gtest/gtest.h>

#include <cstdio>

#include <regex>
#include <string>
#include <vector>

/// Takes the place of the stderr logger while it lives, one at a time.
struct CapturedLog {
    CapturedLog() {
        sMessages.clear();
        __android_log_set_logger([](const __android_log_message* message) {
            sMessages.push_back(std::to_string(message->priority) + '/' + message->tag + ": " +
                                message->message);
        });
    }
    ~CapturedLog() {
        __android_log_set_logger(nullptr);
        __android_log_set_minimum_priority(ANDROID_LOG_DEFAULT);
    }

    /// The messages so far as "PRIORITY/TAG: TEXT".
    inline static std::vector<std::string> sMessages;
};

/// Runs platform_probe with `variable` in its environment and `commands`, both as a shell reads
/// them. Returns what it wrote to stderr, without the time and ids of log lines.
inline std::string runProbe(const std::string& variable, const std::string& commands) {
    const std::string line = "ANDROID_LOG_TAGS= JCAM_PROPERTIES= " + variable +
                             " " PLATFORM_PROBE " " + commands + " 2>&1";
    // NOLINTNEXTLINE(cert-env33-c): the shell is wanted, and the line is the test's own
    FILE* const pipe = popen(line.c_str(), "r");
    std::string output;
    for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) {
        output.push_back(static_cast<char>(c));
    }
    EXPECT_EQ(pclose(pipe), 0);
    // The probe has one thread, whose id is that of the process.
    static const std::regex kHead(R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} ([ \d]{4}\d+) \1 )");
    return std::regex_replace(output, kHead, "");
}
