#include "KernelCalls.h"

#include <dlfcn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <utility>

#include "jlog/file/Buffer.h"

namespace JCam::Soak::KernelCalls {

namespace {

// Atomic by the builtins, which a function without instrumentation can use. Relaxed: each number is
// wanted alone.
int sMappedBuffers = 0;
int sMostMappedBuffers = 0;

std::atomic<uint64_t> sWrittenBytes{0};
/// One thread at a time writes log files: the flush thread, and who starts and joins it.
std::vector<uint32_t>& writes() {
    static std::vector<uint32_t> sWrites;
    return sWrites;
}

}  // namespace

int mappedBuffers() {
    return __atomic_load_n(&sMappedBuffers, __ATOMIC_RELAXED);
}
int mostMappedBuffers() {
    return __atomic_load_n(&sMostMappedBuffers, __ATOMIC_RELAXED);
}
uint64_t writtenBytes() {
    return sWrittenBytes.load(std::memory_order_relaxed);
}
std::vector<uint32_t> takeWrites() {
    return std::exchange(writes(), {});
}

}  // namespace JCam::Soak::KernelCalls

using namespace JCam::Soak::KernelCalls;

// Visible to the library, which is another shared object.
#pragma GCC visibility push(default)

extern "C" {

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): libc's are reserved names

// Straight to the kernel, and without instrumentation: ThreadSanitizer maps memory before it is
// there for either a next function or an instrumented one.
__attribute__((no_sanitize("thread"))) void* mmap(void* address, size_t size, int protection,
                                                  int flags, int fd, off_t offset) noexcept {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the kernel gives addresses as numbers
    auto* memory = reinterpret_cast<void*>(
            syscall(SYS_mmap, address, size, protection, flags, fd, offset));
    if (size == JCam::Utils::JLog::File::kBufferBytes && memory != MAP_FAILED) {
        const int mapped = __atomic_add_fetch(&sMappedBuffers, 1, __ATOMIC_RELAXED);
        int most = __atomic_load_n(&sMostMappedBuffers, __ATOMIC_RELAXED);
        while (mapped > most &&
               !__atomic_compare_exchange_n(&sMostMappedBuffers, &most, mapped, false,
                                            __ATOMIC_RELAXED, __ATOMIC_RELAXED)) {
        }
    }
    return memory;
}

// By the next function: ThreadSanitizer has to hear that what comes to this address is new.
int munmap(void* address, size_t size) noexcept {
    static auto* const sNext = reinterpret_cast<int (*)(void*, size_t)>(dlsym(RTLD_NEXT, "munmap"));
    const int result = sNext(address, size);
    if (size == JCam::Utils::JLog::File::kBufferBytes && result == 0) {
        __atomic_sub_fetch(&sMappedBuffers, 1, __ATOMIC_RELAXED);
    }
    return result;
}

ssize_t write(int fd, const void* bytes, size_t count) {
    static auto* const sNext =
            reinterpret_cast<ssize_t (*)(int, const void*, size_t)>(dlsym(RTLD_NEXT, "write"));
    const ssize_t written = sNext(fd, bytes, count);
    if (fd > STDERR_FILENO && written > 0) {
        writes().push_back(static_cast<uint32_t>(written));
        sWrittenBytes.fetch_add(static_cast<uint64_t>(written), std::memory_order_relaxed);
    }
    return written;
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name)

}  // extern "C"

#pragma GCC visibility pop
