#include <dlfcn.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "Check.h"
#include "jlog/track/EventTrackJLogger.h"
#include "LogText.h"
#include "MemoryFile.h"
#include "Text.h"

// The two files in which others leave exception codes, with any content: each code, and each line
// on the Android log, is what a plain reading of the content gives.

namespace JCam::Fuzz {

namespace {

using Utils::JLog::Track::EventTrackJLogger;

constexpr std::string_view kTag = "EventTrackJLogger";

/// A file as the library finds it under a path, where functions in front of libc's put it.
struct LeftFile {
    const char* path;
    MemoryFile content;
    bool exists;
    bool isLockable;
};

struct LeftFiles {
    LeftFile kernel{"/sys/class/jovix_cam/cam_event/hardware_exception", {}, false, true};
    LeftFile hal{"data/vendor/camera_dump/mtkExceptionErrCode.txt", {}, false, true};
    /// The one that was opened last.
    const LeftFile* opened{nullptr};

    LeftFile* find(const char* path) {
        for (LeftFile* file : {&kernel, &hal}) {
            if (strcmp(path, file->path) == 0) {
                return file;
            }
        }
        return nullptr;
    }
};

LeftFiles& files() {
    static LeftFiles sFiles;
    return sFiles;
}

std::string info(const std::string& text) {
    return logLine(ANDROID_LOG_INFO, kTag, text);
}

std::string hex(int number) {
    char text[16];
    snprintf(text, sizeof(text), "0x%x", static_cast<unsigned int>(number));
    return text;
}

/// What a C program sees of `text`.
std::string_view untilNul(std::string_view text) {
    return text.substr(0, text.find('\0'));
}

/// The decimal number at the start of `text`, 0 without one. What no long holds becomes the nearest
/// one that does; the lower half of it counts.
int decimalOf(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) {
        text.remove_prefix(1);
    }
    uint64_t number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    constexpr auto kHighest = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
    const uint64_t limit = negative ? kHighest + 1 : kHighest;
    if (result.ec == std::errc::result_out_of_range || number > limit) {
        number = limit;
    }
    return static_cast<int>(negative ? ~number + 1 : number);
}

/// What fgets makes of `content` in turn, with room for so many characters.
std::vector<std::string_view> pieces(std::string_view content, size_t maxChars, size_t maxPieces) {
    std::vector<std::string_view> result;
    while (!content.empty() && result.size() < maxPieces) {
        std::string_view piece = content.substr(0, maxChars);
        piece = piece.substr(0, std::min(piece.find('\n'), piece.size() - 1) + 1);
        result.push_back(untilNul(piece));
        content.remove_prefix(piece.size());
    }
    return result;
}

/// What a reader has to return, and to log.
struct Answer {
    int code{0};
    std::string lines{};
};

Answer noFile(const LeftFile& file) {
    const std::string text = std::string("readExceptionErrCode ") + file.path + " not exsist";
    return {0, logLine(ANDROID_LOG_ERROR, kTag, text)};
}

Answer kernelAnswer(const LeftFile& file, std::string_view content) {
    if (!file.exists) {
        return noFile(file);
    }
    const std::vector<std::string_view> lines = pieces(content, 31, 1);
    if (!file.isLockable || lines.empty()) {
        return {};
    }
    Answer answer{0, info("kernel camera event " + std::string(lines[0]))};
    std::vector<int> numbers;
    for (const std::string_view field : tokens(lines[0], "_")) {
        numbers.push_back(decimalOf(field));
    }
    if (numbers.empty()) {
        return answer;
    }
    answer.lines += info("kernel camera event type " + hex(numbers[0]));
    if (numbers[0] == 0) {
        return answer;
    }
    if (numbers.size() > 1) {
        answer.lines += info("kernel event camera id " + std::to_string(numbers[1]));
    }
    if (numbers.size() > 2) {
        answer.lines += info("kernel camera exception time " + hex(numbers[2]));
    }
    if (numbers[0] == 1073807361) {
        answer.code = 0x10025001;
    } else if (numbers[0] == 1073807362) {
        answer.code = 0x10025003;
    }
    return answer;
}

Answer halAnswer(const LeftFile& file, std::string_view content) {
    if (!file.exists) {
        return noFile(file);
    }
    if (!file.isLockable) {
        return {};
    }
    Answer answer;
    const std::vector<std::string_view> slots = pieces(content, 23, 32);
    for (const std::string_view slot : slots) {
        answer.lines += info("readExceptionErrCode = " + std::string(slot));
    }
    const std::string first(slots.empty() ? "" : slots[0]);
    answer.code = decimalOf(first);
    answer.lines += info("readExceptionErrCode first errcode = " + hex(answer.code) + ", " + first);
    return answer;
}

/// The answer of the reader that reads both.
Answer bothAnswer(const Answer& kernel, const Answer& hal) {
    const std::string lines = kernel.lines + hal.lines;
    if (kernel.code != 0) {
        return {kernel.code, lines + info("kernel excption error code " + hex(kernel.code))};
    }
    return {hal.code, lines + info("hal excption error code " + hex(hal.code))};
}

/// Puts the files in place, and holds the tracker against the answers.
class Reader {
  public:
    Reader() : mTracker(EventTrackJLogger::getInstance()) { mLog.take({}); }

