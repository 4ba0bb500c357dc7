#include "support/Interpose.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "jlog/file/Buffer.h"
#include "support/Faults.h"

// Who has called the function that this stands in.
#define CALLER __builtin_return_address(0)

namespace JCam::Support::Interpose {

namespace {

// Orders and counters, each complete in itself. Sequentially consistent: nothing here has to be
// fast.
std::atomic<int64_t> sFreeBytes{-1};
std::atomic<bool> sRefuseThreads{false};
/// Atomic by the builtins, which the function that reads it can use uninstrumented.
bool sRefuseBuffers = false;
int sMappedBuffers = 0;
int sLiveBuffers = 0;
bool sRefusePopulate = false;
std::atomic<bool> sRefuseProbes{false};
std::atomic<int> sSyncs{0};
std::atomic<ssize_t> sWriteLimit{-1};
std::atomic<int64_t> sWallClockSec{-1};
std::atomic<int> sRefusedLocks{0};
std::atomic<int> sLockError{0};
std::atomic<int> sLocks{0};
std::atomic<int> sStaleCloses{0};
std::atomic<void (*)(int)> sOnWrite{nullptr};

// Paths are set while no other thread makes use of them. Of fixed size, since a signal handler may
// come here.
using Path = char[512];
Path sFrom;
Path sTo;
Path sUndeletable;

/// The nice values set first, also in a signal handler; a value beyond them is not kept.
std::array<std::atomic<int>, 256> sNiceValues;
std::atomic<size_t> sNiceValueCount{0};

/// What a function of libc that fails returns.
int failWith(int error) {
    errno = error;
    return -1;
}

/// The function that `name` would be without this binary. Looked up once, which takes locks.
template <typename Function>
class Next {
  public:
    explicit Next(const char* name)
            : mFunction(reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name))) {}
    template <typename... Args>
    auto operator()(Args... args) const {
        return mFunction(args...);
    }

  private:
    Function* mFunction;
};

/// A system call without libc's function for it, which stands behind one of those below.
__attribute__((no_sanitize("thread"))) long kernelCall(long number, long a = 0, long b = 0,
                                                       long c = 0, long d = 0, long e = 0,
                                                       long f = 0) {
#if defined(__x86_64__)
    register long r10 asm("r10") = d;
    register long r8 asm("r8") = e;
    register long r9 asm("r9") = f;
    long result = number;
    asm volatile("syscall"
                 : "+a"(result)
                 : "D"(a), "S"(b), "d"(c), "r"(r10), "r"(r8), "r"(r9)
                 : "rcx", "r11", "memory");
#elif defined(__aarch64__)
    register long x8 asm("x8") = number;
    register long result asm("x0") = a;
    register long x1 asm("x1") = b;
    register long x2 asm("x2") = c;
    register long x3 asm("x3") = d;
    register long x4 asm("x4") = e;
    register long x5 asm("x5") = f;
    asm volatile("svc 0"
                 : "+r"(result)
                 : "r"(x8), "r"(x1), "r"(x2), "r"(x3), "r"(x4), "r"(x5)
                 : "memory");
#endif
    constexpr long kMaxError = 4095;
    return result < 0 && result >= -kMaxError ? failWith(static_cast<int>(-result)) : result;
}

template <typename Value>
__attribute__((no_sanitize("thread"))) long asWord(Value value) {
    if constexpr (std::is_pointer_v<Value>) {
        return reinterpret_cast<long>(value);
    } else {
        return static_cast<long>(value);
    }
}

template <typename... Args>
__attribute__((no_sanitize("thread"))) long kernel(long number, Args... args) {
    return kernelCall(number, asWord(args)...);
}

void setPath(Path& path, const std::string& value) {
    path[value.copy(path, sizeof(path) - 1)] = '\0';
}

