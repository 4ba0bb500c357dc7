#pragma once

// System properties: the part of libcutils' interface that the library and its tests use. A C
// header, as on a device. Here the properties live in the process; JCAM_PROPERTIES names a file
// with initial ones.
//
// Threads: any function on any thread, also before main and during static destruction. A reader
// waits for a writer only while that stores one value. fork does not reset the lock: the child of a
// threaded process must not use properties, as POSIX says of malloc.

// NOLINTBEGIN(modernize-deprecated-headers): a C header
#include <stdint.h>
// NOLINTEND(modernize-deprecated-headers)

/// Historical; keys may be longer.
#define PROPERTY_KEY_MAX 32
/// Bytes for any value with its NUL.
#define PROPERTY_VALUE_MAX 92

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/// Copies the value of `key` to `value`, which has PROPERTY_VALUE_MAX bytes, and returns its
/// length. Uses `default_value`, or an empty string if that is null, for an absent or empty
/// property. Cuts what does not fit.
int property_get(const char* key, char* value, const char* default_value);

/// The number at the start of the value, octal after 0 and hexadecimal after 0x. Blanks may precede
/// it and anything may follow it. Returns `default_value` for an absent property, a value without a
/// number and a number out of range.
int32_t property_get_int32(const char* key, int32_t default_value);
int64_t property_get_int64(const char* key, int64_t default_value);

/// Stores a property; a null value is an empty one. Returns 0, or -1 if the key is null or empty,
/// or if the value does not fit PROPERTY_VALUE_MAX and the key does not start with "ro.".
int property_set(const char* key, const char* value);

#ifdef __cplusplus
}  // extern "C"
#endif
#pragma GCC visibility pop
