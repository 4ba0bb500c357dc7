#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace JCam::Utils::JLog::File {

/// The decimal text of a number that mostly stays as it was or grows by one, like the request
/// numbers and serial numbers of successive lines: nine times out of ten one character is all that
/// has to change. Signal-safe.
class RunningNumber {
  public:
    /// Bytes that put() may write.
    static constexpr size_t kTextBytes = 12;

    /// Writes `value` at `out` like printf's "%u" and returns the end. What lies behind it may have
    /// been overwritten.
    char* put(char* out, uint32_t value) {
        if (value != mValue) {
            advanceTo(value);
        }
        if (mHeadChars > 0) [[unlikely]] {
            memcpy(out, mHead, sizeof(mHead));
            out += mHeadChars;
        }
        memcpy(out, &mDigits, sizeof(mDigits));
        return out + mDigitChars;
    }

  private:
    void advanceTo(uint32_t value) {
        if (mStepsLeft > 0 && value > 0 && value - 1 == mValue) [[likely]] {
            --mStepsLeft;
            mValue = value;
            // In a register, not in memory: a word that was written in parts is slow to read.
            mDigits += mStep;
        } else {
            render(value);
        }
    }
    void render(uint32_t value);

    uint32_t mValue{0};
    /// How often the last digit can grow.
    uint32_t mStepsLeft{9};
    /// The last digits, at most eight, the first of them in the lowest byte.
    uint64_t mDigits{'0'};
    /// What adds one to the last digit.
    uint64_t mStep{1};
    uint32_t mDigitChars{1};
    /// The digits in front of them, if there are more.
    uint32_t mHeadChars{0};
    char mHead[4]{};
};

}  // namespace JCam::Utils::JLog::File
