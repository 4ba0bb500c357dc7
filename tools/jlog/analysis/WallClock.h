#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace JCam::Tool {

/// Microseconds since 1970 of a stamp "YYYY_MMDD_hhmmss", taken for local time; empty if it is
/// none.
[[nodiscard]] std::optional<int64_t> parseStart(std::string_view start);

/// When a day began, in microseconds since 1970, in the year that brings it next to `near`. `date`:
/// month * 100 + day. Empty if there is no such day.
[[nodiscard]] std::optional<int64_t> dayNear(int date, int64_t near);

/// A time of Entry::wall as "YYYY-MM-DD hh:mm:ss.uuuuuu", in 27 characters with the NUL.
void formatWall(int64_t wall, char (&text)[27]);

/// The number of a date "MM-DD", of a Reader::Origin: month * 100 + day.
[[nodiscard]] inline uint16_t dateOf(std::string_view date) {
    const auto digit = [&](size_t i) { return date[i] - '0'; };
    return static_cast<uint16_t>(digit(0) * 1000 + digit(1) * 100 + digit(3) * 10 + digit(4));
}

/// Gives the stamps of a series their year, and finds where the clock was set.
class WallClock {
  public:
    /// `start`: when the series began. `bootTime`: when stamps of the monotonic clock, which are
    /// printed as a local time, read 1970-01-01 00:00. If it is not known it is taken from `start`.
    /// `isWhole`: the first record is the first of the series.
    WallClock(std::optional<int64_t> start, std::optional<int64_t> bootTime, bool isWhole);

    /// The stamp of the next record. `date`: month * 100 + day.
    int64_t wallOf(uint16_t date, int64_t microseconds) {
        if (date != mDate) [[unlikely]] {
            setDate(date, microseconds);
        }
        return mDay + microseconds;
    }

    /// Stamps count from the start of the device and not from 1970.
    [[nodiscard]] bool isMonotonic() const { return mIsMonotonic; }

  private:
    void setDate(uint16_t date, int64_t microseconds);
    [[nodiscard]] bool isMonotonicStart(int64_t delay) const;

    const std::optional<int64_t> mStart;
    const std::optional<int64_t> mBootTime;
    const bool mIsWhole;
    bool mHasDay = false;         // some stamp had a day that exists
    uint16_t mDate = UINT16_MAX;  // of no stamp
    int64_t mDay = 0;             // the begin of mDate
    bool mIsMonotonic = false;
    int64_t mOffset = 0;  // of monotonic stamps
};

}  // namespace JCam::Tool
