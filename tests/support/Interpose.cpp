#include "support/Interpose.h"

#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>
#include <type_traits>
#include <utility>

#include "support/Faults.h"

namespace JCam::Support::Interpose {

namespace {

using Faults::Call;
using Faults::strike;

// Orders and counters, each complete in itself. Sequentially consistent: nothing here has to be
// fast.
std::atomic<int64_t> sFreeBytes{-1};
std::atomic<int64_t> sWallClockSec{-1};
std::atomic<void (*)(int)> sOnWrite{nullptr};
std::atomic<int> sLiveBuffers{0};
std::atomic<int> sStaleCloses{0};

// Paths are set while no other thread makes use of them. Of fixed size, since a signal handler may
// come here.
using Path = char[512];
Path sFrom;
Path sTo;

/// The nice values set first, also in a signal handler; a value beyond them is not kept.
std::array<std::atomic<int>, 256> sNiceValues;
std::atomic<size_t> sNiceValueCount{0};

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
template <typename Argument>
Argument redirected(Argument argument, Path& /*buffer*/) {
    return argument;
}

template <typename... Rest>
const char* pathOf(const char* path, Rest... /*rest*/) {
    return path;
}
template <typename... Args>
const char* pathOf(Args... /*args*/) {
    return nullptr;
}

/// `kFunction` with faults and redirection.
template <Call kCall, auto kFunction>
struct Failing;

template <Call kCall, typename Result, typename... Args, bool kNoexcept,
          Result (*kFunction)(Args...) noexcept(kNoexcept)>
struct Failing<kCall, kFunction> {
    static Result call(Args... args) {
        if (const int error = strike(kCall, pathOf(args...))) {
            errno = error;
            if constexpr (std::is_pointer_v<Result>) {
                return nullptr;
            } else {
                return -1;
            }
        }
        Path buffer;
        return kFunction(redirected(args, buffer)...);
    }
};

// Those of a variable number of arguments, with as many as the library gives them. Without
// O_CREAT the mode is whatever a register has, and not looked at.
int openFile(const char* path, int flags, mode_t mode) {
    return open(path, flags, mode);
}
long callKernel(long number, long a, long b, long c) {
    return syscall(number, a, b, c);
}

int failWith(int error) {
    errno = error;
    return -1;
}

template <auto kFunction, typename Handle>
int closeAnyway(Handle handle) {
    const int error = strike(Call::CLOSE);
    const int result = kFunction(handle);
    sStaleCloses += result != 0 && errno == EBADF ? 1 : 0;
    return error != 0 ? failWith(error) : result;
}

int statvfsOrAnswer(const char* path, struct statvfs* storage) {
    if (const int error = strike(Call::STATVFS, path)) {
        return failWith(error);
    }
    if (sFreeBytes < 0) {
        Path buffer;
        return statvfs(redirected(path, buffer), storage);
    }
    *storage = {};
    storage->f_blocks = 1;
    storage->f_bsize = 1;
    storage->f_bfree = static_cast<fsblkcnt_t>(sFreeBytes.load());
    return 0;
}

int wallClock(timeval* time, void* zone) {
    if (const int error = strike(Call::WALL_CLOCK)) {
        return failWith(error);
    }
    if (sWallClockSec < 0) {
        return gettimeofday(time, zone);
    }
    *time = {sWallClockSec, 0};
    return 0;
}

ssize_t writeAndKeep(int fd, const void* bytes, size_t count) {
    if (const auto action = sOnWrite.load()) {
        action(fd);
    }
    const int error = strike(Call::WRITE);
    const ssize_t written = error == 0 || error == Faults::kShortWrite
                                    ? write(fd, bytes, error == 0 ? count : count / 2)
                                    : failWith(error);
    Faults::keepWrite(bytes, count, written);
    return written;
}

int setPriority(__priority_which_t which, id_t who, int value) {
    const size_t place = sNiceValueCount++;
    if (place < sNiceValues.size()) {
        sNiceValues[place] = value;
    }
    return setpriority(which, who, value);
}

int createThread(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                 void* argument) {
    const int error = strike(Call::THREAD);
    return error != 0 ? error : pthread_create(thread, attributes, entry, argument);
}

void* mapBuffer(void* address, size_t size, int protection, int flags, int fd, off_t offset) {
    if (const int error = strike(Call::MAP)) {
        errno = error;
        return MAP_FAILED;
    }
    ++sLiveBuffers;
    return mmap(address, size, protection, flags, fd, offset);
}

int unmapBuffer(void* address, size_t size) {
    if (const int error = strike(Call::UNMAP)) {
        return failWith(error);
    }
    --sLiveBuffers;
    return munmap(address, size);
}

void* allocate(size_t size) {
    if (strike(Call::ALLOCATE) != 0) {
        throw std::bad_alloc();
    }
    return operator new(size);
}
template <typename... Args>
void* allocateOrNull(size_t size, Args... args, const std::nothrow_t& tag) {
    return strike(Call::ALLOCATE) != 0 ? nullptr : operator new(size, args..., tag);
}

struct Import {
    template <typename Function>
    Import(const char* functionName, Function* function)
            : name(functionName), replacement(reinterpret_cast<void*>(function)) {}

