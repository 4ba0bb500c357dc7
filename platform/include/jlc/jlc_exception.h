#pragma once

// The log collector: the interface of the maker's closed library libjlc_vnd.so. A C header. Not
// every product has that library: callers should refer to the function weakly and test whether it
// is null.

// NOLINTBEGIN(modernize-*): C declarations
#include <stddef.h>
#include <stdint.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/// One exception, as the collector takes it: 288 bytes, little-endian.
///
///     0        8     12          24         28         32                 288
///     | time   | id  | zero      | opaque24 | opaque28 | zero             |
typedef struct JlcExceptionRecord {
    int64_t timeSec;       ///< wall clock, seconds since 1970
    uint32_t exceptionId;  ///< the error code
    uint8_t zero12[12];
    uint32_t opaque24;  ///< always 33; only the collector knows the meaning
    uint32_t opaque28;  ///< always 4; likewise
    uint8_t zero32[256];
} JlcExceptionRecord;

/// Raises one exception. The record is used only during the call. Returns 0 on success, anything
/// else on failure.
int jlc_raise_exception(JlcExceptionRecord* record);

#ifdef __cplusplus
}  // extern "C"

static_assert(sizeof(JlcExceptionRecord) == 288);
static_assert(offsetof(JlcExceptionRecord, timeSec) == 0);
static_assert(offsetof(JlcExceptionRecord, exceptionId) == 8);
static_assert(offsetof(JlcExceptionRecord, zero12) == 12);
static_assert(offsetof(JlcExceptionRecord, opaque24) == 24);
static_assert(offsetof(JlcExceptionRecord, opaque28) == 28);
static_assert(offsetof(JlcExceptionRecord, zero32) == 32);
#endif
#pragma GCC visibility pop
// NOLINTEND(modernize-*)
