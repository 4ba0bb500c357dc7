// Also runs after a fatal signal, by the rules of CrashHandler.cpp: a writer that makeSignalSafe()
// has prepared, and that is silent, gets to nothing that allocates, locks or waits.

#include "jlog/file/FileJLogWriter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>

#include <android/log.h>

#include "jlog/file/CrashGate.h"
#include "jlog/file/DateText.h"
#include "jlog/file/FileLogTag.h"
#include "jlog/file/LocalTime.h"
#include "jlog/file/LogFolder.h"
#include "jlog/file/SignalSafeFormat.h"
#include "jlog/file/StorageCleaner.h"

namespace JCam::Utils::JLog::File {

namespace {

constexpr char kFallbackFolder[] = "/data/vendor";
constexpr char kContinuedMark[] = "-- CONTINUED --\n";
constexpr mode_t kFileMode = 0644;

/// A second for the date text to start with. No calendar reaches it: the text is that of a time
/// without a local form.
constexpr time_t kNoLocalTime = std::numeric_limits<time_t>::min();

}  // namespace

FileJLogWriter::FileJLogWriter()
        : mPid(getpid()),
          mCleaner(new (std::nothrow) StorageCleaner),
          mRenderer(mPid),
          mDateSecond(kNoLocalTime) {
    emptyBuffer();
    setDateText({});
}

FileJLogWriter::~FileJLogWriter() {
    close();
    releaseDescriptor();
}

void FileJLogWriter::makeSignalSafe(clockid_t recordClock) {
    mSignalSafe = true;
    mRecordClock = recordClock;
    reserveDescriptor();
}

void FileJLogWriter::reserveDescriptor() {
    if (mSignalSafe && mReservedFd < 0) {
        mReservedFd = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    }
}

void FileJLogWriter::releaseDescriptor() {
    if (mReservedFd >= 0) {
        ::close(mReservedFd);
        mReservedFd = -1;
    }
}

bool FileJLogWriter::open(bool newSeries, const char* namePrefix, bool silent) {
    if (newSeries) {
        startSeries(namePrefix, silent);
    }
    releaseDescriptor();
    reserveSpace(mSilent);
    return openFile();
}

bool FileJLogWriter::openFile() {
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
        reserveDescriptor();
        if (!mSilent) {
            __android_log_print(ANDROID_LOG_ERROR, kFileLogTag, "%s", kNoFileText);
        }
        return false;
    }
    mFilePath = path;
    if (!mSilent) {
        __android_log_print(ANDROID_LOG_INFO, kFileLogTag, "Write ulog to %s", path.c_str());
    }
    setIdentity(mFd);
    mDeletionTold = false;
    mFileBytes = 0;
    mReportedLoss = kNoLoss;
    emptyBuffer();
    ++mFileIndex;
    return true;
}

void FileJLogWriter::startSeries(const char* namePrefix, bool silent) {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    char stamp[kSeriesStampBytes];
    formatSeriesStamp(stamp, toLocalTime(now.tv_sec, CLOCK_REALTIME));
    mTimeStamp = stamp;
    mFileIndex = 1;
    setIdentity(-1);
    if (namePrefix != nullptr) {
        mNamePrefix = namePrefix;
    }
    mSilent = silent;
}

