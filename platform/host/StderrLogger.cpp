#include <android/log.h>

#include <sys/uio.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <ctime>

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

#include "ErrnoKeeper.h"

// Prints in logcat's threadtime layout, local time:
//     MM-DD hh:mm:ss.mmm PPPPP TTTTT L TAG     : text
// Each line of a text gets the head, as in logcat. An empty text, which logcat leaves out, gets a
// line too.

namespace {

constexpr std::string_view kLetters = "??VDIWEFS";  // by android_LogPriority
static_assert(kLetters.size() == ANDROID_LOG_SILENT + 1);

constexpr std::string_view kTagPadding = "        : ";  // after an empty tag
constexpr size_t kTagWidth = 8;
constexpr size_t kHeadBytes = 64;  // up to the tag; the longest ids leave 20 of them free

char letterOf(int32_t priority) {
    const auto index = static_cast<size_t>(priority);
    return index < kLetters.size() ? kLetters[index] : '?';
}

std::string_view formatHead(std::span<char, kHeadBytes> head, int32_t priority) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    const size_t dateLength = std::strftime(head.data(), head.size(), "%m-%d %H:%M:%S", &local);
    const int restLength = std::snprintf(
            head.data() + dateLength, head.size() - dateLength, ".%03d %5d %5d %c ",
            static_cast<int>(now.tv_nsec / 1'000'000), getpid(), gettid(), letterOf(priority));
    return {head.data(), dateLength + static_cast<size_t>(restLength)};
}

iovec part(std::string_view text) {
    return {const_cast<char*>(text.data()), text.size()};  // writev only reads it
}

/// Removes the first `written` bytes of `parts`.
std::span<iovec> dropWritten(std::span<iovec> parts, size_t written) {
    while (!parts.empty() && written >= parts.front().iov_len) {
        written -= parts.front().iov_len;
        parts = parts.subspan(1);
    }
    if (!parts.empty()) {
        parts.front().iov_base = static_cast<char*>(parts.front().iov_base) + written;
        parts.front().iov_len -= written;
    }
    return parts;
}

/// One system call but after a short write, so that lines of several threads or processes do not
/// mix. writev needs no buffer for the whole line, so the text has no limit.
void writeLine(std::string_view head, std::string_view tag, std::string_view text) {
    const std::string_view padding = kTagPadding.substr(std::min(tag.size(), kTagWidth));
    std::array<iovec, 5> line{part(head), part(tag), part(padding), part(text), part("\n")};
    std::span<iovec> rest = line;
    while (!rest.empty()) {
        const ssize_t written = writev(STDERR_FILENO, rest.data(), static_cast<int>(rest.size()));
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written < 0) {
            return;  // nowhere to report it
        }
        rest = dropWritten(rest, static_cast<size_t>(written));
    }
}

}  // namespace

void __android_log_stderr_logger(const __android_log_message* log_message) {
    const JCam::Platform::ErrnoKeeper errnoKeeper;
    std::array<char, kHeadBytes> headArea{};
    const std::string_view head = formatHead(headArea, log_message->priority);
    std::string_view text = log_message->message;
    do {
        const size_t length = std::min(text.find('\n'), text.size());
        writeLine(head, log_message->tag, text.substr(0, length));
        text.remove_prefix(std::min(length + 1, text.size()));
    } while (!text.empty());
}
