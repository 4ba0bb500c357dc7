#pragma once

#include <cctype>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <system_error>

#include <cutils/properties.h>

#include "Text.h"

// Values of properties as cutils/properties.h describes them, put as plainly as can be.

namespace JCam::Fuzz {

inline constexpr size_t kMaxValueChars = PROPERTY_VALUE_MAX - 1;

/// Whether a property of this name can be set to the value.
inline bool isStorable(std::string_view key, std::string_view value) {
    return value.size() <= kMaxValueChars || key.starts_with("ro.");
}

/// The number that a value begins with, if there is one and an Integer holds it.
template <typename Integer>
std::optional<Integer> numberOf(std::string_view value) {
    value = trimmed(value.substr(0, kMaxValueChars), " \t\n\v\f\r");
    const bool negative = value.starts_with('-');
    if (negative || value.starts_with('+')) {
        value.remove_prefix(1);
    }
    int base = 10;
    if (value.size() > 2 && (value.starts_with("0x") || value.starts_with("0X")) &&
        isxdigit(static_cast<unsigned char>(value[2])) != 0) {
        base = 16;
        value.remove_prefix(2);
    } else if (value.starts_with('0')) {
        base = 8;
    }
    uint64_t number = 0;
    const auto [parsed, error] =
            std::from_chars(value.data(), value.data() + value.size(), number, base);
    constexpr auto kHighest = static_cast<uint64_t>(std::numeric_limits<Integer>::max());
    if (error != std::errc() || number > (negative ? kHighest + 1 : kHighest)) {
        return std::nullopt;
    }
    return static_cast<Integer>(negative ? ~number + 1 : number);
}

}  // namespace JCam::Fuzz
