#pragma once

#include <atomic>
#include <cstdint>

#include "jlog/JLogExport.h"

namespace JCam::Utils::JLog {

/// Lets one call through in a while, and counts those that it holds back: the state of one call
/// site of JLOGD_EVERY_MS and its kin. Any thread; no lock, no allocation. A static one is there
/// before any code runs.
class JLOG_EXPORT JLogRateLimit {
  public:
    /// Lets the first call through.
    constexpr JLogRateLimit() = default;

    /// Whether this call may go on: if the last one that did came `intervalMs` milliseconds ago or
    /// earlier. Then `heldBack` receives how many calls may not have since (wraps at 2^32). Of
    /// calls that come at once one may. The clock stands still while the device is suspended.
    [[nodiscard]] bool admit(int64_t intervalMs, unsigned int& heldBack) noexcept;

  private:
    static constexpr int64_t kNever = -1;

    // Relaxed: each is complete in itself, and publishes nothing.

    /// When the last call was let through, in milliseconds of the monotonic clock.
    std::atomic<int64_t> mLastMs{kNever};
    /// Held back since.
    std::atomic<uint32_t> mHeldBack{0};
};

}  // namespace JCam::Utils::JLog
