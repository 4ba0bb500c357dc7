#pragma once

#include <cstddef>
#include <ctime>

// Dates as text, without strftime, which asks for the locale. Signal-safe.
namespace JCam::Utils::JLog::File {

/// Characters of "MM-DD hh:mm:ss".
inline constexpr size_t kDateChars = 14;
/// Bytes that hold "YYYY_MMDD_hhmmss" of any year, with a NUL.
inline constexpr size_t kSeriesStampBytes = 40;

/// Writes "MM-DD hh:mm:ss" to `out`, without a NUL.
void formatDate(char (&out)[kDateChars], const tm& local);

/// Writes the time stamp of a file name, "YYYY_MMDD_hhmmss", to `out`.
void formatSeriesStamp(char (&out)[kSeriesStampBytes], const tm& local);

}  // namespace JCam::Utils::JLog::File
