#include "jlog/JLogRateLimit.h"

#include <ctime>

namespace JCam::Utils::JLog {

using std::memory_order_relaxed;

bool JLogRateLimit::admit(int64_t intervalMs, unsigned int& heldBack) noexcept {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const int64_t nowMs = int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
    int64_t lastMs = mLastMs.load(memory_order_relaxed);
    const bool isDue = lastMs == kNever || nowMs - lastMs >= intervalMs;
    if (intervalMs <= 0) {
        mLastMs.store(nowMs, memory_order_relaxed);
    } else if (!isDue || !mLastMs.compare_exchange_strong(lastMs, nowMs, memory_order_relaxed)) {
        mHeldBack.fetch_add(1, memory_order_relaxed);
        return false;
    }
    heldBack = mHeldBack.exchange(0, memory_order_relaxed);
    return true;
}

}  // namespace JCam::Utils::JLog