/// `path` after redirection; where that changes it, in `buffer`.
const char* redirected(const char* path, Path& buffer) {
    const size_t fromBytes = strlen(sFrom);
    if (fromBytes == 0 || strncmp(path, sFrom, fromBytes) != 0) {
        return path;
    }
    const size_t toBytes = strlen(sTo);
    memcpy(buffer, sTo, toBytes);
    const size_t restBytes = strnlen(path + fromBytes, sizeof(Path) - toBytes - 1);
    memcpy(buffer + toBytes, path + fromBytes, restBytes);
    buffer[toBytes + restBytes] = '\0';
    return buffer;
}

}  // namespace

Scope::~Scope() {
    setFreeBytes(-1);
    refuseThreads(false);
    refuseBuffers(false);
    refusePopulate(false);
    refuseProbes(false);
    sSyncs = 0;
    limitWrites(-1);
    setWallClock(-1);
    refuseLocks(0, 0);
    sLocks = 0;
    sStaleCloses = 0;
    onWrite(nullptr);
    redirect("", "");
    refuseUnlink("");
    sNiceValueCount = 0;
}

void setFreeBytes(int64_t bytes) {
    sFreeBytes = bytes;
}
void refuseThreads(bool refuse) {
    sRefuseThreads = refuse;
}
void refuseBuffers(bool refuse) {
    __atomic_store_n(&sRefuseBuffers, refuse, __ATOMIC_RELAXED);
}
int mappedBuffers() {
    return __atomic_load_n(&sMappedBuffers, __ATOMIC_RELAXED);
}
int liveBuffers() {
    return __atomic_load_n(&sLiveBuffers, __ATOMIC_RELAXED);
}
void refusePopulate(bool refuse) {
    __atomic_store_n(&sRefusePopulate, refuse, __ATOMIC_RELAXED);
}
void refuseProbes(bool refuse) {
    sRefuseProbes = refuse;
}
void onWrite(void (*action)(int fd)) {
    sOnWrite = action;
}
int syncs() {
    return sSyncs;
}
void limitWrites(ssize_t bytes) {
    sWriteLimit = bytes;
}
void setWallClock(int64_t sec) {
    sWallClockSec = sec;
}
void refuseLocks(int count, int error) {
    sLockError = error;
    sRefusedLocks = count;
}
int locks() {
    return sLocks;
}
int staleCloses() {
    return sStaleCloses;
}

void redirect(const std::string& from, const std::string& to) {
    setPath(sFrom, from);
    setPath(sTo, to);
}

void refuseUnlink(const std::string& path) {
    setPath(sUndeletable, path);
}

std::vector<int> niceValues() {
    const size_t count = std::min(sNiceValueCount.load(), sNiceValues.size());
    return {sNiceValues.begin(), sNiceValues.begin() + count};
}

}  // namespace JCam::Support::Interpose

using namespace JCam::Support::Interpose;
namespace Faults = JCam::Support::Faults;
using Faults::Call;

// Visible to the library, which is another shared object.
#pragma GCC visibility push(default)

