// Also runs after a fatal signal, by the rules of CrashHandler.cpp: a silent series that
// makeSignalSafe() has prepared allocates, locks and waits for nothing.

#include "jlog/file/FileSeries.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>

#include <android/log.h>

#include "jlog/file/CrashGate.h"
#include "jlog/file/FileJLogWriter.h"
#include "jlog/file/FileLogTag.h"
#include "jlog/file/LocalTime.h"
#include "jlog/file/LogFolder.h"
#include "jlog/file/SignalSafeFormat.h"
#include "jlog/file/StorageCleaner.h"

namespace JCam::Utils::JLog::File {

namespace {

constexpr char kFallbackFolder[] = "/data/vendor";
constexpr mode_t kFileMode = 0644;

}  // namespace

FileSeries::FileSeries(int32_t& fd, PathText& folder, PathText& path, pid_t pid)
        : mFd(fd),
          mFolder(folder),
          mPath(path),
          mPid(pid),
          mCleaner(new (std::nothrow) StorageCleaner) {}

FileSeries::~FileSeries() {
    releaseDescriptor();
}

void FileSeries::makeSignalSafe() {
    mSignalSafe = true;
    reserveDescriptor();
}

void FileSeries::reserveDescriptor() {
    if (mSignalSafe && mReservedFd < 0) {
        mReservedFd = open("/dev/null", O_WRONLY | O_CLOEXEC);
    }
}

void FileSeries::releaseDescriptor() {
    if (mReservedFd >= 0) {
        ::close(mReservedFd);
        mReservedFd = -1;
    }
}

void FileSeries::begin(const char* namePrefix, bool silent) {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    const tm local =
            mSignalSafe ? cachedLocalTime(now.tv_sec, CLOCK_REALTIME) : localTime(now.tv_sec);
    formatText(mTimeStamp, sizeof(mTimeStamp), "%d_%02d%02d_%02d%02d%02d", local.tm_year + 1900,
               local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    mIndex = 1;
    mHasLostText = false;
    setIdentity(-1);
    if (namePrefix != nullptr) {
        formatText(mNamePrefix, sizeof(mNamePrefix), "%s", namePrefix);
    }
    mSilent = silent;
}

bool FileSeries::openNext() {
    if (mFd >= 0) {
        closeDescriptor();
    }
    releaseDescriptor();
    reserveSpace(mSilent);
    return openFile();
}

bool FileSeries::openFile() {
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
    mPath = path.view();
    if (!mSilent) {
        __android_log_print(ANDROID_LOG_INFO, kFileLogTag, "Write ulog to %s", path.c_str());
    }
    setIdentity(mFd);
    mDeletionTold = false;
    mReportedLoss = kNoLoss;
    ++mIndex;
    return true;
}

int FileSeries::createFile(PathText& path) {
    const uint32_t wantedIndex = mIndex;
    for (;;) {
        formatPath(path, "%s/cam_jlog_%d_%s%s_%02u.txt", mFolder.c_str(), mPid, mNamePrefix,
                   mTimeStamp, mIndex);
        // Exclusive: an earlier series of the same second has the same names and must not be
        // overwritten. It also keeps a planted symbolic link from being followed.
        const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kFileMode);
        if (fd >= 0) {
            return fd;
        }
        if (errno != EEXIST) {
            mIndex = wantedIndex;
            return -1;
        }
        ++mIndex;
    }
}

void FileSeries::close() {
    closeDescriptor();
    setIdentity(-1);
}

void FileSeries::closeDescriptor() {
    ::close(mFd);
    mFd = -1;
    reserveDescriptor();
}

void FileSeries::setIdentity(int fd) {
    struct stat status = {};
    if (fd >= 0) {
        static_cast<void>(fstat(fd, &status));
    }
    mDevice.store(status.st_dev, std::memory_order_relaxed);
    mInode.store(status.st_ino, std::memory_order_relaxed);
}

FileIdentity FileSeries::identity() const {
    return {mDevice.load(std::memory_order_relaxed), mInode.load(std::memory_order_relaxed)};
}

bool FileSeries::replaceDeleted() {
    struct stat status = {};
    if (mFd < 0 || fstat(mFd, &status) != 0 || status.st_nlink > 0) {
        return false;
    }
    if (!mSilent && !mDeletionTold) {
        __android_log_print(ANDROID_LOG_WARN, kFileLogTag, "FileJLogWriter: file was deleted %s",
                            mPath.c_str());
    }
    mDeletionTold = true;
    makeLogFolder(mFolder.c_str());
    const int deleted = mFd;
    const PathText folder = mFolder;
    // Without a clean-up. It might delete the open file of another process, which would do the same
    // when it goes on; and the space of the deleted file comes back when that is closed.
    if (!openFile()) {
        mFd = deleted;
        mFolder = folder;
        return false;
    }
    ::close(deleted);
    return true;
}

void FileSeries::reserveSpace(bool silent) const {
    if (mCleaner != nullptr) {
        mCleaner->freeUpTo(FileJLogWriter::kMinFreeBytes, mFolder.c_str(), kFallbackFolder, silent,
                           {identity(), mOthersFile});
    }
}

void FileSeries::spareFileOf(const FileSeries* other) {
    mOthersFile = other != nullptr ? other->identity() : FileIdentity{};
}

void FileSeries::write(std::string_view text) {
    if (tryWrite(text)) {
        return;
    }
    mHasLostText = true;
    if (mSilent) {
        return;
    }
    // Not every loss: on a full disk each write would have a line. A part that is still taken at
    // the end of the room is no news once something was logged.
    if (mReportedLoss == errno || (errno == 0 && mReportedLoss != kNoLoss)) {
        return;
    }
    mReportedLoss = errno;
    __android_log_print(ANDROID_LOG_ERROR, kFileLogTag,
                        "FileJLogWriter: write failed %s, errno = %d", mPath.c_str(), errno);
}

void FileSeries::writeQuietly(std::string_view text) const {
    static_cast<void>(tryWrite(text));
}

bool FileSeries::tryWrite(std::string_view text) const {
    // One write(2), by design: a failed or short write loses text rather than time, since a camera
    // may be waiting for this thread.
    errno = 0;
    ssize_t written;
    if (mSignalSafe) {
        CrashGate::reportProgress();
        written = ::write(mFd, text.data(), text.size());
    } else {
        const CrashGate::Passage passage;
        written = ::write(mFd, text.data(), text.size());
    }
    return written == static_cast<ssize_t>(text.size());
}

void FileSeries::sync() const {
    fsync(mFd);
}

}  // namespace JCam::Utils::JLog::File
