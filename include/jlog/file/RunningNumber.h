#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace JCam::Utils::JLog::File {

/// The decimal text of a number that mostly stays as it was or grows by one, like the request
/// numbers and serial numbers of successive lines, with what always stands in front of it and
/// behind it. Of ten steps nine change a single character. One thread at a time; signal-safe.
class RunningNumber {
  public:
    /// Bytes that put() writes, whatever the number.
    static constexpr size_t kTextBytes = 16;

    /// With the digits of any number, `prefix` and `suffix` fit into kTextBytes. They stay.
    RunningNumber(const char* prefix, const char* suffix);

    /// Writes `value` at `out`, like printf's "%u" between prefix and suffix, and returns the end.
    /// What lies behind it has been overwritten.
    char* put(char* out, uint32_t value) {
        if (value + uint64_t{1} != mNext) {
            advanceTo(value);
        }
        memcpy(out, &mText, sizeof(mText));
        return out + mChars;
    }

  private:
    /// In one register: a text that was written in parts is slow to read as a whole.
    using Text = uint8_t __attribute__((vector_size(kTextBytes)));

    void advanceTo(uint32_t value) {
        if (__builtin_expect(value == mNext && value <= mLastOfTen, true) != 0) {
            mText += mStep;
            mNext = value + uint64_t{1};
        } else if (value == mNext && value <= mLastOfHundred) {
            mText += mCarry;
            mNext = value + uint64_t{1};
            mLastOfTen += 10;
        } else {
            render(value);
        }
    }
    void render(uint32_t value);

    const char* mPrefix;
    const char* mSuffix;
    Text mText;
    /// What makes the next number's text of this one's: 1 at the last digit. From a 9 on: -9 there
    /// and 1 at the digit before.
    Text mStep;
    Text mCarry;
    /// The number behind the one that mText is of. Wide enough to have one behind any.
    uint64_t mNext;
    /// The last number that differs from it in the last digit alone, and in the last two alone.
    uint64_t mLastOfTen;
    uint64_t mLastOfHundred;
    uint32_t mChars;
};

}  // namespace JCam::Utils::JLog::File
