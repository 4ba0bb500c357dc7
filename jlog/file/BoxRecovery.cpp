#include "jlog/file/BoxRecovery.h"

#include <fcntl.h>
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
    constexpr std::string_view kBegin = "cam_jlog_";
    constexpr std::string_view kEnd = ".box";
    return name.starts_with(kBegin) && name.ends_with(kEnd) &&
           name.find_first_not_of("0123456789_", kBegin.size()) == name.size() - kEnd.size();
}

void leaveAlone(const PathText& path, const char* reason) {
    __android_log_print(ANDROID_LOG_ERROR, kFileLogTag, "Black box left alone: %s (%s)",
                        path.c_str(), reason);
}

std::string_view nameOf(const PathText& path) {
    return path.view().substr(path.view().rfind('/') + 1);
}

/// Whether the file of `writer` has all its text and a name, and the disk has it, if there is one.
bool isWritten(FileJLogWriter& writer) {
    writer.flush(false);
    struct stat status = {};
    return !writer.hasLostText() &&
           (fsync(writer.mFd) == 0 || errno == EINVAL || errno == ENOSYS) &&
           fstat(writer.mFd, &status) == 0 && status.st_nlink > 0;
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
    if (entry != nullptr && isBoxName(entry->d_name)) {
        consider(entry->d_name);
    }
    return entry != nullptr;
}

void BoxRecovery::consider(const char* name) {
    PathText path;
    formatPath(path, "%s/%s", mPath.c_str(), name);
    const char* problem = nullptr;
    const int fd = BlackBox::openLeft(path, problem);
    if (fd < 0) {
        if (problem != nullptr) {
            leaveAlone(path, problem);
        }
        return;
    }
    if (mBlock == nullptr) {
        mBlock.reset(new (std::nothrow) char[kBufferBytes]);
    }
    if (mBlock != nullptr) {
        mFound.reset(new (std::nothrow) Found(fd, path));
    }
    if (mFound == nullptr) {
        leaveAlone(path, "without memory");
        close(fd);
    } else if (mFound->reader.isUnborn()) {
        unlink(path.c_str());
        drop();
        __android_log_print(ANDROID_LOG_INFO, kFileLogTag, "Black box deleted: %s (without a head)",
                            path.c_str());
    } else if (mFound->reader.problem() != nullptr) {
        leaveAlone(path, mFound->reader.problem());
        drop();
    }
}

bool BoxRecovery::recoverBlock() {
    const uint32_t complete = mFound->reader.readBlock(mFound->nextBlock++, mBlock.get());
    if (mFound->reader.problem() != nullptr) {
        leaveAlone(mFound->path, mFound->reader.problem());
        return false;
    }
    if (complete == 0) {
        return true;
    }
    if (mFound->writer == nullptr && !openFile()) {
        return false;
    }
    mFound->records += complete;
    mFound->writer->appendRecords(mBlock.get(), mBlock.get() + kBufferBytes);
    mFound->writer->flush(false);
    return true;
}

bool BoxRecovery::openFile() {
    if (mFound->reader.recoveredTo()[0] != '\0') {
        PathText begun;
        formatPath(begun, "%s/%s", mLogWriter.mFolder.c_str(), mFound->reader.recoveredTo());
        if (!deleteFile(begun.c_str())) {
            leaveAlone(mFound->path, "the file that was begun cannot be deleted");
            return false;
        }
    }
    auto* writer = new (std::nothrow) FileJLogWriter(mFound->reader.pid());
    mFound->writer.reset(writer);
    if (writer != nullptr) {
        writer->mFolder = mLogWriter.mFolder.view();
        writer->spareFileOf(&mLogWriter);
    }
    if (writer != nullptr && writer->open(true, "BB_", false)) {
        // First the line that tells what the file is.
        char line[256];
        mFound->reader.describe(line, sizeof(line));
        writer->writeString("%s", line);
        writer->flush(false);
        if (noteFile(nameOf(writer->mFilePath))) {
            return true;
        }
    }
    leaveAlone(mFound->path, "there is no file for its records");
    return false;
}

bool BoxRecovery::noteFile(std::string_view name) const {
    char text[kBoxFileNameBytes] = {};
    name.copy(text, sizeof(text) - 1);
    return pwrite(mFound->fd, text, sizeof(text), offsetof(BoxHead, recoveredTo)) ==
           static_cast<ssize_t>(sizeof(text));
}

bool BoxRecovery::deleteFile(const char* path) const {
    // Its name may be given again.
    return (unlink(path) == 0 || errno == ENOENT) && noteFile("");
}

void BoxRecovery::finish() {
    Found& box = *mFound;
    const char* path = box.path.c_str();
    if (box.writer == nullptr && box.reader.hasLosses() && !openFile()) {
        return;
    }
    if (box.writer != nullptr && !isWritten(*box.writer)) {
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
    if (box.writer != nullptr) {
        __android_log_print(ANDROID_LOG_INFO, kFileLogTag, "Black box recovered: %s, %u records",
                            path, box.records);
    }
}

void BoxRecovery::drop() {
    if (mFound != nullptr) {
        if (mFound->writer != nullptr && mFound->writer->mFd >= 0 && !mFound->isDone) {
            // The next recovery makes all of it, and deletes it if that is not possible now.
            static_cast<void>(deleteFile(mFound->writer->mFilePath.c_str()));
        }
        close(mFound->fd);
        mFound.reset();
    }
}

}  // namespace JCam::Utils::JLog::File
