#pragma once

// The outcome of a binder call: the part of libbinder_ndk's interface that the library and its
// tests use. A C header, as on a device. Any thread.

// NOLINTBEGIN(modernize-*): C declarations
#include <errno.h>
#include <stdbool.h>
#include <stdint.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

enum {
    STATUS_OK = 0,
    STATUS_DEAD_OBJECT = -EPIPE,
};
/// One of the constants above.
typedef int32_t binder_status_t;

typedef struct AStatus AStatus;

/// A new status, to be freed by AStatus_delete.
AStatus* AStatus_newOk(void) __attribute__((warn_unused_result));
AStatus* AStatus_fromStatus(binder_status_t status) __attribute__((warn_unused_result));
bool AStatus_isOk(const AStatus* status);
/// Null is allowed.
void AStatus_delete(AStatus* status);

#ifdef __cplusplus
}  // extern "C"
#endif
#pragma GCC visibility pop
// NOLINTEND(modernize-*)
