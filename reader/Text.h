#pragma once

#include <charconv>
#include <concepts>
#include <cstddef>
#include <string_view>
#include <system_error>

// Each function takes what it is asked for off the front of `text` and returns true, or takes
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

}  // namespace JCam::Reader
