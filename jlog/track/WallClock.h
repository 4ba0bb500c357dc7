#pragma once

#include <sys/time.h>

#include <cstdint>

namespace JCam::Utils::JLog::Track {

/// Seconds since 1970. The clock may be set back at any time.
inline int64_t wallClockSec() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return now.tv_sec;
}

/// The seconds from `thenSec` to `nowSec`, below 0 if the clock was set back. A clock may show any
/// value: a difference beyond int64_t wraps here, where `-` would trap in a hardened build.
inline int64_t elapsedSec(int64_t thenSec, int64_t nowSec) {
    int64_t elapsed = 0;
    static_cast<void>(__builtin_sub_overflow(nowSec, thenSec, &elapsed));
    return elapsed;
}

}  // namespace JCam::Utils::JLog::Track
