#pragma once

#include <chrono>
#include <cstdint>

#if defined(__x86_64__)
#include <x86intrin.h>
#endif

namespace JCam::Bench {

/// The processor's cheapest clock, for single calls: two readings cost less than one call of any
/// logger here. The constructor measures the rate of its ticks.
class CycleClock {
  public:
    static uint64_t now() {
#if defined(__x86_64__)
        return __rdtsc();
#elif defined(__aarch64__)
        uint64_t ticks = 0;
        asm volatile("mrs %0, cntvct_el0" : "=r"(ticks));
        return ticks;
#else
        return static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
#endif
    }

    /// Takes 20 ms.
    CycleClock() {
        using Steady = std::chrono::steady_clock;
        constexpr std::chrono::milliseconds kSpan(20);
        const Steady::time_point begin = Steady::now();
        const uint64_t beginTicks = now();
        Steady::time_point end = begin;
        while (end - begin < kSpan) {
            end = Steady::now();
        }
        const std::chrono::duration<double, std::nano> span = end - begin;
        mNsPerTick = span.count() / static_cast<double>(now() - beginTicks);
    }

    [[nodiscard]] double toNs(uint64_t ticks) const {
        return static_cast<double>(ticks) * mNsPerTick;
    }

  private:
    double mNsPerTick;
};

}  // namespace JCam::Bench
