#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/jlog/analysis/Analysis.h"

namespace JCam::Tool {

/// Makes `name` the time zone of this process, and with it of each UtcClock made from now on. Takes
/// what the variable TZ may hold: "Europe/Berlin", or "CET-1CEST,M3.5.0,M10.5.0/3". Empty: leaves
/// it as it is. A name that nobody knows throws std::runtime_error with a message for the user.
void setTimeZone(const std::string& name);

/// Turns Entry::time of a series into UTC.
///
/// The zone says how far UTC is when the series begins. From there on Entry::time has no part in
/// what was found to be a step of the clock, be it by hand or by the end of summer time. One step
/// is not found: an hour that is missing when summer time begins looks like an hour without a
/// record. So the zone is asked again for each hour between two steps, and followed where it leaves
/// out time.
class UtcClock {
  public:
    /// The log has a record.
    explicit UtcClock(const Analysis& log);

    /// Nanoseconds since 1970 of an Entry::time, microseconds.
    [[nodiscard]] int64_t nanoseconds(int64_t time) {
        if (time < mBegin || time >= mEnd) [[unlikely]] {
            enterSpan(time);
        }
        return (time - mOffset) * 1000;
    }

  private:
    struct Span {
        int64_t begin = INT64_MIN;
        int64_t offset = 0;  // Entry::time minus UTC, in microseconds
    };
    void enterSpan(int64_t time);

    std::vector<Span> mSpans;
    int64_t mOffset = 0;
    int64_t mBegin = 0;  // of the times that have this offset
    int64_t mEnd = 0;
};

}  // namespace JCam::Tool
