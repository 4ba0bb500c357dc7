#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "jlog/file/BoxLayout.h"

namespace JCam::Utils::JLog::File {

/// Reads the box that a process has left. The file is read, not mapped: another process may make it
/// shorter at any moment. Nothing in it is trusted.
///
/// Threads: one at a time. Not signal-safe.
class BoxReader {
  public:
    /// Reads the head. `fd` must outlive the object.
    explicit BoxReader(int fd);

    /// Why the file is no box that can be read, or could not be read so far; null if it is one.
    [[nodiscard]] const char* problem() const { return mProblem; }
    /// Whether its process ended before it had made the box: there is no head.
    [[nodiscard]] bool isUnborn() const { return mIsUnborn; }
    /// Whether a part of it was missing or impossible so far. The rest can be read.
    [[nodiscard]] bool isDamaged() const { return mIsDamaged; }

    /// Its process.
    [[nodiscard]] int32_t pid() const { return mHead.pid; }
    /// Name of the file that an earlier recovery has begun; empty if there is none, or it is not a
    /// name of such a file.
    [[nodiscard]] const char* recoveredTo() const { return mHead.recoveredTo; }

    /// Whether records were lost that no block and no crash dump has: those of buffers that were
    /// outside the box.
    [[nodiscard]] bool hasLosses() const;

    /// Blocks that hold records.
    [[nodiscard]] size_t blocks() const { return mCount; }
    /// Reads one of blocks(), the oldest first, into `block` (kBufferBytes, aligned like records),
    /// and has its records point to their messages there. Returns how many complete records it
    /// holds; 0 if a crash file has all of them.
    uint32_t readBlock(size_t index, char* block);

    /// Writes to `out` what the file that the box becomes begins with: a line that says which
    /// process has left it, and how, with a newline.
    void describe(char* out, size_t room) const;

  private:
    void checkHead();
    void findBlocks();
    /// Bytes that were read; less than `count` at the end of the file, and where there is a
    /// problem.
    size_t readAt(size_t offset, char* out, size_t count);
    /// Has a record that was at `recordThen` point to its message. False if it has none there.
    static bool relocate(LogDetails& record, uint64_t recordThen);

    const int mFd;
    BoxHead mHead{};
    const char* mProblem{nullptr};
    bool mIsUnborn{false};
    bool mIsDamaged{false};
    bool mIsPartDumped{false};
    /// Slots that hold records, by sequence.
    std::array<size_t, kBoxSlots> mSlots{};
    size_t mCount{0};
};

}  // namespace JCam::Utils::JLog::File
