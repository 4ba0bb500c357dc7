#pragma once

#include <sys/resource.h>

#include <algorithm>
#include <cstdint>

namespace JCam::Bench {

/// Tells a call that waits for another thread from one whose thread merely loses its core. Who
/// waits gives the core up, which the kernel counts as a voluntary switch of the thread; who is
/// preempted does not. A thread that spins gives nothing up, and is not seen here.
class Waits {
  public:
    /// Switches before this do not count.
    void begin() { mSwitches = voluntarySwitches(); }

    /// Asks whether a call that took `ticks` has waited. Asking costs as much as several calls, so
    /// ask only after calls long enough to hold a switch.
    void look(uint64_t ticks) {
        const int64_t switches = voluntarySwitches();
        if (switches != mSwitches) {
            mCount += switches - mSwitches;
            mLongest = std::max(mLongest, ticks);
            mSwitches = switches;
        }
    }

    [[nodiscard]] int64_t count() const { return mCount; }
    /// Ticks of the longest call that has waited. It may have been preempted, too.
    [[nodiscard]] uint64_t longest() const { return mLongest; }

  private:
    /// Of the calling thread, since it began.
    static int64_t voluntarySwitches() {
        rusage usage = {};
        getrusage(RUSAGE_THREAD, &usage);
        return usage.ru_nvcsw;
    }

    int64_t mSwitches{0};
    int64_t mCount{0};
    uint64_t mLongest{0};
};

}  // namespace JCam::Bench
