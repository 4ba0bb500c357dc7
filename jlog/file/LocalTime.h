#pragma once

#include <cstdint>
#include <ctime>

// Local time, with the time-zone code of libc and without it. That code takes a lock, allocates and
// opens files, so nothing may call it after a fatal signal. Then the last UTC offset that ordinary
// code has stored serves.
namespace JCam::Utils::JLog::File {

/// `seconds` since the epoch in the process's time zone; all zero when they have no local form.
/// Not signal-safe.
tm localTime(time_t seconds);

/// Stores the current UTC offsets for cachedUtcOffset(). Any thread. Not signal-safe.
void refreshUtcOffsets();

/// The seconds by which local time was ahead of UTC at the last refresh; 0 before the first one.
/// Lines show a reading of CLOCK_MONOTONIC as seconds since the epoch, so its offset is the zone's
/// of 1970. Signal-safe.
int64_t cachedUtcOffset(clockid_t clock);

/// Local time by the cached offset of `clock` and arithmetic alone: year, month, day, hour, minute
/// and second are set, nothing else. Signal-safe.
tm cachedLocalTime(time_t seconds, clockid_t clock);

}  // namespace JCam::Utils::JLog::File
