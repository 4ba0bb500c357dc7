#include <sys/file.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <android/log.h>

#include "jlog/track/ErrorCode.h"
#include "jlog/track/EventTrackJLogger.h"
#include "jlog/track/ScopedFile.h"
#include "jlog/track/TrackLogTag.h"

// The exception codes that the kernel and the vendor camera stack leave in files.

namespace JCam::Utils::JLog::Track {

namespace {

constexpr char kKernelFile[] = "/sys/class/jovix_cam/cam_event/hardware_exception";
/// Relative to the working directory, like the path that the writer of the file uses.
constexpr char kHalFile[] = "data/vendor/camera_dump/mtkExceptionErrCode.txt";

/// Including the NUL.
constexpr int kKernelLineBytes = 32;
/// A line of the other file, or a piece of a longer one, including the NUL; and how many are read.
constexpr int kHalSlotBytes = 24;
constexpr int kHalSlots = 32;

/// The error code of a kernel event. These codes have no row in the table of feedback: they are
/// handed out, but never sent to the node.
struct KernelEvent {
    int type;
    int32_t errCode;
};
constexpr KernelEvent kKernelEvents[] = {
        {0x40010001, makeErrorCode(0, 1)},
        {0x40010002, makeErrorCode(0, 3)},
};

/// Holds an exclusive flock() on a file for a scope. The constructor waits for it.
class FileLock {
  public:
    explicit FileLock(const ScopedFile& file) : mFd(file.fd()), mHeld(acquire(mFd)) {}
    ~FileLock() {
        if (mHeld) {
            flock(mFd, LOCK_UN);
        }
    }
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    [[nodiscard]] bool isHeld() const { return mHeld; }

  private:
    static bool acquire(int fd) {
        int result;
        do {
            result = flock(fd, LOCK_EX);
        } while (result != 0 && errno == EINTR);  // a signal must not lose a code
        return result == 0;
    }

    int mFd;
    bool mHeld;
};

void logNoFile(const char* path) {
    __android_log_print(ANDROID_LOG_ERROR, kTrackLogTag, "readExceptionErrCode %s not exsist",
                        path);
}

/// Like atoi, but defined for every number.
int parseDecimal(const char* text) {
    return static_cast<int>(strtol(text, nullptr, 10));
}

/// 0 for an unknown event.
int toErrorCode(int eventType) {
    for (const KernelEvent& event : kKernelEvents) {
        if (event.type == eventType) {
            return event.errCode;
        }
    }
    return 0;
}

/// The code of a line "EVENT_CAMERA_TIME", whose last fields may be missing. Overwrites the line.
int parseKernelLine(char* line) {
    __android_log_print(ANDROID_LOG_INFO, kTrackLogTag, "kernel camera event %s", line);
    char* rest = nullptr;
    const char* field = strtok_r(line, "_", &rest);
    if (field == nullptr) {
        return 0;
    }
    const int eventType = parseDecimal(field);
    __android_log_print(ANDROID_LOG_INFO, kTrackLogTag, "kernel camera event type 0x%x",
                        static_cast<unsigned int>(eventType));
    if (eventType == 0) {
        return 0;
    }
    field = strtok_r(nullptr, "_", &rest);
    if (field != nullptr) {
        __android_log_print(ANDROID_LOG_INFO, kTrackLogTag, "kernel event camera id %d",
                            parseDecimal(field));
        field = strtok_r(nullptr, "_", &rest);
    }
    if (field != nullptr) {
        __android_log_print(ANDROID_LOG_INFO, kTrackLogTag, "kernel camera exception time 0x%x",
                            static_cast<unsigned int>(parseDecimal(field)));
    }
    return toErrorCode(eventType);
}

/// The number at the start of the file. Logs every slot.
int readHalCodes(FILE* stream) {
    char first[kHalSlotBytes] = {};
    char slot[kHalSlotBytes] = {};
    for (int i = 0; i < kHalSlots && fgets(slot, sizeof(slot), stream) != nullptr; i++) {
        __android_log_print(ANDROID_LOG_INFO, kTrackLogTag, "readExceptionErrCode = %s", slot);
        if (i == 0) {
            memcpy(first, slot, sizeof(first));
        }
    }
    const int code = parseDecimal(first);
    __android_log_print(ANDROID_LOG_INFO, kTrackLogTag,
                        "readExceptionErrCode first errcode = 0x%x, %s",
                        static_cast<unsigned int>(code), first);
    return code;
}

}  // namespace

// NOLINTBEGIN(readability-convert-member-functions-to-static): callers have an instance

int EventTrackJLogger::readKernelExceptionErrCode() {
    const ScopedFile file(kKernelFile, "re");
    if (!file.isOpen()) {
        logNoFile(kKernelFile);
        return 0;
    }
    const FileLock lock(file);
    char line[kKernelLineBytes] = {};
    if (!lock.isHeld() || fgets(line, sizeof(line), file.stream()) == nullptr) {
        return 0;
    }
    return parseKernelLine(line);
}

int EventTrackJLogger::readHalExceptionErrCode() {
    int code = 0;
    {
        const ScopedFile file(kHalFile, "re");
        if (!file.isOpen()) {
            logNoFile(kHalFile);
            return 0;
        }
        const FileLock lock(file);
        if (lock.isHeld()) {
            code = readHalCodes(file.stream());
        }
    }
    // Whoever opens the file consumes it, even if it could not be locked.
    if (remove(kHalFile) != 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTrackLogTag, "cannot remove %s, errno %d", kHalFile,
                            errno);
    }
    return code;
}

// NOLINTEND(readability-convert-member-functions-to-static)

}  // namespace JCam::Utils::JLog::Track
