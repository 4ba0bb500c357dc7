#pragma once

#include <cstdarg>
#include <cstddef>

// printf's formats without stdio, whose functions may allocate, lock or ask for the locale: a
// signal handler may use it. It knows the integer, character, string and pointer conversions with
// the flags
// '-' and '0', width, precision and length modifiers. Any other conversion, of a floating-point
// number for example, ends the formatting: from there on the format itself is the text.
namespace JCam::Utils::JLog::File {

/// Writes at most `room` - 1 characters and a NUL to `out`; `room` is above 0. Returns how many
/// characters the whole text has. A null string reads "(null)", a null pointer "0x0".
size_t formatText(char* out, size_t room, const char* format, ...)
        __attribute__((format(printf, 3, 4)));
size_t vformatText(char* out, size_t room, const char* format, va_list arguments)
        __attribute__((format(printf, 3, 0)));

}  // namespace JCam::Utils::JLog::File
