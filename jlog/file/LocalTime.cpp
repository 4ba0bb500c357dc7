#include "jlog/file/LocalTime.h"

#include <atomic>

namespace JCam::Utils::JLog::File {

namespace {

// Relaxed: each is complete in itself, and threads that refresh at the same moment store the same.
std::atomic<int64_t> sRealtimeOffset{0};
std::atomic<int64_t> sMonotonicOffset{0};

int64_t currentOffset(clockid_t clock) {
    timespec now = {};
    clock_gettime(clock, &now);
    return localTime(now.tv_sec).tm_gmtoff;
}

}  // namespace

tm localTime(time_t seconds) {
    tm local = {};
    return localtime_r(&seconds, &local) != nullptr ? local : tm{};
}

tm cachedLocalTime(time_t seconds, clockid_t clock) {
    constexpr int64_t kSecondsPerDay = 86400;
    constexpr int64_t kSecondsPerHour = 3600;
    constexpr int64_t kSecondsPerMinute = 60;
    // Some 31 million years. Only a damaged record is beyond that.
    constexpr int64_t kMaxSeconds = 1000000000000000;
    if (seconds < -kMaxSeconds || seconds > kMaxSeconds) {
        return {};
    }
    const int64_t shifted = seconds + cachedUtcOffset(clock);
    const int64_t secondOfDay = ((shifted % kSecondsPerDay) + kSecondsPerDay) % kSecondsPerDay;
    const int64_t days = (shifted - secondOfDay) / kSecondsPerDay;

    // From days to a date, as usual: years begin in March, so that the leap day is the last one,
    // and eras of 400 years all have the same length.
    constexpr int64_t kDaysPerEra = 146097;
    constexpr int64_t kDaysToEpoch = 719468;  // from the March before year 0
    const int64_t fromYear0 = days + kDaysToEpoch;
    const int64_t dayOfEra = ((fromYear0 % kDaysPerEra) + kDaysPerEra) % kDaysPerEra;
    const int64_t era = (fromYear0 - dayOfEra) / kDaysPerEra;
    const int64_t yearOfEra =
            (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const int64_t monthFromMarch = (5 * dayOfYear + 2) / 153;
    const int64_t month = monthFromMarch < 10 ? monthFromMarch + 2 : monthFromMarch - 10;
    const int64_t year = era * 400 + yearOfEra + (month <= 1 ? 1 : 0);

    tm result = {};
    result.tm_year = static_cast<int>(year - 1900);
    result.tm_mon = static_cast<int>(month);
    result.tm_mday = static_cast<int>(dayOfYear - (153 * monthFromMarch + 2) / 5 + 1);
    result.tm_hour = static_cast<int>(secondOfDay / kSecondsPerHour);
    result.tm_min = static_cast<int>(secondOfDay % kSecondsPerHour / kSecondsPerMinute);
    result.tm_sec = static_cast<int>(secondOfDay % kSecondsPerMinute);
    return result;
}

void refreshUtcOffsets() {
    sRealtimeOffset.store(currentOffset(CLOCK_REALTIME), std::memory_order_relaxed);
    sMonotonicOffset.store(currentOffset(CLOCK_MONOTONIC), std::memory_order_relaxed);
}

int64_t cachedUtcOffset(clockid_t clock) {
    return (clock == CLOCK_MONOTONIC ? sMonotonicOffset : sRealtimeOffset)
            .load(std::memory_order_relaxed);
}

}  // namespace JCam::Utils::JLog::File
