#pragma once

// Binder objects: the part of libbinder_ndk's interface that the library and its tests use. A C
// header, as on a device. Any thread.

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

// NOLINTNEXTLINE(modernize-use-using): a C declaration
typedef struct AIBinder AIBinder;

/// Releases a strong reference; the last one destroys the object.
void AIBinder_decStrong(AIBinder* binder);

#ifdef __cplusplus
}  // extern "C"
#endif
#pragma GCC visibility pop
