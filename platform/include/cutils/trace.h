#pragma once

// Trace categories: the part of libcutils' interface that the library uses. A C header, as on a
// device.

// NOLINTBEGIN(modernize-*): C declarations
#include <stdint.h>

/// Set in the enabled categories until the trace library has read them.
#define ATRACE_TAG_NOT_READY (1ULL << 63)

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/// The enabled trace categories (ATRACE_TAG_...). Do not take its address: in older releases of
/// Android it is a static inline function.
uint64_t atrace_get_enabled_tags(void);

#ifdef __cplusplus
}  // extern "C"
#endif
#pragma GCC visibility pop
// NOLINTEND(modernize-*)
