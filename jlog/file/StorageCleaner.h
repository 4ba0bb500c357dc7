#pragma once

#include <sys/stat.h>

#include <array>
#include <cstddef>
#include <cstdint>

#include "jlog/file/FileIdentity.h"
#include "jlog/file/PathText.h"

namespace JCam::Utils::JLog::File {

/// Frees storage by deleting the oldest regular files of one folder, of any origin: the log
/// folder belongs to this library and the vendor's logger. In a shared folder it deletes log files
/// ("cam_jlog_*.txt") only. It measures free space once, and counts each deleted file with its
/// size.
///
/// It may run in a signal handler, and when memory is as short as storage, so it needs constant
/// memory for any folder: one pass over the folder collects the oldest files, which are deleted,
/// and another pass follows if that was not enough. The object is large (68 KiB): allocate it
/// beforehand, not on the stack.
class StorageCleaner {
  public:
    /// The files that are left alone, whatever their names.
    using SparedFiles = std::array<FileIdentity, 2>;

    /// Deletes files of `folder`, oldest first, until more than `minFreeBytes` are free or only
    /// files of `spared` are left. In `sharedFolder` it deletes log files only. `silent` suppresses
    /// the messages to the Android log and makes the call signal-safe. A call that is not silent
    /// waits for the end of a crash dump before it deletes a file, which might be the dump's.
    void freeUpTo(int64_t minFreeBytes, const char* folder, const char* sharedFolder, bool silent,
                  const SparedFiles& spared);

  private:
    /// Files that one pass collects. The more, the fewer passes over a folder of thousands.
    static constexpr size_t kFilesPerPass = 256;

    struct FileInfo {
        int64_t fileSize;
        int64_t mtime;
        char name[256];  // NUL-terminated
    };
    /// By age, then by name, so that a pass can go on where the last one ended.
    static bool isOlder(const FileInfo& a, const FileInfo& b);

    /// Fills mOldest with the oldest files that are newer than `last` (null: with the oldest), in
    /// order. False when the folder cannot be read.
    bool findOldest(const FileInfo* last);
    void keepIfOld(const FileInfo& file);
    /// False when it may not be deleted.
    bool inspect(const char* name, FileInfo& file) const;
    [[nodiscard]] PathText pathOf(const char* name) const;
    /// Deletes the files in mOldest. True if that was enough, or if no file can be deleted.
    bool deleteOldest(int64_t& freeBytes, int64_t minFreeBytes) const;

    [[nodiscard]] bool isSpared(const struct stat& status) const;

    // The arguments of the call that runs, and its files.
    const char* mFolder{nullptr};
    bool mSilent{false};
    bool mLogFilesOnly{false};
    SparedFiles mSpared{};
    std::array<FileInfo, kFilesPerPass> mOldest;
    size_t mCount{0};
};

}  // namespace JCam::Utils::JLog::File
