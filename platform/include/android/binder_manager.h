#pragma once

// The service manager: the part of libbinder_ndk's interface that the library uses. A C header, as
// on a device. What is declared and what runs is decided by <host/ServiceRegistry.h> here. Any
// thread.

// NOLINTNEXTLINE(modernize-deprecated-headers): a C header
#include <stdbool.h>

#include <android/binder_ibinder.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/// Whether the device's manifest declares this instance of a service, running or not. API 31.
bool AServiceManager_isDeclared(const char* instance);

/// The service if it runs, with a strong reference of the caller's, or null; does not wait for it
/// to start.
AIBinder* AServiceManager_checkService(const char* instance) __attribute__((warn_unused_result));

#ifdef __cplusplus
}  // extern "C"
#endif
#pragma GCC visibility pop
