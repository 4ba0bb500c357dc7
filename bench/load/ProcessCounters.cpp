#include "ProcessCounters.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <string>

namespace JCam::Bench {

namespace {

thread_local uint64_t sAllocations = 0;

/// The number after `key` in a file of lines like "VmRSS:   1234 kB".
uint64_t readField(const std::filesystem::path& file, const std::string& key) {
    std::ifstream in(file);
    std::string word;
    while (in >> word) {
        if (word == key) {
            uint64_t value = 0;
            in >> value;
            return value;
        }
    }
    return 0;
}

}  // namespace

ProcessCounters ProcessCounters::read() {
    ProcessCounters counters;
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    counters.cpuSeconds = seconds(usage.ru_utime) + seconds(usage.ru_stime);
    counters.residentKib = readField("/proc/self/status", "VmRSS:");
    const std::string self = std::to_string(gettid());
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        if (task.path().filename() != self) {
            counters.wakeUps += readField(task.path() / "status", "voluntary_ctxt_switches:");
        }
    }
    return counters;
}

uint64_t allocationsOfThisThread() {
    return sAllocations;
}

}  // namespace JCam::Bench

void* operator new(size_t bytes) {
    ++JCam::Bench::sAllocations;
    void* memory = std::malloc(bytes != 0 ? bytes : 1);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, size_t /*bytes*/) noexcept {
    std::free(memory);
}

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): libc's names are reserved
extern "C" __attribute__((visibility("default"))) void* mmap(void* address, size_t bytes,
                                                             int protection, int flags, int fd,
                                                             off_t offset) noexcept {
    ++JCam::Bench::sAllocations;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the kernel gives addresses as numbers
    return reinterpret_cast<void*>(
            syscall(SYS_mmap, address, bytes, protection, flags, fd, offset));
}
