#pragma once

#include <cstdint>
#include <ctime>

// Local time, with the time-zone code of libc and without it. That code takes a lock, allocates and
// opens files, so nothing that runs after a fatal signal may call it. There, seconds are shifted by
// the UTC offset that ordinary code has found out last.
namespace JCam::Utils::JLog::File {

/// `seconds` since the epoch in the process's time zone; all zero when they have no local form.
/// Not signal-safe.
tm localTime(time_t seconds);

/// Finds out the current UTC offsets for cachedUtcOffset(). Any thread. Not signal-safe.
void refreshUtcOffsets();

/// By how many seconds local time was ahead of UTC at the last refresh; 0 before the first one. For
/// CLOCK_MONOTONIC it is the offset of its reading taken as seconds since the epoch, as it stands
/// in the lines of a log: that of 1970, whatever the zone has done since. Signal-safe.
int64_t cachedUtcOffset(clockid_t clock);

/// Local time by the cached offset of `clock` and arithmetic alone: year, month, day, hour, minute
/// and second are set, nothing else. Signal-safe.
tm cachedLocalTime(time_t seconds, clockid_t clock);

}  // namespace JCam::Utils::JLog::File
