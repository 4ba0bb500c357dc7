#pragma once

#include <sys/stat.h>

#include <array>
#include <cstddef>
#include <cstdint>

#include "jlog/file/FixedText.h"

namespace JCam::Utils::JLog::File {

/// Frees storage by deleting the oldest regular files of one folder, whoever made them: the log
/// folder is ours and the vendor logger's. In a folder that others keep files in, only log files
/// ("cam_jlog_*.txt") are deleted. Free space is measured once; each deleted file counts with its
/// size.
///
/// It works in constant memory, whatever the folder holds, since it may run when memory is as short
/// as storage, and in a signal handler: it keeps the oldest files of one pass over the folder,
/// deletes them, and makes another pass for the next ones when that was not enough. The object is
/// too large for a thread's stack at a bad moment; make it beforehand.
class StorageCleaner {
  public:
    /// Whose file is spared.
    enum Owner { OWN, OTHER };

    /// Spares the file that `fd` has open, known by device and inode, in place of the one before of
    /// this owner; below 0 none. Signal-safe.
    void spare(Owner owner, int fd);

    /// Deletes files of `folder`, oldest first, until more than `minFreeBytes` are free or no file
    /// is left but those that are spared. `sharedFolder` is the one that others keep files in;
    /// `silent` suppresses the messages to the Android log, and makes the call signal-safe.
    void freeUpTo(int64_t minFreeBytes, const char* folder, const char* sharedFolder, bool silent);

  private:
    /// How many files one pass finds: the more, the fewer times a folder of thousands is read. They
    /// take 68 KiB.
    static constexpr size_t kFilesPerPass = 256;

    struct FileInfo {
        int64_t fileSize;
        int64_t mtime;
        FixedText<256> name;
    };
    /// By age, and by name where that is equal, so that a pass can go on where the last one ended.
    static bool isOlder(const FileInfo& a, const FileInfo& b);

    /// Fills mOldest with the oldest files that are newer than `last` (null: with the oldest), in
    /// order. False when the folder cannot be read.
    bool findOldest(const FileInfo* last);
    void keepIfOld(const FileInfo& file);
    /// False when it may not be deleted.
    bool inspect(const char* name, FileInfo& file) const;
    [[nodiscard]] PathText pathOf(const char* name) const;
    /// Deletes what mOldest lists. Returns whether that was enough, or nothing can be deleted.
    bool deleteOldest(int64_t& freeBytes, int64_t minFreeBytes) const;

    struct FileIdentity {
        dev_t device;
        ino_t inode;  // 0, which no file has, for none
    };
    [[nodiscard]] bool isSpared(const struct stat& status) const;

    /// By Owner.
    std::array<FileIdentity, 2> mSpared{};
    // Of the call that runs.
    const char* mFolder{nullptr};
    bool mSilent{false};
    bool mLogFilesOnly{false};
    std::array<FileInfo, kFilesPerPass> mOldest;
    size_t mCount{0};
};

}  // namespace JCam::Utils::JLog::File
