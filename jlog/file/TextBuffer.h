#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace JCam::Utils::JLog::File {

/// Rendered text on its way to a file: 24 KiB, and a limit at which its owner has something to
/// decide. It knows no file. Lines are rendered in place, each between end() and a call of
/// endLine().
///
/// A line whose date alone reaches kMark goes out in two writes: the text before it, and the line.
/// The date then stands in front of the buffer, which no longer counts it.
///
/// Threads: one at a time. Signal-safe.
class TextBuffer {
  public:
    /// Of text that is counted.
    static constexpr size_t kBytes = 24576;
    /// From this many bytes on the text is to be written out. The room that is left below it, at
    /// least 1125 bytes, holds any line but one whose name and message are both near their limits;
    /// that one is cut.
    static constexpr size_t kMark = 23452;
    /// The date at the start of a line, "MM-DD hh:mm:ss".
    static constexpr size_t kDateBytes = 14;
    /// Any line fits into this behind its date, with what is written beyond its end. The name takes
    /// 128 bytes and the message 1023.
    static constexpr size_t kMaxLineBytes = 1280;

    /// Empty.
    TextBuffer() { clear(); }
    TextBuffer(const TextBuffer&) = delete;
    TextBuffer& operator=(const TextBuffer&) = delete;

    /// The bytes that are buffered, without a date that is held over.
    [[nodiscard]] size_t bytes() const { return static_cast<size_t>(mEnd - start()); }
    /// All that is to be written, a date that is held over included.
    [[nodiscard]] std::string_view text() const {
        return {mBegin, static_cast<size_t>(mEnd - mBegin)};
    }
    /// Where the next text is to stand, with room for a date and kMaxLineBytes.
    [[nodiscard]] char* end() { return mEnd; }
    /// The bytes for a formatter to write at end().
    [[nodiscard]] size_t room() const { return kBytes - bytes(); }

    /// Takes in the text up to `end`.
    void advanceTo(char* end) {
        // Release: the text comes before its end, for a signal handler that reads both.
        std::atomic_signal_fence(std::memory_order_release);
        mEnd = end;
    }
    /// Takes in the line that ends at `end`, if that is below the limit. Otherwise remembers it and
    /// returns false: takeInLine() follows.
    [[nodiscard]] bool endLine(char* end) {
        if (end >= mLimit) [[unlikely]] {
            mLineEnd = end;
            return false;
        }
        advanceTo(end);
        return true;
    }
    /// Whether the date of the remembered line reaches kMark.
    [[nodiscard]] bool dateReachesMark() const { return bytes() + kDateBytes >= kMark; }
    /// Makes the remembered line, whose date is held over, all that is buffered once it is taken
    /// in. What was before it has been written.
    void holdOverDate() {
        const char* line = mEnd;
        const auto lineBytes = static_cast<size_t>(mLineEnd - line);
        clear();
        memmove(mMemory, line, lineBytes);
        mBegin = mMemory;
        mLineEnd = mMemory + lineBytes;
    }
    /// Takes in the remembered line, cut to the room there is. One byte stays free, as it does for
    /// a formatter, which terminates its text.
    void takeInLine() { advanceTo(std::min(mLineEnd, start() + kBytes - 1)); }

    void clear() {
        mBegin = start();
        mEnd = start();
    }
    /// Sets the limit to `bytes`, or to kMark where that comes first.
    void setLimit(uint64_t bytes) { mLimit = start() + std::min<uint64_t>(kMark, bytes); }

  private:
    [[nodiscard]] char* start() { return mMemory + kDateBytes; }
    [[nodiscard]] const char* start() const { return mMemory + kDateBytes; }

    /// start(), or the date in front of it.
    const char* mBegin;
    char* mEnd;
    const char* mLimit{start() + kMark};
    char* mLineEnd{nullptr};
    /// Room for a date, the buffer, and room for the end of a line that is to be cut.
    char mMemory[kDateBytes + kMark + kDateBytes + kMaxLineBytes];
    static_assert(sizeof(mMemory) > kDateBytes + kBytes);
};

}  // namespace JCam::Utils::JLog::File
