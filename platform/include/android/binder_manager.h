#pragma once

// The service manager: the part of libbinder_ndk's interface that the library uses. A C header, as
// on a device. Here <host/ServiceRegistry.h> decides which services are declared and which run. Any
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

/// The service if it runs, otherwise null; does not wait for it to start. The caller owns one
/// strong reference.
AIBinder* AServiceManager_checkService(const char* instance) __attribute__((warn_unused_result));

#ifdef __cplusplus
}  // extern "C"
#endif
#pragma GCC visibility pop