extern "C" {

int open(const char* path, int flags, ...) {
    static const Next<int(const char*, int, ...)> next("open");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (Faults::strikes(Call::OPEN, CALLER)) {
        return -1;
    }
    Path buffer;
    return next(redirected(path, buffer), flags, mode);
}

int close(int fd) {
    static const Next<int(int)> next("close");
    const bool strikes = Faults::strikes(Call::CLOSE, CALLER);
    const int error = errno;
    const int result = next(fd);
    sStaleCloses += result != 0 && errno == EBADF ? 1 : 0;
    return strikes ? failWith(error) : result;
}

int mkdir(const char* path, mode_t mode) noexcept {
    static const Next<int(const char*, mode_t)> next("mkdir");
    return Faults::strikes(Call::MAKE_FOLDER, CALLER) ? -1 : next(path, mode);
}

/// Folders are read by getdents64, which has no function of its own.
long syscall(long number, ...) noexcept {
    va_list arguments;
    va_start(arguments, number);
    std::array<long, 6> values{};
    for (long& value : values) {
        value = va_arg(arguments, long);
    }
    va_end(arguments);
    if (number == SYS_getdents64 && Faults::strikes(Call::FOLDER, CALLER)) {
        return -1;
    }
    return kernel(number, values[0], values[1], values[2], values[3], values[4], values[5]);
}

int stat(const char* path, struct stat* status) noexcept {
    static const Next<int(const char*, struct stat*)> next("stat");
    if (Faults::strikes(Call::STAT, CALLER)) {
        return -1;
    }
    Path buffer;
    return next(redirected(path, buffer), status);
}

int unlink(const char* path) noexcept {
    static const Next<int(const char*)> next("unlink");
    if (strcmp(path, sUndeletable) == 0) {
        return failWith(EPERM);
    }
    if (Faults::strikes(Call::UNLINK, CALLER)) {
        return -1;
    }
    Path buffer;
    return next(redirected(path, buffer));
}

int statvfs(const char* path, struct statvfs* storage) noexcept {
    static const Next<int(const char*, struct statvfs*)> next("statvfs");
    if (Faults::strikes(Call::STATVFS, CALLER)) {
        return -1;
    }
    if (sFreeBytes < 0) {
        Path buffer;
        return next(redirected(path, buffer), storage);
    }
    *storage = {};
    storage->f_blocks = 1;
    storage->f_bsize = 1;
    storage->f_bfree = static_cast<fsblkcnt_t>(sFreeBytes.load());
    return 0;
}

ssize_t write(int fd, const void* bytes, size_t count) {
    static const Next<ssize_t(int, const void*, size_t)> next("write");
    if (const auto action = sOnWrite.load()) {
        action(fd);
    }
    const int callersErrno = errno;
    ssize_t written = -1;
    if (!Faults::strikes(Call::WRITE, CALLER)) {
        const ssize_t limit = sWriteLimit;
        written = limit == 0 ? 0 : next(fd, bytes, std::min(count, static_cast<size_t>(limit)));
    } else if (errno == Faults::kShortWrite) {
        errno = callersErrno;
        written = next(fd, bytes, count / 2);
    }
    Faults::keepWrite(CALLER, bytes, count, written);
    return written;
}

ssize_t read(int fd, void* bytes, size_t count) {
    static const Next<ssize_t(int, void*, size_t)> next("read");
    return Faults::strikes(Call::READ, CALLER) ? -1 : next(fd, bytes, count);
}

FILE* fopen(const char* path, const char* mode) {
    static const Next<FILE*(const char*, const char*)> next("fopen");
    if (Faults::strikes(Call::FOPEN, CALLER)) {
        return nullptr;
    }
    Path buffer;
    return next(redirected(path, buffer), mode);
}

char* fgets(char* text, int size, FILE* stream) {
    static const Next<char*(char*, int, FILE*)> next("fgets");
    return Faults::strikes(Call::READ, CALLER) ? nullptr : next(text, size, stream);
}

int fclose(FILE* stream) {
    static const Next<int(FILE*)> next("fclose");
    const bool strikes = Faults::strikes(Call::CLOSE, CALLER);
    const int error = errno;
    const int result = next(stream);
    return strikes ? failWith(error) : result;
}

int remove(const char* path) noexcept {
    static const Next<int(const char*)> next("remove");
    return Faults::strikes(Call::REMOVE, CALLER) ? -1 : next(path);
}

int flock(int fd, int operation) noexcept {
    static const Next<int(int, int)> next("flock");
    sLocks += operation == LOCK_EX ? 1 : 0;
    if (sRefusedLocks > 0) {
        --sRefusedLocks;
        return failWith(sLockError);
    }
    return Faults::strikes(Call::LOCK, CALLER) ? -1 : next(fd, operation);
}

int gettimeofday(timeval* time, void* zone) noexcept {
    static const Next<int(timeval*, void*)> next("gettimeofday");
    if (Faults::strikes(Call::WALL_CLOCK, CALLER)) {
        return -1;
    }
    if (sWallClockSec < 0) {
        return next(time, zone);
    }
    *time = {sWallClockSec, 0};
    return 0;
}

int clock_gettime(clockid_t clock, timespec* time) noexcept {
    static const Next<int(clockid_t, timespec*)> next("clock_gettime");
    return Faults::strikes(Call::CLOCK, CALLER) ? -1 : next(clock, time);
}

tm* localtime_r(const time_t* seconds, tm* local) noexcept {
    static const Next<tm*(const time_t*, tm*)> next("localtime_r");
    return Faults::strikes(Call::LOCALTIME, CALLER) ? nullptr : next(seconds, local);
}

ssize_t process_vm_readv(pid_t pid, const iovec* local, unsigned long localCount,
                         const iovec* remote, unsigned long remoteCount,
                         unsigned long flags) noexcept {
    static const Next<ssize_t(pid_t, const iovec*, unsigned long, const iovec*, unsigned long,
                              unsigned long)>
            next("process_vm_readv");
    if (sRefuseProbes) {
        return failWith(ENOSYS);
    }
    if (Faults::strikes(Call::PROBE, CALLER)) {
        return -1;
    }
    return next(pid, local, localCount, remote, remoteCount, flags);
}

int fsync(int fd) {
    static const Next<int(int)> next("fsync");
    ++sSyncs;
    return Faults::strikes(Call::FSYNC, CALLER) ? -1 : next(fd);
}

int setpriority(__priority_which_t which, id_t who, int value) noexcept {
    const size_t place = sNiceValueCount++;
    if (place < sNiceValues.size()) {
        sNiceValues[place] = value;
    }
    return static_cast<int>(kernel(SYS_setpriority, which, who, value));
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                   void* argument) noexcept {
    static const Next<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)> next(
            "pthread_create");
    if (sRefuseThreads || Faults::strikes(Call::THREAD, CALLER)) {
        return EAGAIN;
    }
    return next(thread, attributes, entry, argument);
}