    void run(std::string_view kernelContent, std::string_view halContent) {
        LeftFile& kernelFile = files().kernel;
        LeftFile& halFile = files().hal;
        const Answer kernel = kernelAnswer(kernelFile, kernelContent);
        const Answer hal = halAnswer(halFile, halContent);
        const Answer both = bothAnswer(kernel, hal);
        kernelFile.content.assign(kernelContent);
        halFile.content.assign(halContent);
        mTracker->clearData();
        mHalExists = halFile.exists;

        expect(mTracker->readKernelExceptionErrCode(), kernel, "readKernelExceptionErrCode");
        check(halFile.exists == mHalExists, "the kernel's reader leaves the other file alone");
        expect(mTracker->readHalExceptionErrCode(), hal, "readHalExceptionErrCode");
        consume(halFile);
        expect(mTracker->readExceptionErrCode(), both, "readExceptionErrCode");
        consume(halFile);
        expect(mTracker->readExceptionErrCode(), {}, "only the first call reads");
        check(halFile.exists == mHalExists, "a call that does not read deletes nothing");
        mTracker->clearData();
        expect(mTracker->readExceptionErrCode(), both, "readExceptionErrCode after clearData");
        consume(halFile);
        checkEqual(kernelFile.content.content(), kernelContent, "the kernel's file");
    }

  private:
    void expect(int code, const Answer& answer, const char* what) {
        checkEqual(mLog.take({kTag}), answer.lines, what);
        checkEqual(hex(code), hex(answer.code), what);
    }

    /// The file is gone; the next call is to find it again.
    void consume(LeftFile& file) const {
        check(!file.exists, "the file is deleted");
        file.exists = mHalExists;
    }

    LogText mLog;
    EventTrackJLogger* mTracker;
    bool mHalExists{false};
};

}  // namespace

}  // namespace JCam::Fuzz

using JCam::Fuzz::files;

// Visible to the library, which is another shared object.
#pragma GCC visibility push(default)

extern "C" {

FILE* fopen(const char* path, const char* mode) {
    using Function = FILE*(const char*, const char*);
    static auto* const sNext = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "fopen"));
    const JCam::Fuzz::LeftFile* file = files().find(path);
    if (file == nullptr) {
        return sNext(path, mode);
    }
    if (!file->exists) {
        errno = ENOENT;
        return nullptr;
    }
    files().opened = file;
    return sNext(file->content.path(), mode);
}

int flock(int fd, int operation) noexcept {
    const JCam::Fuzz::LeftFile* file = files().opened;
    if (operation == LOCK_EX && file != nullptr && !file->isLockable) {
        errno = ENOLCK;
        return -1;
    }
    return static_cast<int>(syscall(SYS_flock, fd, operation));
}

int remove(const char* path) noexcept {
    JCam::Fuzz::LeftFile* file = files().find(path);
    if (file == nullptr) {
        return unlink(path);
    }
    if (!file->exists) {
        errno = ENOENT;
        return -1;
    }
    file->exists = false;
    return 0;
}

}  // extern "C"

#pragma GCC visibility pop

/// A byte of flags, one with the length of the kernel's file, and the two contents.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static JCam::Fuzz::Reader sReader;
    if (size < 2) {
        return 0;
    }
    const std::string_view contents(reinterpret_cast<const char*>(data + 2), size - 2);
    const size_t kernelBytes = std::min<size_t>(data[1], contents.size());
    files().kernel.exists = (data[0] & 1) == 0;
    files().hal.exists = (data[0] & 2) == 0;
    files().kernel.isLockable = (data[0] & 4) == 0;
    files().hal.isLockable = (data[0] & 8) == 0;
    sReader.run(contents.substr(0, kernelBytes), contents.substr(kernelBytes));
    return 0;
}
