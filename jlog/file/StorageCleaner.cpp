// Also runs after a fatal signal, by the rules of CrashHandler.cpp, when it is to be silent.

#include "jlog/file/StorageCleaner.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string_view>

#include <android/log.h>

#include "jlog/file/CrashGate.h"
#include "jlog/file/FileLogTag.h"
#include "jlog/file/LogFolder.h"
#include "jlog/file/SignalSafeFormat.h"

namespace JCam::Utils::JLog::File {

namespace {

/// Reads the names in a folder by system calls alone: opendir allocates, and readdir locks.
class FolderReader {
  public:
    explicit FolderReader(const char* path) : mFd(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}
    ~FolderReader() {
        if (mFd >= 0) {
            close(mFd);
        }
    }
    FolderReader(const FolderReader&) = delete;
    FolderReader& operator=(const FolderReader&) = delete;

    [[nodiscard]] bool isOpen() const { return mFd >= 0; }

    /// The next name, "." and ".." included; valid until the next call. Null at the end, and when
    /// the folder cannot be read any further.
    const char* next() {
        // struct linux_dirent64 of getdents64(2), which has no libc header: two 64-bit words, the
        // length of the entry, its type, and the name.
        constexpr size_t kEntryLengthOffset = 16;
        constexpr size_t kNameOffset = 19;
        if (mPosition == mFilled) {
            const long filled = syscall(SYS_getdents64, mFd, mEntries, sizeof(mEntries));
            if (filled <= 0) {
                return nullptr;
            }
            mFilled = static_cast<size_t>(filled);
            mPosition = 0;
        }
        const char* entry = mEntries + mPosition;
        uint16_t length = 0;
        memcpy(&length, entry + kEntryLengthOffset, sizeof(length));
        mPosition += length;
        return entry + kNameOffset;
    }

  private:
    int mFd;
    size_t mPosition{0};
    size_t mFilled{0};
    /// What the kernel has returned last. A name has at most 255 bytes.
    alignas(8) char mEntries[2048];
};

bool isLogFileName(std::string_view name) {
    constexpr std::string_view kStem = "cam_jlog_";
    constexpr std::string_view kSuffix = ".txt";
    return name.size() >= kStem.size() + kSuffix.size() && name.starts_with(kStem) &&
           name.ends_with(kSuffix);
}

}  // namespace

bool StorageCleaner::isOlder(const FileInfo& a, const FileInfo& b) {
    return a.mtime != b.mtime ? a.mtime < b.mtime : strcmp(a.name, b.name) < 0;
}

bool StorageCleaner::isSpared(const struct stat& status) const {
    return std::any_of(mSpared.begin(), mSpared.end(), [&status](const FileIdentity& file) {
        return file.inode != 0 && file.inode == status.st_ino && file.device == status.st_dev;
    });
}

void StorageCleaner::freeUpTo(int64_t minFreeBytes, const char* folder, const char* sharedFolder,
                              bool silent, const SparedFiles& spared) {
    mFolder = folder;
    mSilent = silent;
    mSpared = spared;
    // On Linux one system call, so a signal handler may use it, though POSIX does not promise that.
    struct statvfs storage = {};
    if (statvfs(pathOf("").c_str(), &storage) != 0) {
        return;
    }
    // A file system without a size, such as ramfs, counts no blocks: it is never full.
    int64_t freeBytes = 0;
    if (storage.f_blocks == 0 ||
        __builtin_mul_overflow(storage.f_bfree, storage.f_bsize, &freeBytes) ||
        freeBytes > minFreeBytes) {
        return;
    }
    mLogFilesOnly = isSameFolder(folder, sharedFolder);
    if (!findOldest(nullptr)) {
        return;
    }
    while (mCount > 0 && !deleteOldest(freeBytes, minFreeBytes)) {
        const FileInfo last = mOldest[mCount - 1];
        if (mCount < kFilesPerPass || !findOldest(&last)) {
            return;
        }
    }
}

bool StorageCleaner::deleteOldest(int64_t& freeBytes, int64_t minFreeBytes) const {
    for (size_t i = 0; i < mCount; ++i) {
        CrashGate::reportProgress();
        if (!mSilent) {
            CrashGate::awaitOpen();
        }
        const PathText path = pathOf(mOldest[i].name);
        if (unlink(path.c_str()) != 0) {
            if (errno == EROFS) {
                return true;  // as good as it gets: the next ones would fail, too
            }
            continue;
        }
        if (!mSilent) {
            __android_log_print(ANDROID_LOG_WARN, kFileLogTag, "Storage full. Unlinked: %s",
                                path.c_str());
        }
        // A sparse file may be larger than any disk.
        if (__builtin_add_overflow(freeBytes, mOldest[i].fileSize, &freeBytes) ||
            freeBytes > minFreeBytes) {
            return true;
        }
    }
    return false;
}

bool StorageCleaner::findOldest(const FileInfo* last) {
    mCount = 0;
    const PathText path = pathOf("");
    FolderReader folder(path.c_str());
    if (!folder.isOpen()) {
        if (!mSilent) {
            __android_log_print(ANDROID_LOG_ERROR, kFileLogTag, "Open folder %s failed",
                                path.c_str());
        }
        return false;
    }
    while (const char* name = folder.next()) {
        CrashGate::reportProgress();
        FileInfo file;
        if (inspect(name, file) && (last == nullptr || isOlder(*last, file))) {
            keepIfOld(file);
        }
    }
    std::sort_heap(mOldest.begin(), mOldest.begin() + mCount, isOlder);
    return true;
}

void StorageCleaner::keepIfOld(const FileInfo& file) {
    // A heap; its top is the newest of the oldest files so far.
    if (mCount == kFilesPerPass) {
        if (!isOlder(file, mOldest.front())) {
            return;
        }
        std::pop_heap(mOldest.begin(), mOldest.end(), isOlder);
        --mCount;
    }
    mOldest[mCount++] = file;
    std::push_heap(mOldest.begin(), mOldest.begin() + mCount, isOlder);
}

bool StorageCleaner::inspect(const char* name, FileInfo& file) const {
    if (mLogFilesOnly && !isLogFileName(name)) {
        return false;
    }
    struct stat status = {};
    if (stat(pathOf(name).c_str(), &status) != 0 || !S_ISREG(status.st_mode) || isSpared(status)) {
        return false;
    }
    file.fileSize = status.st_size;
    file.mtime = status.st_mtime;
    formatText(file.name, sizeof(file.name), "%s", name);
    return true;
}

PathText StorageCleaner::pathOf(const char* name) const {
    PathText path;
    formatPath(path, "%s/%s", mFolder, name);
    return path;
}

}  // namespace JCam::Utils::JLog::File
