#include "jlog/file/FileJLogWriter.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>

#include <android/log.h>

#include "jlog/file/DateText.h"
#include "jlog/file/FileLogTag.h"
#include "jlog/file/LineRenderer.h"
#include "jlog/file/StorageCleaner.h"

namespace JCam::Utils::JLog::File {

namespace {

constexpr char kFallbackFolder[] = "/data/vendor";
constexpr char kContinuedMark[] = "-- CONTINUED --\n";
constexpr mode_t kFileMode = 0644;

/// A second for the date text to start with. No calendar reaches it, so its text does not depend on
/// the time zone that is set later.
constexpr time_t kNoLocalTime = std::numeric_limits<time_t>::min();

/// One write(2) call, by design: a failed or short write loses text rather than time, since whoever
/// waits for this thread is a camera.
void writeOnce(int fd, const char* bytes, size_t count) {
    [[maybe_unused]] const ssize_t written = write(fd, bytes, count);
}

}  // namespace

FileJLogWriter::FileJLogWriter()
        : mPid(getpid()),
          mPidChars(static_cast<uint8_t>(renderPid(mPidText, mPid))),
          mDateSecond(kNoLocalTime) {
    static_assert(sizeof(mPidText) == kPidTextBytes && sizeof(mDateText) == kDateChars);
    static_assert(kFlushMark + kDateChars < kWriteBufferBytes);
    formatDate(mDateText, mDateSecond);
}

FileJLogWriter::~FileJLogWriter() {
    close();
}

bool FileJLogWriter::open(bool newSeries, const char* namePrefix, bool silent) {
    if (newSeries) {
        startSeries(namePrefix, silent);
    }
    reserveSpace(mSilent);
    PathText path;
    mFd = createFile(path);
    if (mFd < 0) {
        if (!mSilent) {
            __android_log_print(ANDROID_LOG_ERROR, kFileLogTag,
                                "FileJLogWriter: file open failed %s", path.c_str());
        }
        mFolder = kFallbackFolder;
        mFd = createFile(path);
    }
    if (mFd < 0) {
        if (!mSilent) {
            __android_log_print(ANDROID_LOG_ERROR, kFileLogTag, "%s", kNoFileText);
        }
        return false;
    }
    mFilePath = path;
    if (!mSilent) {
        __android_log_print(ANDROID_LOG_INFO, kFileLogTag, "Write ulog to %s", path.c_str());
    }
    mBufferedBytes = 0;
    mFileBytes = 0;
    ++mFileIndex;
    return true;
}

void FileJLogWriter::startSeries(const char* namePrefix, bool silent) {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local = {};
    if (localtime_r(&now.tv_sec, &local) == nullptr) {
        local = {};
    }
    if (strftime(mTimeStamp.data(), decltype(mTimeStamp)::size(), "%Y_%m%d_%H%M%S", &local) == 0) {
        mTimeStamp = "";
        __android_log_print(ANDROID_LOG_ERROR, kFileLogTag, "strftime failed");
    }
    mFileIndex = 1;
    if (namePrefix != nullptr) {
        mNamePrefix = namePrefix;
    }
    mSilent = silent;
}

int FileJLogWriter::createFile(PathText& path) {
    const uint32_t wantedIndex = mFileIndex;
    for (;;) {
        const int length = snprintf(path.data(), PathText::size(), "%s/cam_jlog_%d_%s%s_%02u.txt",
                                    mFolder.c_str(), mPid, mNamePrefix.c_str(), mTimeStamp.c_str(),
                                    mFileIndex);
        if (length < 0 || static_cast<size_t>(length) >= PathText::size()) {
            path = "";  // a cut path would name another file
        }
        // Exclusive: an earlier series of the same second has the same names and must not be
        // overwritten. It also keeps a planted symbolic link from being followed.
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kFileMode);
        if (fd >= 0) {
            return fd;
        }
        if (errno != EEXIST) {
            mFileIndex = wantedIndex;
            return -1;
        }
        ++mFileIndex;
    }
}

void FileJLogWriter::close() {
    if (mFd < 0) {
        return;
    }
    writeBuffered();
    mBufferedBytes = 0;
    ::close(mFd);
    mFd = -1;
}

void FileJLogWriter::flush(bool sync) {
    if (mBufferedBytes > 0 && mFd >= 0) {
        writeBuffered();
        if (sync) {
            fsync(mFd);
        }
    }
    mBufferedBytes = 0;
}

void FileJLogWriter::writeBuffered() {
    if (mBufferedBytes > 0) {
        writeOnce(mFd, mBuffer, mBufferedBytes);
    }
}

void FileJLogWriter::reserveSpace(bool silent) const {
    StorageCleaner(mFolder.c_str(), kFallbackFolder, silent).freeUpTo(kMinFreeBytes);
}

void FileJLogWriter::onLogEnter(const LogEnterExit* record) {
    appendEnterExit(*record, Direction::ENTER);
}

void FileJLogWriter::onLogExit(const LogEnterExit* record) {
    appendEnterExit(*record, Direction::EXIT);
}

void FileJLogWriter::appendEnterExit(const LogEnterExit& record, Direction direction) {
    char scratch[kMaxLineBytes];
    appendDate(record.header.timestamp);
    char* line = lineSpace(scratch);
    appendLine(line, renderEnterExit(line, {mPidText, mPidChars}, record, direction));
}

void FileJLogWriter::onLogDetails(const LogDetails* record) {
    char scratch[kMaxLineBytes];
    appendDate(record->header.timestamp);
    char* line = lineSpace(scratch);
    appendLine(line, renderDetails(line, {mPidText, mPidChars}, *record));
}

void FileJLogWriter::writeString(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(writePtr(), room(), format, arguments);
    va_end(arguments);
    if (length > 0) {
        countAppended(std::min(static_cast<size_t>(length), room() - 1));
    }
    rotateIfLarge();
}

void FileJLogWriter::appendDate(const timespec& timestamp) {
    if (timestamp.tv_sec != mDateSecond) {
        formatDate(mDateText, timestamp.tv_sec);
        mDateSecond = timestamp.tv_sec;
    }
    memcpy(writePtr(), mDateText, sizeof(mDateText));
    countAppended(sizeof(mDateText));
}

char* FileJLogWriter::lineSpace(char* scratch) {
    return room() > kMaxLineBytes ? writePtr() : scratch;
}

void FileJLogWriter::appendLine(const char* line, const char* end) {
    auto bytes = static_cast<size_t>(end - line);
    if (line != writePtr()) {
        // One byte of room stays free, as it does for a formatter that terminates its text.
        bytes = std::min(bytes, room() - 1);
        memcpy(writePtr(), line, bytes);
    }
    countAppended(bytes);
    rotateIfLarge();
}

void FileJLogWriter::countAppended(size_t bytes) {
    mBufferedBytes += bytes;
    if (mBufferedBytes >= kFlushMark) {
        flush(false);
    }
    mFileBytes += bytes;
}

void FileJLogWriter::rotate() {
    close();
    if (open(false, "", false)) {
        // Ahead of whatever is buffered, and not counted against the new file.
        writeOnce(mFd, kContinuedMark, sizeof(kContinuedMark) - 1);
    }
}

}  // namespace JCam::Utils::JLog::File
