#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "jlog/file/LogRecord.h"

// The text of a record behind the date part of its line. It is the whole work of the flush thread
// and of a crash dump: no printf, no allocation, no lock, nothing of the locale, signal-safe.
namespace JCam::Utils::JLog::File {

/// Bytes that any line behind its date fits into: microseconds, pid, tid, level, name, message and
/// what stands between them come to less than 100 + 128 + 1023.
inline constexpr size_t kMaxLineBytes = 1280;

/// Holds " PPPPP ", the process id as it stands in every line.
inline constexpr size_t kPidTextBytes = 16;
/// Renders it, without a NUL, and returns its length.
size_t renderPid(char (&out)[kPidTextBytes], int32_t pid);

enum class Direction : char { ENTER = '+', EXIT = '-' };

/// Each writes at `out`, which has kMaxLineBytes, and returns the end; the line ends in a newline.
/// What lies behind it may have been overwritten: copies of a fixed size are a few instructions,
/// and others a call. `pid` is what renderPid gave, in its array.
char* renderEnterExit(char* out, std::string_view pid, const LogEnterExit& record,
                      Direction direction);
char* renderDetails(char* out, std::string_view pid, const LogDetails& record);

}  // namespace JCam::Utils::JLog::File
