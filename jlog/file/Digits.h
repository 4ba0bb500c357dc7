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

/// printf's "%5d". Writes up to 20 bytes at `out`, of which those behind the end mean nothing.
inline char* putPadded5(char* out, int32_t value) {
    constexpr std::ptrdiff_t kWidth = 5;
    char digits[16] = {};
    const std::ptrdiff_t count = std::to_chars(digits, digits + sizeof(digits), value).ptr - digits;
    // Copies of a fixed size are a few instructions each, others a call.
    memset(out, ' ', kWidth);
    char* start = count < kWidth ? out + (kWidth - count) : out;
    memcpy(start, digits, sizeof(digits));
    return start + count;
}

/// The microseconds of `nanoseconds` as printf's "%06ld", truncated.
inline char* putMicroseconds(char* out, long nanoseconds) {
    constexpr long kMicrosecondsPerSecond = 1000000;
    const long micros = nanoseconds / 1000;
    if (micros >= 0 && micros < kMicrosecondsPerSecond) [[likely]] {
        const auto value = static_cast<unsigned int>(micros);
        out = putTwoDigits(out, value / 10000);
        out = putTwoDigits(out, value / 100 % 100);
        return putTwoDigits(out, value % 100);
    }
    // No clock gives this; a damaged record may.
    constexpr size_t kWidth = 6;
    char digits[20];
    if (micros < 0) {
        *out++ = '-';
    }
    const auto magnitude = micros < 0 ? 0UL - static_cast<unsigned long>(micros)
                                      : static_cast<unsigned long>(micros);
    const auto count = static_cast<size_t>(putNumber(digits, magnitude) - digits);
    const size_t width = micros < 0 ? kWidth - 1 : kWidth;
    for (size_t i = count; i < width; ++i) {
        *out++ = '0';
    }
    memcpy(out, digits, count);
    return out + count;
}

}  // namespace JCam::Utils::JLog::File
