#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace JCam::Soak {

/// Follows the write(2) calls by which a series came into its files. They tell where the writer's
/// text buffer was full, and so which lines it had to cut.
class WriteWalk {
  public:
    /// `sizes`: the bytes of each call, in their order.
    explicit WriteWalk(std::vector<uint32_t> sizes) : mSizes(std::move(sizes)) { begin(0); }

    /// Bytes to the end of the call that the next byte of the files came with; 0 behind the last.
    [[nodiscard]] size_t left() const { return mLeft; }
    /// Whether that call emptied a text buffer that was full to its last byte.
    [[nodiscard]] bool isFull() const;
    /// Whether it took more than a text buffer holds.
    [[nodiscard]] bool isTooLong() const;
    /// Moves on by `bytes`, left() at most.
    void advance(size_t bytes);
    /// How many calls have begun.
    [[nodiscard]] size_t number() const { return mNumber; }

  private:
    void begin(size_t index);

    const std::vector<uint32_t> mSizes;
    size_t mNumber{0};
    size_t mSize{0};
    size_t mLeft{0};
    /// The call may begin with a date that the one before had no room for. It does if that ended
    /// where a date reaches the mark, unless it was a batch that happened to end there; then this
    /// call may be taken for full 14 bytes too late, but not for full when it is not.
    bool mDateMayBeHeld{false};
};

}  // namespace JCam::Soak
