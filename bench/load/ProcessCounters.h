#pragma once

#include <cstdint>

namespace JCam::Bench {

/// The kernel's counters of this process.
struct ProcessCounters {
    double cpuSeconds{0};
    /// Wake-ups of all threads but the calling one, since they started.
    uint64_t wakeUps{0};
    uint64_t residentKib{0};

    static ProcessCounters read();
};

/// Allocations of this thread by operator new, and by mmap outside of libc. A program that links
/// this file replaces both functions.
uint64_t allocationsOfThisThread();

}  // namespace JCam::Bench
