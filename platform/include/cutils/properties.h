#pragma once

// System properties: the part of libcutils' interface that the library and its tests use. A C
// header, as on a device. Here the properties live in the process; JCAM_PROPERTIES names a file of
// them to start with.
//
// Threads: any function on any thread, also before main and during static destruction. A reader
// waits for a writer only while that stores one value. The lock is not reset by fork: in the child
// of a threaded process properties are as unsafe as malloc is by the letter of POSIX.

// NOLINTBEGIN(modernize-deprecated-headers): a C header
#include <stdint.h>
// NOLINTEND(modernize-deprecated-headers)

/// Historical; keys may be longer.
#define PROPERTY_KEY_MAX 32
/// Room for any value with its terminator.
#define PROPERTY_VALUE_MAX 92

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/// Copies the value of `key` to `value`, an area of PROPERTY_VALUE_MAX bytes, and returns its
/// length. An absent or empty property gives `default_value`, or an empty string when that is null.
/// What is longer than the area is cut.
int property_get(const char* key, char* value, const char* default_value);

/// The number that the value begins with, in octal after 0 and in hexadecimal after 0x; blanks may
/// stand before it, and anything behind it. An absent property, a value that begins with no number
/// and a number too large give `default_value`.
int32_t property_get_int32(const char* key, int32_t default_value);
int64_t property_get_int64(const char* key, int64_t default_value);

/// Stores a property; a null value is an empty one. 0, or -1 when the key is null or empty, or when
/// the value does not fit PROPERTY_VALUE_MAX and the key does not start with "ro.".
int property_set(const char* key, const char* value);

#ifdef __cplusplus
}  // extern "C"
#endif
#pragma GCC visibility pop