int FileJLogWriter::createFile(PathText& path) {
    const uint32_t wantedIndex = mFileIndex;
    for (;;) {
        formatPath(path, "%s/cam_jlog_%d_%s%s_%02u.txt", mFolder.c_str(), mPid, mNamePrefix.c_str(),
                   mTimeStamp.c_str(), mFileIndex);
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
    flush(false);
    closeDescriptor();
    setIdentity(-1);
}

void FileJLogWriter::closeDescriptor() {
    ::close(mFd);
    mFd = -1;
    reserveDescriptor();
}

void FileJLogWriter::setIdentity(int fd) {
    struct stat status = {};
    if (fd >= 0) {
        static_cast<void>(fstat(fd, &status));
    }
    mDevice.store(status.st_dev, std::memory_order_relaxed);
    mInode.store(status.st_ino, std::memory_order_relaxed);
}

FileIdentity FileJLogWriter::identity() const {
    return {mDevice.load(std::memory_order_relaxed), mInode.load(std::memory_order_relaxed)};
}

void FileJLogWriter::flush(bool sync) {
    if (mEnd > buffer() && mFd >= 0) {
        if (!writeBuffered()) {
            reportLoss();
        }
        if (sync) {
            fsync(mFd);
        }
    }
    mFileBytes += bufferedBytes();
    emptyBuffer();
}

void FileJLogWriter::emptyBuffer() {
    mEnd = buffer();
    mBegin = buffer();
    setLimit();
}

void FileJLogWriter::setLimit() {
    const uint64_t untilFull = kMaxFileBytes + 1 - std::min(mFileBytes, kMaxFileBytes + 1);
    mLimit = buffer() + std::min<uint64_t>(kFlushMark, untilFull);
}

bool FileJLogWriter::writeBuffered() const {
    return writeOut(mBegin, static_cast<size_t>(mEnd - mBegin));
}

void FileJLogWriter::reportLoss() {
    // Not every one: on a full disk each write would have a line. The end of the room, where a part
    // is still taken, is no news once something was said.
    if (mSilent || mReportedLoss == errno || (errno == 0 && mReportedLoss != kNoLoss)) {
        return;
    }
    mReportedLoss = errno;
    __android_log_print(ANDROID_LOG_ERROR, kFileLogTag,
                        "FileJLogWriter: write failed %s, errno = %d", mFilePath.c_str(), errno);
}

void FileJLogWriter::rescue() const {
    if (bufferedBytes() > 0 && mFd >= 0) {
        static_cast<void>(writeBuffered());
    }
}

bool FileJLogWriter::writeOut(const char* bytes, size_t count) const {
    // One write(2) call, by design: a failed or short write loses text rather than time, since
    // whoever waits for this thread is a camera.
    errno = 0;
    ssize_t written;
    if (mSignalSafe) {
        CrashGate::reportProgress();
        written = write(mFd, bytes, count);
    } else {
        const CrashGate::Passage passage;
        written = write(mFd, bytes, count);
    }
    return written == static_cast<ssize_t>(count);
}

void FileJLogWriter::reserveSpace(bool silent) const {
    if (mCleaner != nullptr) {
        mCleaner->freeUpTo(kMinFreeBytes, mFolder.c_str(), kFallbackFolder, silent,
                           {identity(), mOthersFile});
    }
}

void FileJLogWriter::spareFileOf(const FileJLogWriter* other) {
    mOthersFile = other != nullptr ? other->identity() : FileIdentity{};
}

void FileJLogWriter::leaveDeletedFile() {
    struct stat status = {};
    if (mFd < 0 || fstat(mFd, &status) != 0 || status.st_nlink > 0) {
        return;
    }
    if (!mSilent && !mDeletionTold) {
        __android_log_print(ANDROID_LOG_WARN, kFileLogTag, "FileJLogWriter: file was deleted %s",
                            mFilePath.c_str());
    }
    mDeletionTold = true;
    makeLogFolder(mFolder.c_str());
    const int deleted = mFd;
    const PathText folder = mFolder;
    // Without a clean-up. It might delete the open file of another process, which would do the same
    // when it goes on; and the space of the deleted file comes back when that is closed.
    if (openFile()) {
        ::close(deleted);
        writeContinuedMark();
    } else {
        mFd = deleted;
        mFolder = folder;
    }
}

tm FileJLogWriter::toLocalTime(time_t seconds, clockid_t clock) const {
    return mSignalSafe ? shiftedTime(seconds, cachedUtcOffset(clock)) : localTime(seconds);
}

void FileJLogWriter::writeString(const char* format, ...) {
    const size_t room = kWriteBufferBytes - bufferedBytes();
    va_list arguments;
    va_start(arguments, format);
    const size_t length =
            mSignalSafe
                    ? vformatText(mEnd, room, format, arguments)
                    : static_cast<size_t>(std::max(vsnprintf(mEnd, room, format, arguments), 0));
    va_end(arguments);
    advanceTo(mEnd + std::min(length, room - 1));
    heedLimit();
}

void FileJLogWriter::heedLimit() {
    if (bufferedBytes() >= kFlushMark) {
        flush(false);
    }
    if (mFileBytes + bufferedBytes() > kMaxFileBytes) {
        rotate();
    }
}

void FileJLogWriter::rotate() {
    // Not close(): the file that leads up to the next one is to be spared until that is open.
    if (mFd >= 0) {
        flush(false);
        closeDescriptor();
    }
    if (open(false, "", false)) {
        writeContinuedMark();
    }
}

void FileJLogWriter::writeContinuedMark() {
    // Ahead of whatever is buffered, and not counted against the new file.
    if (!writeOut(kContinuedMark, sizeof(kContinuedMark) - 1)) {
        reportLoss();
    }
}

}  // namespace JCam::Utils::JLog::File
