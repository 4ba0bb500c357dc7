#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace JCam::Fuzz {

/// Ends the process unless `holds`, so that the fuzzer keeps its input. Unlike assert() it is there
/// in every build.
inline void check(bool holds, const char* what) {
    if (!holds) {
        fprintf(stderr, "check failed: %s\n", what);
        abort();
    }
}

/// `text` with all but printable characters as "\xNN".
inline std::string escaped(std::string_view text) {
    std::string result;
    for (const char character : text) {
        const auto code = static_cast<unsigned char>(character);
        char form[8];
        snprintf(form, sizeof(form), code >= ' ' && code <= '~' ? "%c" : "\\x%02x", code);
        result += form;
    }
    return result;
}

/// The same for two texts that are to be equal. Shows where they part.
inline void checkEqual(std::string_view actual, std::string_view expected, const char* what) {
    if (actual == expected) {
        return;
    }
    constexpr size_t kShownBytes = 60;
    const auto parted =
            std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
    const auto place = static_cast<size_t>(parted.first - actual.begin());
    const size_t begin = place - std::min(place, kShownBytes);
    fprintf(stderr, "%zu bytes, expected %zu; they part at %zu:\n  %s\n  %s\n", actual.size(),
            expected.size(), place, escaped(actual.substr(begin, 2 * kShownBytes)).c_str(),
            escaped(expected.substr(begin, 2 * kShownBytes)).c_str());
    check(false, what);
}

}  // namespace JCam::Fuzz
