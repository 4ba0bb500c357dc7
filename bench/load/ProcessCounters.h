#pragma once

#include <cstdint>

namespace JCam::Bench {

/// What the kernel has counted of this process.
struct ProcessCounters {
    double cpuSeconds{0};
    /// Times that threads other than the calling one have slept and woken, over their life.
    uint64_t wakeUps{0};
    uint64_t residentKib{0};

    static ProcessCounters read();
};

/// Allocations that this thread has made: by operator new, and by mmap outside of libc. Every
/// program that links this counts.
uint64_t allocationsOfThisThread();

}  // namespace JCam::Bench