    const char* name;
    void* replacement;
    bool isFound{false};
};

std::vector<Import>& imports() {
    static std::vector<Import> sImports = {
            {"_Znwm", allocate},
            {"_ZnwmRKSt9nothrow_t", allocateOrNull<>},
            {"_ZnwmSt11align_val_tRKSt9nothrow_t", allocateOrNull<std::align_val_t>},
            {"clock_gettime", Failing<Call::CLOCK, &clock_gettime>::call},
            {"close", closeAnyway<&close, int>},
            {"fclose", closeAnyway<&fclose, FILE*>},
            {"fgets", Failing<Call::READ, &fgets>::call},
            {"flock", Failing<Call::LOCK, &flock>::call},
            {"fopen", Failing<Call::FOPEN, &fopen>::call},
            {"fsync", Failing<Call::FSYNC, &fsync>::call},
            {"gettimeofday", wallClock},
            {"localtime_r", Failing<Call::LOCALTIME, &localtime_r>::call},
            {"madvise", Failing<Call::ADVISE, &madvise>::call},
            {"mkdir", Failing<Call::MAKE_FOLDER, &mkdir>::call},
            {"mmap", mapBuffer},
            {"munmap", unmapBuffer},
            {"open", Failing<Call::OPEN, &openFile>::call},
            {"process_vm_readv", Failing<Call::PROBE, &process_vm_readv>::call},
            {"pthread_create", createThread},
            {"read", Failing<Call::READ, &read>::call},
            {"remove", Failing<Call::REMOVE, &remove>::call},
            {"setpriority", setPriority},
            {"stat", Failing<Call::STAT, &stat>::call},
            {"statvfs", statvfsOrAnswer},
            {"syscall", Failing<Call::FOLDER, &callKernel>::call},
            {"unlink", Failing<Call::UNLINK, &unlink>::call},
            {"write", writeAndKeep},
    };
    return sImports;
}

/// Changes what a loaded object calls. Its relocations say where the addresses stand.
void replaceImports(const dl_phdr_info& object) {
    std::array<ElfW(Addr), DT_NUM> entries{};
    for (int i = 0; i < object.dlpi_phnum; ++i) {
        if (object.dlpi_phdr[i].p_type != PT_DYNAMIC) {
            continue;
        }
        const ElfW(Addr) dynamic = object.dlpi_addr + object.dlpi_phdr[i].p_vaddr;
        for (const auto* entry = reinterpret_cast<const ElfW(Dyn)*>(dynamic);
             entry->d_tag != DT_NULL; ++entry) {
            if (static_cast<size_t>(entry->d_tag) < entries.size()) {
                entries[static_cast<size_t>(entry->d_tag)] = entry->d_un.d_ptr;
            }
        }
    }
    const auto* symbols = reinterpret_cast<const ElfW(Sym)*>(entries[DT_SYMTAB]);
    const auto* names = reinterpret_cast<const char*>(entries[DT_STRTAB]);
    const auto pageBytes = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    for (const auto& [table, bytes] : {std::pair{entries[DT_RELA], entries[DT_RELASZ]},
                                       {entries[DT_JMPREL], entries[DT_PLTRELSZ]}}) {
        const auto* relocation = reinterpret_cast<const ElfW(Rela)*>(table);
        for (size_t i = 0; i < bytes / sizeof(*relocation); ++i, ++relocation) {
            const char* name = names + symbols[ELF64_R_SYM(relocation->r_info)].st_name;
            for (Import& import : imports()) {
                if (strcmp(name, import.name) == 0) {
                    const ElfW(Addr) place = object.dlpi_addr + relocation->r_offset;
                    // Read-only since the object was loaded.
                    mprotect(reinterpret_cast<void*>(place & -pageBytes), pageBytes,
                             PROT_READ | PROT_WRITE);
                    *reinterpret_cast<void**>(place) = import.replacement;
                    import.isFound = true;
                }
            }
        }
    }
}

/// Before main(), and so before any thread.
const int sReplaced = dl_iterate_phdr(
        [](dl_phdr_info* object, size_t /*size*/, void* /*unused*/) {
            const bool isLibrary = strstr(object->dlpi_name, "libjcam_jlog.so") != nullptr;
            if (isLibrary) {
                replaceImports(*object);
            }
            return isLibrary ? 1 : 0;
        },
        nullptr);

void setPath(Path& path, const std::string& value) {
    path[value.copy(path, sizeof(path) - 1)] = '\0';
}

}  // namespace

Scope::~Scope() {
    Faults::disarm();
    setFreeBytes(-1);
    setWallClock(-1);
    onWrite(nullptr);
    redirect("", "");
    sStaleCloses = 0;
    sNiceValueCount = 0;
}

void setFreeBytes(int64_t bytes) {
    sFreeBytes = bytes;
}
void redirect(const std::string& from, const std::string& to) {
    setPath(sFrom, from);
    setPath(sTo, to);
}
void setWallClock(int64_t sec) {
    sWallClockSec = sec;
}
void onWrite(void (*action)(int fd)) {
    sOnWrite = action;
}
int liveBuffers() {
    return sLiveBuffers;
}
int staleCloses() {
    return sStaleCloses;
}
std::vector<int> niceValues() {
    const size_t count = std::min(sNiceValueCount.load(), sNiceValues.size());
    return {sNiceValues.begin(), sNiceValues.begin() + count};
}
std::vector<std::string> unknownFunctions() {
    std::vector<std::string> unknown;
    for (const Import& import : imports()) {
        if (!import.isFound) {
            unknown.emplace_back(import.name);
        }
    }
    return unknown;
}

}  // namespace JCam::Support::Interpose
