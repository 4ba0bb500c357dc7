#include "LogcatFile.h"

#include <sys/time.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <android/log.h>
#include <fmt/chrono.h>
#include <fmt/core.h>

namespace CameraHost {

namespace {

// A logger function has no argument of its own. All guarded by sMutex.
std::mutex sMutex;
FILE* sFile = nullptr;
pid_t sReader = 0;  // the thread whose messages are kept
std::vector<std::string> sMessages;

/// Each line of a text gets the head, as in logcat.
void logToFile(const __android_log_message* message) {
    __android_log_stderr_logger(message);
    const std::lock_guard lock(sMutex);
    if (sFile == nullptr) {
        return;
    }
    timeval now{};
    gettimeofday(&now, nullptr);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    constexpr std::string_view kLetters = "??VDIWEFS";  // by android_LogPriority
    const auto priority = static_cast<size_t>(message->priority);
    const char letter = priority < kLetters.size() ? kLetters[priority] : '?';
    const std::string head = fmt::format("{:%m-%d %H:%M:%S}.{:06} {:5} {:5} {} {:8}: ", local,
                                         now.tv_usec, getpid(), gettid(), letter, message->tag);
    std::string_view text = message->message;
    do {
        const std::string_view line = text.substr(0, text.find('\n'));
        fmt::print(sFile, "{}{}\n", head, line);
        text.remove_prefix(std::min(line.size() + 1, text.size()));
    } while (!text.empty());
    if (gettid() == sReader) {
        sMessages.emplace_back(message->message);
    }
}

}  // namespace

LogcatFile::LogcatFile(const std::filesystem::path& path)
        : mMinimum(__android_log_get_minimum_priority()) {
    const std::lock_guard lock(sMutex);
    sFile = std::fopen(path.c_str(), "we");
    if (sFile == nullptr) {
        throw std::runtime_error("cannot write " + path.string());
    }
    sReader = gettid();
    for (const char* const tag : {"EventTrackJLogger", "jlc_vnd"}) {
        if (__android_log_is_loggable(ANDROID_LOG_INFO, tag, ANDROID_LOG_VERBOSE) == 0) {
            __android_log_set_minimum_priority(ANDROID_LOG_INFO);
        }
    }
    __android_log_set_logger(logToFile);
}

LogcatFile::~LogcatFile() {
    __android_log_set_logger(__android_log_stderr_logger);
    __android_log_set_minimum_priority(mMinimum);
    const std::lock_guard lock(sMutex);
    static_cast<void>(std::fclose(std::exchange(sFile, nullptr)));
}

// The messages are those of the one file that there is.
// NOLINTNEXTLINE(readability-convert-member-functions-to-static)
std::vector<std::string> LogcatFile::takeMessages() {
    const std::lock_guard lock(sMutex);
    return std::exchange(sMessages, {});
}

}  // namespace CameraHost
