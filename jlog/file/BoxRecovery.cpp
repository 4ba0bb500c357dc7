#include "jlog/file/BoxRecovery.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <string_view>

#include <android/log.h>

#include "jlog/file/BlackBox.h"
#include "jlog/file/FileLogTag.h"
#include "jlog/file/SignalSafeFormat.h"

namespace JCam::Utils::JLog::File {

namespace {

bool isBoxName(std::string_view name) {
    return name.starts_with("cam_jlog_") && name.ends_with(".box");
}

void leaveAlone(const PathText& path, const char* reason) {
    __android_log_print(ANDROID_LOG_ERROR, kFileLogTag, "Black box left alone: %s (%s)",
                        path.c_str(), reason);
}

std::string_view nameOf(const PathText& path) {
    return path.view().substr(path.view().rfind('/') + 1);
}

/// A descriptor of a box that is nobody's any more; -1 if it is not. A reason to tell goes to
/// `problem`.
int openIfLeft(const PathText& path, const char*& problem) {
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0) {
        problem = errno != ENOENT ? strerror(errno) : nullptr;  // recovered by another process
        return -1;
    }
    if (!S_ISREG(status.st_mode) || status.st_uid != geteuid() || status.st_nlink != 1) {
        problem = "not a file of this user alone";
        return -1;
    }
    const int fd = open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        problem = strerror(errno);
        return -1;
    }
    const bool isLocked = lockBox(fd);
    // In use; otherwise there can be no lock.
    problem = !isLocked && errno != EAGAIN ? strerror(errno) : nullptr;
    if (isLocked && fstat(fd, &status) == 0 && status.st_nlink > 0) {
        return fd;  // and no other process has recovered it meanwhile
    }
    close(fd);
    return -1;
}

}  // namespace

std::atomic<bool> BoxRecovery::sIsBusy{false};

BoxRecovery::BoxRecovery(const char* folder, const FileJLogWriter& logWriter)
        : mLogWriter(logWriter),
          mIsOnlyOne(!sIsBusy.exchange(true, std::memory_order_acquire)),
          mFolder(mIsOnlyOne ? opendir(folder) : nullptr) {
    mPath = folder;
    if (mIsOnlyOne && mFolder == nullptr) {
        leaveAlone(mPath, strerror(errno));
    }
}

BoxRecovery::~BoxRecovery() {
    drop();
    if (mFolder != nullptr) {
        closedir(mFolder);
    }
    if (mBlock != nullptr) {
        munmap(mBlock, kBufferBytes);
    }
    if (mIsOnlyOne) {
        sIsBusy.store(false, std::memory_order_release);
    }
}

bool BoxRecovery::step() {
    if (mFound != nullptr) {
        if (mFound->nextBlock == mFound->reader.blocks()) {
            finish();
            drop();
        } else if (!recoverBlock()) {
            drop();
        }
        return true;
    }
    const dirent* entry = mFolder != nullptr ? readdir(mFolder) : nullptr;
    // The own one is not even opened: to close it would end its lock.
    if (entry != nullptr && isBoxName(entry->d_name) && !BlackBox::isOwnName(entry->d_name)) {
        consider(entry->d_name);
    }
    return entry != nullptr;
}

void BoxRecovery::consider(const char* name) {
    PathText path;
    formatPath(path, "%s/%s", mPath.c_str(), name);
    const char* problem = nullptr;
    const int fd = openIfLeft(path, problem);
    if (fd < 0) {
        if (problem != nullptr) {
            leaveAlone(path, problem);
        }
        return;
    }
    if (mBlock == nullptr) {
        void* memory = mmap(nullptr, kBufferBytes, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        mBlock = memory != MAP_FAILED ? static_cast<char*>(memory) : nullptr;
    }
    if (mBlock != nullptr) {
        mFound.reset(new (std::nothrow) Found(fd, path));
    }
    if (mFound == nullptr) {
        leaveAlone(path, "without memory");
        close(fd);
    } else if (mFound->reader.isUnborn()) {
        // Its process ended while it made the box.
        unlink(path.c_str());
        drop();
    } else if (mFound->reader.problem() != nullptr) {
        leaveAlone(path, mFound->reader.problem());
        drop();
    }
}

bool BoxRecovery::recoverBlock() {
    const uint32_t complete = mFound->reader.readBlock(mFound->nextBlock++, mBlock);
    if (mFound->reader.problem() != nullptr) {
        leaveAlone(mFound->path, mFound->reader.problem());
        return false;
    }
    if (complete == 0) {
        return true;
    }
    if (mFound->records == 0 && !openFile()) {
        leaveAlone(mFound->path, "there is no file for its records");
        return false;
    }
    mFound->records += complete;
    mFound->writer->appendRecords(mBlock, mBlock + kBufferBytes);
    mFound->writer->flush(false);
    return true;
}

bool BoxRecovery::openFile() {
    if (mFound->reader.recoveredTo()[0] != '\0') {
        PathText begun;
        formatPath(begun, "%s/%s", mLogWriter.mFolder.c_str(), mFound->reader.recoveredTo());
        deleteFile(begun.c_str());
    }
    auto* writer = new (std::nothrow) FileJLogWriter(mFound->reader.pid());
    mFound->writer.reset(writer);
    if (writer == nullptr) {
        return false;
    }
    writer->mFolder = mLogWriter.mFolder.view();
    writer->spareFileOf(&mLogWriter);
    if (!writer->open(true, "BB_", false) || !noteFile(nameOf(writer->mFilePath))) {
        return false;
    }
    char line[256];
    mFound->reader.describe(line, sizeof(line));
    writer->writeString("%s", line);
    return true;
}

bool BoxRecovery::noteFile(std::string_view name) const {
    char text[kBoxFileNameBytes] = {};
    name.copy(text, sizeof(text) - 1);
    return pwrite(mFound->fd, text, sizeof(text), offsetof(BoxHead, recoveredTo)) ==
           static_cast<ssize_t>(sizeof(text));
}

void BoxRecovery::deleteFile(const char* path) const {
    unlink(path);
    // Its name may be given again.
    static_cast<void>(noteFile(""));
}

void BoxRecovery::finish() {
    Found& box = *mFound;
    const char* path = box.path.c_str();
    if (box.records > 0 && (box.writer->hasLostText() || fsync(box.writer->mFd) != 0)) {
        leaveAlone(box.path, "the file for its records did not take all of them");
        return;
    }
    if (box.reader.isDamaged()) {
        __android_log_print(ANDROID_LOG_ERROR, kFileLogTag,
                            "Black box damaged: %s, records may be missing", path);
    }
    box.isDone = true;
    if (unlink(path) != 0) {
        leaveAlone(box.path, strerror(errno));
    }
    if (box.records > 0) {
        __android_log_print(ANDROID_LOG_INFO, kFileLogTag, "Black box recovered: %s, %u records",
                            path, box.records);
    }
}

void BoxRecovery::drop() {
    if (mFound != nullptr) {
        if (mFound->writer != nullptr && mFound->writer->mFd >= 0 && !mFound->isDone) {
            deleteFile(mFound->writer->mFilePath.c_str());  // the next recovery makes all of it
        }
        close(mFound->fd);
        mFound.reset();
    }
}

}  // namespace JCam::Utils::JLog::File
