#include "tools/jlog/analysis/WallClock.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>

#include "reader/Text.h"

namespace JCam::Tool {

namespace {

constexpr int64_t kSecond = 1000000;
constexpr int64_t kDay = kSecond * 24 * 3600;

/// The begin of a day, in microseconds since 1970; empty if there is no such day.
std::optional<int64_t> beginOf(int year, int date) {
    const std::chrono::year_month_day day{std::chrono::year(year),
                                          std::chrono::month(static_cast<unsigned int>(date / 100)),
                                          std::chrono::day(static_cast<unsigned int>(date % 100))};
    if (!day.ok()) {
        return std::nullopt;
    }
    return std::chrono::sys_days(day).time_since_epoch().count() * kDay;
}

int yearOf(int64_t wall) {
    const std::chrono::sys_days day(std::chrono::days(wall / kDay - (wall % kDay < 0 ? 1 : 0)));
    return static_cast<int>(std::chrono::year_month_day(day).year());
}

}  // namespace

std::optional<int64_t> parseStart(std::string_view start) {
    if (!Reader::hasShape(start, "0000_0000_000000")) {
        return std::nullopt;
    }
    const auto number = [&](size_t at, size_t digits) {
        int value = 0;
        std::string_view text = start.substr(at, digits);
        static_cast<void>(Reader::takeNumber(text, value));
        return value;
    };
    const std::optional<int64_t> day = beginOf(number(0, 4), number(5, 4));
    if (!day) {
        return std::nullopt;
    }
    return *day + (number(10, 2) * 3600 + number(12, 2) * 60 + number(14, 2)) * kSecond;
}

std::optional<int64_t> dayNear(int date, int64_t near) {
    std::optional<int64_t> best;
    const int nearYear = yearOf(near);
    for (const int year : {nearYear - 1, nearYear, nearYear + 1}) {
        const std::optional<int64_t> day = beginOf(year, date);
        if (day && (!best || std::llabs(*day - near) < std::llabs(*best - near))) {
            best = day;
        }
    }
    return best;
}

void formatWall(int64_t wall, char (&text)[27]) {
    const int64_t inDay = ((wall % kDay) + kDay) % kDay;
    const std::chrono::year_month_day day{
            std::chrono::sys_days(std::chrono::days(wall / kDay - (wall % kDay < 0 ? 1 : 0)))};
    const int64_t seconds = inDay / kSecond;
    // By hand: an export has millions.
    char* out = text;
    const auto put = [&out](int64_t number, int digits, char behind) {
        for (int i = digits; i-- > 0; number /= 10) {
            out[i] = static_cast<char>('0' + number % 10);
        }
        out[digits] = behind;
        out += digits + 1;
    };
    put(std::clamp(static_cast<int>(day.year()), 0, 9999), 4, '-');
    put(static_cast<unsigned int>(day.month()), 2, '-');
    put(static_cast<unsigned int>(day.day()), 2, ' ');
    put(seconds / 3600, 2, ':');
    put(seconds / 60 % 60, 2, ':');
    put(seconds % 60, 2, '.');
    put(inDay % kSecond, 6, '\0');
}

WallClock::WallClock(std::optional<int64_t> start, std::optional<int64_t> bootTime, bool isWhole)
        : mStart(start), mBootTime(bootTime), mIsWhole(isWhole) {}

void WallClock::setDate(uint16_t date, int64_t microseconds) {
    const bool isFirst = !mHasDay;
    mDate = date;
    if (mIsMonotonic) {
        // Counted from the first of January 1970, local time, which west of Greenwich is in 1969.
        mDay = beginOf(date / 100 == 12 ? 1969 : 1970, date).value_or(0) + mOffset;
        return;
    }
    // The year in which it is next to the record before, or to the start.
    const std::optional<int64_t> best = dayNear(date, isFirst ? mStart.value_or(0) : mDay);
    if (!best) {
        // There is no such day: that of the record before, or of the start.
        if (isFirst && mStart) {
            mDay = *mStart - (*mStart % kDay + kDay) % kDay;
        }
        return;
    }
    mHasDay = true;
    mDay = *best;
    if (isFirst && mStart && (mBootTime || isMonotonicStart(*best + microseconds - *mStart))) {
        mIsMonotonic = true;
        const int64_t first = beginOf(date == 1231 ? 1969 : 1970, date).value_or(0) + microseconds;
        mOffset = mBootTime.value_or(*mStart - first);
        mDay = first - microseconds + mOffset;
    }
}

/// Judges by the time from the start of the series to its first record, in the year that makes it
/// least. Nobody logs long before the start. A HAL may idle for days before it logs, and what is
/// left of a series may begin weeks after its start; but a device does not run for months.
bool WallClock::isMonotonicStart(int64_t delay) const {
    constexpr int64_t kMinute = 60 * kSecond;
    return delay < -10 * kMinute || delay > (mIsWhole ? 30 : 90) * kDay;
}

}  // namespace JCam::Tool
