#pragma once

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>

// Numbers and dates as text, without printf and strftime. Nothing is allocated, locked or read from
// the locale, so a signal handler may use all of it. A function that takes `out` writes there,
// where the caller provides room, and returns the end of what it has written.
namespace JCam::Utils::JLog::File {

inline constexpr char kDigitPairs[] =
        "0001020304050607080910111213141516171819"
        "2021222324252627282930313233343536373839"
        "4041424344454647484950515253545556575859"
        "6061626364656667686970717273747576777879"
        "8081828384858687888990919293949596979899";

/// The last two digits of `value`, which is below 100.
inline char* putTwoDigits(char* out, unsigned int value) {
    memcpy(out, kDigitPairs + (2 * static_cast<size_t>(value)), 2);
    return out + 2;
}

template <typename Integer>
char* putNumber(char* out, Integer value, int base = 10) {
    // 20 characters hold any 64-bit number with its sign in base 10 and above.
    return std::to_chars(out, out + 20, value, base).ptr;
}

/// printf's "%5d".
inline char* putPadded5(char* out, int32_t value) {
    constexpr std::ptrdiff_t kWidth = 5;
    char digits[20];
    const std::ptrdiff_t count = putNumber(digits, value) - digits;
    for (std::ptrdiff_t i = count; i < kWidth; ++i) {
        *out++ = ' ';
    }
    memcpy(out, digits, static_cast<size_t>(count));
    return out + count;
}

/// ".000.001" to ".999", and one character more, which is copied along with the last entry.
inline constexpr auto kThousandths = [] {
    std::array<char, 4 * 1000 + 1> text{};
    for (size_t i = 0; i < 1000; ++i) {
        text[4 * i] = '.';
        text[4 * i + 1] = static_cast<char>('0' + i / 100);
        text[4 * i + 2] = static_cast<char>('0' + i / 10 % 10);
        text[4 * i + 3] = static_cast<char>('0' + i % 10);
    }
    return text;
}();

/// putFraction() for values that no clock returns, but a damaged record may hold.
char* putOddFraction(char* out, long nanoseconds);

/// The microseconds of `nanoseconds`, truncated, as printf's ".%06ld". May write one byte behind
/// the end.
[[gnu::always_inline]] inline char* putFraction(char* out, long nanoseconds) {
    constexpr unsigned long kNanosecondsPerSecond = 1000000000;
    if (static_cast<unsigned long>(nanoseconds) >= kNanosecondsPerSecond) [[unlikely]] {
        return putOddFraction(out, nanoseconds);
    }
    const uint32_t micros = static_cast<uint32_t>(nanoseconds) / 1000;
    memcpy(out, kThousandths.data() + 4 * size_t{micros / 1000}, 4);
    memcpy(out + 4, kThousandths.data() + 4 * size_t{micros % 1000} + 1, 4);
    return out + 7;
}

/// Characters of "MM-DD hh:mm:ss".
inline constexpr size_t kDateChars = 14;

/// Writes "MM-DD hh:mm:ss".
char* putDate(char* out, const tm& local);

/// The decimal text of a number that mostly repeats or grows by one, such as the request and serial
/// numbers of successive lines, between a fixed prefix and a fixed suffix. Nine of ten steps change
/// a single character, so the text is kept and patched. One thread at a time.
class RunningNumber {
  public:
    /// Bytes that put() writes, whatever the number.
    static constexpr size_t kTextBytes = 16;

    /// `prefix` and `suffix` fit into kTextBytes together with any number. Both pointers must
    /// outlive the object.
    RunningNumber(const char* prefix, const char* suffix);

    /// Writes `value` as printf's "%u" between prefix and suffix, and returns the end. Overwrites
    /// up to kTextBytes bytes of `out`.
    char* put(char* out, uint32_t value) {
        if (value + uint64_t{1} != mNext) {
            advanceTo(value);
        }
        memcpy(out, &mText, sizeof(mText));
        return out + mChars;
    }

  private:
    /// One register: loading a text that was just stored in parts would stall.
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
    /// Added to mText for the next number: 1 at the last digit. mCarry is for a number that ends in
    /// 9: -9 at the last digit, 1 at the one before.
    Text mStep;
    Text mCarry;
    /// The number after the one in mText. 64 bits, since every 32-bit number has a successor.
    uint64_t mNext;
    /// The last numbers that differ from the one in mText in the last digit alone, and in the last
    /// two alone.
    uint64_t mLastOfTen;
    uint64_t mLastOfHundred;
    uint32_t mChars;
};

}  // namespace JCam::Utils::JLog::File
