#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string_view>

#include "jlog/file/FileIdentity.h"
#include "jlog/file/PathText.h"

namespace JCam::Utils::JLog::File {

class StorageCleaner;

/// The files of a writer, one after the other: their names, which one is open, where they go when
/// the folder takes none, and the space for them. It knows nothing of what is written, and does not
/// decide when.
///
/// Threads: one at a time, but for spareFileOf() of another series. Signal-safe once
/// makeSignalSafe() was called and the series is silent.
class FileSeries {
  public:
    /// Works on the descriptor (-1 for none), the folder and the path that the writer shows to its
    /// owner. All three must outlive the object. `pid` is in the names. Allocates the memory of the
    /// clean-up, without which no space is ever freed.
    FileSeries(int32_t& fd, PathText& folder, PathText& path, pid_t pid);
    ~FileSeries();
    FileSeries(const FileSeries&) = delete;
    FileSeries& operator=(const FileSeries&) = delete;

    /// From now on local time comes from the cached UTC offsets, writes heed no crash gate, and a
    /// descriptor is kept in reserve for a file.
    void makeSignalSafe();

    /// Begins a series: a new time stamp, and index 1. Keeps the first 29 characters of
    /// `namePrefix`, and the prefix it has if that is null. A `silent` series logs nothing.
    void begin(const char* namePrefix, bool silent);
    /// Closes the file that is open, if any, frees space, and opens the next file; false if there
    /// is none. The clean-up spares the file that was open.
    bool openNext();
    /// Closes the file.
    void close();
    /// Opens the next file if the open one has no name any more; true if it did. Keeps the open one
    /// if there is no place for another. There is no clean-up. Not signal-safe.
    bool replaceDeleted();

    /// Deletes old files of the folder, see FileJLogWriter::reserveSpace().
    void reserveSpace(bool silent) const;
    /// The clean-up also spares the file that `other` has open at this moment, or goes on from;
    /// null ends that. `other` may be in use on another thread.
    void spareFileOf(const FileSeries* other);

    /// Hands `text` to the open file in one write(2). What the file does not take is lost. Logs the
    /// first loss of a file, and every new reason.
    void write(std::string_view text);
    /// The same without a message.
    void writeQuietly(std::string_view text) const;
    /// Whether a file has not taken all text since the series began.
    [[nodiscard]] bool hasLostText() const { return mHasLostText; }
    /// Waits until the disk has what was written.
    void sync() const;

  private:
    /// In place of an errno.
    static constexpr int32_t kNoLoss = -1;

    bool openFile();
    /// Creates the next file in mFolder and leaves its path in `path`; -1 when that fails, and then
    /// the index is as before.
    int createFile(PathText& path);
    void closeDescriptor();
    void reserveDescriptor();
    void releaseDescriptor();
    /// Keeps the identity of the file that `fd` has open; below 0 none.
    void setIdentity(int fd);
    [[nodiscard]] FileIdentity identity() const;
    /// False if text was lost; errno tells why, 0 if a part was written.
    [[nodiscard]] bool tryWrite(std::string_view text) const;

    int32_t& mFd;
    PathText& mFolder;
    PathText& mPath;
    const pid_t mPid;
    /// Index of the next file.
    uint32_t mIndex{1};
    bool mSilent{false};
    bool mSignalSafe{false};
    bool mHasLostText{false};
    /// A line has told that the open file was deleted.
    bool mDeletionTold{false};
    /// Open, for its number alone, while a signal-safe series has no file; otherwise -1.
    int32_t mReservedFd{-1};
    /// Why a write to the open file has lost text, as it was logged last; kNoLoss if it was not.
    int32_t mReportedLoss{kNoLoss};
    /// "YYYY_MMDD_hhmmss" of the series.
    char mTimeStamp[40]{};
    /// Stands before the time stamp; empty for normal files.
    char mNamePrefix[30]{};
    /// The file that is open or, while the next one is opened, was before. Two words, which
    /// spareFileOf() reads on another thread. Relaxed: a torn pair is the identity of no file of
    /// the folder.
    std::atomic<uint64_t> mDevice{0};
    std::atomic<uint64_t> mInode{0};
    /// What the clean-up spares for another series.
    FileIdentity mOthersFile;
    /// Null without memory; then no space is freed.
    const std::unique_ptr<StorageCleaner> mCleaner;
};

}  // namespace JCam::Utils::JLog::File
