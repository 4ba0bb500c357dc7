#pragma once

#include <algorithm>
#include <charconv>
#include <concepts>
#include <cstddef>
#include <string_view>
#include <system_error>

// A function that takes something takes it off the front of `text` and returns true, or takes
// nothing and returns false.

namespace JCam::Reader {

inline bool take(std::string_view& text, std::string_view expected) {
    const bool found = text.starts_with(expected);
    text.remove_prefix(found ? expected.size() : 0);
    return found;
}

/// A sign is taken for signed types alone.
template <std::integral T>
bool takeNumber(std::string_view& text, T& number, int base = 10) {
    const char* const begin = text.data();
    const auto [end, error] = std::from_chars(begin, begin + text.size(), number, base);
    text.remove_prefix(error == std::errc() ? static_cast<size_t>(end - begin) : 0);
    return error == std::errc();
}

/// Whether `text` begins with the characters of `shape`, and a digit where that has a 0.
inline bool hasShape(std::string_view text, std::string_view shape) {
    return text.size() >= shape.size() &&
           std::equal(shape.begin(), shape.end(), text.begin(), [](char expected, char c) {
               return expected == '0' ? c >= '0' && c <= '9' : c == expected;
           });
}

}  // namespace JCam::Reader