// Straight to the kernel, and without instrumentation: ThreadSanitizer maps memory before it is
// there for either a next function or an instrumented one.
__attribute__((no_sanitize("thread"))) void* mmap(void* address, size_t size, int protection,
                                                  int flags, int fd, off_t offset) noexcept {
    if (size == sizeof(JCam::Utils::JLog::File::Buffer)) {
        __atomic_fetch_add(&sMappedBuffers, 1, __ATOMIC_RELAXED);
        if (__atomic_load_n(&sRefuseBuffers, __ATOMIC_RELAXED) ||
            Faults::strikes(Call::MAP, CALLER)) {
            errno = ENOMEM;
            return MAP_FAILED;
        }
        __atomic_fetch_add(&sLiveBuffers, 1, __ATOMIC_RELAXED);
    }
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the kernel gives addresses as numbers
    return reinterpret_cast<void*>(kernel(SYS_mmap, address, size, protection, flags, fd, offset));
}

__attribute__((no_sanitize("thread"))) int munmap(void* address, size_t size) noexcept {
    if (size == sizeof(JCam::Utils::JLog::File::Buffer)) {
        if (Faults::strikes(Call::UNMAP, CALLER)) {
            return -1;
        }
        __atomic_fetch_sub(&sLiveBuffers, 1, __ATOMIC_RELAXED);
    }
    return static_cast<int>(kernel(SYS_munmap, address, size));
}

__attribute__((no_sanitize("thread"))) int madvise(void* address, size_t size,
                                                   int advice) noexcept {
    if (advice == MADV_POPULATE_WRITE && __atomic_load_n(&sRefusePopulate, __ATOMIC_RELAXED)) {
        return failWith(EINVAL);
    }
    if (Faults::strikes(Call::ADVISE, CALLER)) {
        return -1;
    }
    return static_cast<int>(kernel(SYS_madvise, address, size, advice));
}

}  // extern "C"

#pragma GCC visibility pop
