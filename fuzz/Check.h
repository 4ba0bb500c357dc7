#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
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

/// The same for two texts that are to be equal. Tells where they differ first.
inline void checkEqual(std::string_view actual, std::string_view expected, const char* what) {
    if (actual != expected) {
        const auto end =
                std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
        fprintf(stderr, "%zu bytes, expected %zu; they differ from byte %td on\n", actual.size(),
                expected.size(), end.first - actual.begin());
        check(false, what);
    }
}

}  // namespace JCam::Fuzz
