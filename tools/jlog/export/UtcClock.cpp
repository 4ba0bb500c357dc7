#include "tools/jlog/export/UtcClock.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace JCam::Tool {

namespace {

constexpr int64_t kSecond = 1000000;
/// Zones change their distance to UTC at full hours of it.
constexpr int64_t kHour = 3600 * kSecond;

/// libc takes a name that it does not know for UTC, without a word.
bool isKnown(const std::string& name) {
    const bool hasRules = name.find_first_of("0123456789") != std::string::npos;
    const char* const folder = std::getenv("TZDIR");
    std::error_code error;
    return hasRules || name == "UTC" ||
           std::filesystem::is_regular_file(
                   std::filesystem::path(folder != nullptr ? folder : "/usr/share/zoneinfo") / name,
                   error);
}

/// Local time minus UTC, in microseconds.
int64_t distanceAt(int64_t wall) {
    const time_t seconds = wall / kSecond;
    std::tm civil{};
    gmtime_r(&seconds, &civil);
    civil.tm_isdst = -1;
    return (seconds - std::mktime(&civil)) * kSecond;
}

}  // namespace

void setTimeZone(const std::string& name) {
    if (name.empty()) {
        return;
    }
    if (!isKnown(name)) {
        throw std::invalid_argument("--tz: '" + name + "' is not a time zone");
    }
    setenv("TZ", name.c_str(), 1);
    tzset();
}

UtcClock::UtcClock(const Analysis& log) {
    mSpans.push_back({.offset = distanceAt(log.firstTime)});
    int64_t begin = log.firstTime;
    int64_t stepped = 0;
    for (size_t i = 0; i <= log.steps.size(); ++i) {
        const bool isLast = i == log.steps.size();
        const int64_t end = isLast ? log.lastTime + 1 : log.steps[i].time;
        const int64_t firstHour = (begin + stepped) / kHour * kHour;
        int64_t distance = distanceAt(firstHour);
        for (int64_t wall = firstHour + kHour; wall < end + stepped; wall += kHour) {
            const int64_t before = std::exchange(distance, distanceAt(wall));
            if (distance > before) {
                mSpans.push_back({wall - stepped, mSpans.back().offset + distance - before});
            }
        }
        begin = end;
        stepped = isLast ? 0 : log.steps[i].offset;
    }
}

void UtcClock::enterSpan(int64_t time) {
    const auto behind =
            std::upper_bound(mSpans.begin() + 1, mSpans.end(), time,
                             [](int64_t wanted, const Span& span) { return wanted < span.begin; });
    mBegin = behind[-1].begin;
    mOffset = behind[-1].offset;
    mEnd = behind == mSpans.end() ? INT64_MAX : behind->begin;
}

}  // namespace JCam::Tool
