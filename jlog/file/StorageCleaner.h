#pragma once

#include <sys/stat.h>

#include <array>
#include <cstddef>
#include <cstdint>

#include "jlog/file/FileIdentity.h"
#include "jlog/file/PathText.h"

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
    /// The files that are left alone, whatever their names.
    using SparedFiles = std::array<FileIdentity, 2>;

    /// Deletes files of `folder`, oldest first, until more than `minFreeBytes` are free or only
    /// files of `spared` are left. In `sharedFolder` it deletes log files only. `silent` suppresses
    /// the messages to the Android log and makes the call signal-safe. An ordinary call waits for
    /// the end of a crash dump before it deletes a file, which might be that of the dump.
    void freeUpTo(int64_t minFreeBytes, const char* folder, const char* sharedFolder, bool silent,
                  const SparedFiles& spared);

  private:
    /// How many files one pass finds: the more, the fewer times a folder of thousands is read. They
    /// take 68 KiB.
    static constexpr size_t kFilesPerPass = 256;

    struct FileInfo {
        int64_t fileSize;
        int64_t mtime;
        char name[256];  // NUL-terminated
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

    [[nodiscard]] bool isSpared(const struct stat& status) const;

    // Of the call that runs.
    const char* mFolder{nullptr};
    bool mSilent{false};
    bool mLogFilesOnly{false};
    SparedFiles mSpared{};
    std::array<FileInfo, kFilesPerPass> mOldest;
    size_t mCount{0};
};

}  // namespace JCam::Utils::JLog::File
