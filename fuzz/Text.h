#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <vector>

namespace JCam::Fuzz {

/// `text` without the characters of `blanks` at either end.
inline std::string_view trimmed(std::string_view text, std::string_view blanks) {
    const size_t begin = text.find_first_not_of(blanks);
    return begin == std::string_view::npos
                   ? std::string_view()
                   : text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

/// What stands between runs of the characters of `separators`.
inline std::vector<std::string_view> tokens(std::string_view text, std::string_view separators) {
    std::vector<std::string_view> result;
    for (size_t begin = 0; (begin = text.find_first_not_of(separators, begin)) < text.size();) {
        const size_t end = std::min(text.find_first_of(separators, begin), text.size());
        result.push_back(text.substr(begin, end - begin));
        begin = end;
    }
    return result;
}

}  // namespace JCam::Fuzz
