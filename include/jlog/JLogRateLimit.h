#pragma once

#include <atomic>
#include <cstdint>

#include "jlog/JLogExport.h"

namespace JCam::Utils::JLog {

/// Admits one call per interval and counts those that it holds back in between. Each call site of
/// JLOGD_EVERY_MS and the like has one, so that its lines can tell how many there were. Any thread;
/// no lock, no allocation. A static object is there before any code runs.
class JLOG_EXPORT JLogRateLimit {
  public:
    /// Admits the first call.
    constexpr JLogRateLimit() = default;

    /// Returns whether this call is admitted: it is the first one, or the last one that was
    /// admitted came at least `intervalMs` milliseconds ago. If so, `heldBack` receives the number
    /// of calls that were held back since then (it wraps at 2^32). Of calls at the same time one is
    /// admitted. An interval of 0 or less admits every call. The clock stands still while the
    /// device is suspended.
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
