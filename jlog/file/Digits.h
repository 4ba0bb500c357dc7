#pragma once

#include <array>
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

/// ".000.001" to ".999", and a character to be read along with the last one.
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

/// The microseconds of `nanoseconds` as printf's ".%06ld", truncated, for what no clock reads but a
/// damaged record may hold.
char* putOddFraction(char* out, long nanoseconds);

/// The same for any. May write one byte more.
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

}  // namespace JCam::Utils::JLog::File
