#pragma once

#include <cstdarg>
#include <cstddef>

#include "jlog/file/PathText.h"

// printf without stdio. A signal handler may use it: the functions of libc may allocate, lock, or
// read the locale. It knows what its callers need: %s, %d, %u, %x and %p, with a field width that
// may begin with a 0 for zeros in place of blanks. At any other conversion the formatting ends, and
// the rest of the format is copied as it stands.
namespace JCam::Utils::JLog::File {

/// Writes at most `room` - 1 characters and a NUL to `out`; `room` is above 0. Returns the length
/// of the whole text. A null string reads "(null)", a null pointer "0x0".
size_t vformatText(char* out, size_t room, const char* format, va_list arguments)
        __attribute__((format(printf, 3, 0)));

/// The same for arguments.
size_t formatText(char* out, size_t room, const char* format, ...)
        __attribute__((format(printf, 3, 4)));

/// Formats a path. One that does not fit becomes empty: cut, it would name another file.
void formatPath(PathText& path, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace JCam::Utils::JLog::File
