#pragma once

// Trace categories: the part of libcutils' interface that the library uses. A C header, as on a
// device.

// NOLINTBEGIN(modernize-*): C declarations
#include <stdint.h>

/// Set in the enabled categories until the trace library has looked them up.
#define ATRACE_TAG_NOT_READY (1ULL << 63)

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/// The trace categories (ATRACE_TAG_...) that are enabled. A static inline function in older
/// releases of Android: call it, and take no address of it.
uint64_t atrace_get_enabled_tags(void);

#ifdef __cplusplus
}  // extern "C"
#endif
#pragma GCC visibility pop
// NOLINTEND(modernize-*)
