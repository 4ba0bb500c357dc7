// Allocations that can fail: those of libc, too, where no sanitizer has a heap of its own.

#include <cstddef>
#include <cstdlib>
#include <new>

#include "support/Faults.h"

namespace {

bool strikes(const void* caller) {
    using namespace JCam::Support;
    return Faults::strikes(Faults::Call::ALLOCATE, caller);
}

}  // namespace

#pragma GCC visibility push(default)

#if !defined(JCAM_SANITIZED)

extern "C" {

// glibc's own names for its heap.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

void* malloc(size_t size) {
    return strikes(__builtin_return_address(0)) ? nullptr : __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
    return strikes(__builtin_return_address(0)) ? nullptr : __libc_calloc(count, size);
}
void* realloc(void* memory, size_t size) {
    return strikes(__builtin_return_address(0)) ? nullptr : __libc_realloc(memory, size);
}
void* aligned_alloc(size_t alignment, size_t size) {
    return strikes(__builtin_return_address(0)) ? nullptr : __libc_memalign(alignment, size);
}

}  // extern "C"

#else

namespace {

void* allocate(size_t size, size_t alignment, const void* caller) {
    void* memory = nullptr;
    if (strikes(caller) || posix_memalign(&memory, alignment, size) != 0) {
        return nullptr;
    }
    return memory;
}

}  // namespace

// NOLINTBEGIN(misc-new-delete-overloads,cert-dcl54-cpp): one delete serves several of them

void* operator new(size_t size, std::align_val_t alignment) {
    void* memory = allocate(size, static_cast<size_t>(alignment), __builtin_return_address(0));
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
void* operator new(size_t size) {
    return operator new(size, std::align_val_t(__STDCPP_DEFAULT_NEW_ALIGNMENT__));
}
void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return allocate(size, __STDCPP_DEFAULT_NEW_ALIGNMENT__, __builtin_return_address(0));
}
void* operator new(size_t size, std::align_val_t alignment,
                   const std::nothrow_t& /*tag*/) noexcept {
    return allocate(size, static_cast<size_t>(alignment), __builtin_return_address(0));
}
void operator delete(void* memory) noexcept {
    free(memory);
}
void operator delete(void* memory, size_t /*size*/) noexcept {
    free(memory);
}
void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept {
    free(memory);
}
void operator delete(void* memory, size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
    free(memory);
}

// NOLINTEND(misc-new-delete-overloads,cert-dcl54-cpp)

#endif

#pragma GCC visibility pop
