#pragma once

#include <atomic>
#include <cstdint>

#include "jlog/JLogExport.h"

namespace JCam::Utils::JLog {

/// Admits one call per interval and counts the calls that it holds back in between. Each call site
/// of JLOGD_EVERY_MS and the like has one, and prints the count. Any thread; no lock, no
/// allocation. A static one exists before any code runs.
class JLOG_EXPORT JLogRateLimit {
  public:
    /// Admits the first call.
    constexpr JLogRateLimit() = default;

    /// Returns whether this call is admitted: it is the first one, or the last admitted one was at
    /// least `intervalMs` milliseconds ago. If so, `heldBack` becomes the number of calls held back
    /// since then (it wraps at 2^32). Of simultaneous calls, one is admitted. An interval of 0 or
    /// less admits every call. The clock stands still while the device is suspended.
    [[nodiscard]] bool admit(int64_t intervalMs, unsigned int& heldBack) noexcept;

  private:
    static constexpr int64_t kNever = -1;

    // Relaxed: neither word publishes other data.

    /// When the last call was admitted, in milliseconds of the monotonic clock.
    std::atomic<int64_t> mLastMs{kNever};
    /// Calls held back since then.
    std::atomic<uint32_t> mHeldBack{0};
};

}  // namespace JCam::Utils::JLog
