#pragma once

#include <concepts>

namespace JCam::Utils::JLog {

/// The sum of two numbers of a kind that is meant to wrap. Said so, because a device's build ends
/// the process where an unsigned sum wraps unannounced.
template <std::unsigned_integral Number>
constexpr Number wrappingSum(Number a, Number b) {
    Number sum = 0;
    static_cast<void>(__builtin_add_overflow(a, b, &sum));
    return sum;
}

}  // namespace JCam::Utils::JLog
