#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>

// Numbers as text, without printf: nothing is allocated, locked or read from the locale, so a
// signal handler may use it. Each function writes at `out`, which must have room, and returns the
// end.
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

/// The two characters of `value`, which is below 100, the first in the lower byte.
inline uint64_t twoDigits(unsigned int value) {
    uint16_t pair = 0;
    memcpy(&pair, kDigitPairs + (2 * static_cast<size_t>(value)), sizeof(pair));
    return pair;
}

/// The microseconds of `nanoseconds` as printf's ".%06ld", truncated. For any reading of a clock it
/// is a single store, of 8 bytes.
inline char* putFraction(char* out, long nanoseconds) {
    constexpr unsigned long kNanosecondsPerSecond = 1000000000;
    if (static_cast<unsigned long>(nanoseconds) < kNanosecondsPerSecond) [[likely]] {
        const unsigned int micros = static_cast<unsigned int>(nanoseconds) / 1000;
        const uint64_t text = uint64_t{'.'} | twoDigits(micros / 10000) << 8 |
                              twoDigits(micros / 100 % 100) << 24 | twoDigits(micros % 100) << 40;
        memcpy(out, &text, sizeof(text));
        return out + 7;
    }
    *out++ = '.';
    // No clock gives this; a damaged record may.
    constexpr size_t kWidth = 6;
    const long micros = nanoseconds / 1000;
    char digits[20];
    if (micros < 0) {
        *out++ = '-';
    }
    const auto magnitude = static_cast<unsigned long>(micros < 0 ? -micros : micros);
    const auto count = static_cast<size_t>(putNumber(digits, magnitude) - digits);
    const size_t width = micros < 0 ? kWidth - 1 : kWidth;
    for (size_t i = count; i < width; ++i) {
        *out++ = '0';
    }
    memcpy(out, digits, count);
    return out + count;
}

}  // namespace JCam::Utils::JLog::File
