#pragma once

#include <concepts>

namespace JCam::Utils::JLog {

/// The sum of two numbers that may wrap. A device's build ends the process where a plain unsigned
/// sum wraps.
template <std::unsigned_integral Number>
constexpr Number wrappingSum(Number a, Number b) {
    Number sum = 0;
    static_cast<void>(__builtin_add_overflow(a, b, &sum));
    return sum;
}

}  // namespace JCam::Utils::JLog
