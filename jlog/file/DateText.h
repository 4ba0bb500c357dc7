#pragma once

#include <cstddef>
#include <ctime>

namespace JCam::Utils::JLog::File {

/// Characters of "MM-DD hh:mm:ss".
inline constexpr size_t kDateChars = 14;

/// Writes `seconds` since the epoch as local "MM-DD hh:mm:ss" to `out`, without a NUL. A time that
/// has no local form gives "01-00 00:00:00".
void formatDate(char (&out)[kDateChars], time_t seconds);

}  // namespace JCam::Utils::JLog::File
