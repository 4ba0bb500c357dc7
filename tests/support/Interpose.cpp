#include "support/Interpose.h"

#include <dirent.h>
#include <fcntl.h>
#include <link.h>
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
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <new>
#include <stdexcept>
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
    strcpy(buffer, sTo);
    return strncat(buffer, path + fromBytes, sizeof(Path) - strlen(sTo) - 1);
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
        const int error = strike(kCall, pathOf(args...));
        if (error == 0) {
            Path buffer;
            return kFunction(redirected(args, buffer)...);
        }
        if constexpr (kCall == Call::CLOSE) {
            kFunction(args...);
        }
        if constexpr (kCall == Call::ALLOCATE && !kNoexcept) {
            throw std::bad_alloc();
        }
        errno = error;
        if constexpr (kCall == Call::THREAD) {
            return error;
        } else if constexpr (kCall == Call::MAP) {
            return MAP_FAILED;
        } else if constexpr (std::is_pointer_v<Result>) {
            return nullptr;
        } else {
            return -1;
        }
    }
};

template <>
struct Failing<Call::WRITE, &write> {
    static ssize_t call(int fd, const void* bytes, size_t count) {
        if (const auto action = sOnWrite.load()) {
            action(fd);
        }
        const int error = strike(Call::WRITE);
        ssize_t written = -1;
        if (error == 0 || error == Faults::kShortWrite) {
            written = write(fd, bytes, error == 0 ? count : count / 2);
        } else {
            errno = error;
        }
        Faults::keepWrite(bytes, count, written);
        return written;
    }
};

/// Of the calls that libc has no function for, those that read a folder fail.
template <>
struct Failing<Call::FOLDER, &syscall> {
    static long call(long number, long a, long b, long c, long d, long e, long f) {
        const int error = number == SYS_getdents64 ? strike(Call::FOLDER) : 0;
        if (error != 0) {
            errno = error;
            return -1;
        }
        return syscall(number, a, b, c, d, e, f);
    }
};

/// Without O_CREAT the mode is whatever a register has, and not looked at.
int openFile(const char* path, int flags, mode_t mode) {
    return open(path, flags, mode);
}

/// For a lock, which has a third argument.
int controlFile(int fd, int command, struct flock* lock) {
    return fcntl(fd, command, lock);
}

/// A second close may hit somebody else's descriptor.
int closeOnce(int fd) {
    const int result = close(fd);
    if (result != 0 && errno == EBADF) {
        abort();
    }
    return result;
}

int storageOf(const char* path, struct statvfs* storage) {
    if (sFreeBytes < 0) {
        return statvfs(path, storage);
    }
    *storage = {};
    storage->f_blocks = 1;
    storage->f_bsize = 1;
    storage->f_bfree = static_cast<fsblkcnt_t>(sFreeBytes.load());
    return 0;
}

int wallClock(timeval* time, void* zone) {
    if (sWallClockSec < 0) {
        return gettimeofday(time, zone);
    }
    *time = {sWallClockSec, 0};
    return 0;
}

int setNice(__priority_which_t which, id_t who, int value) {
    const size_t place = sNiceValueCount++;
    if (place < sNiceValues.size()) {
        sNiceValues[place] = value;
    }
    return setpriority(which, who, value);
}

constexpr auto kNew = static_cast<void* (*)(size_t)>(&operator new);
constexpr auto kNewOrNull =
        static_cast<void* (*)(size_t, const std::nothrow_t&) noexcept>(&operator new);
constexpr auto kAlignedNewOrNull =
        static_cast<void* (*)(size_t, std::align_val_t, const std::nothrow_t&) noexcept>(
                &operator new);

/// A function that the library calls, and the errors that it is tried with.
struct Import {
    template <Call kCall, auto kFunction>
    Import(const char* functionName, Failing<kCall, kFunction> /*failing*/,
           std::initializer_list<int> errors)
            : name(functionName),
              replacement(reinterpret_cast<void*>(Failing<kCall, kFunction>::call)) {
        Faults::define(kCall, name, errors);
    }

    const char* name;
    void* replacement;
    bool isFound{false};
};

std::vector<Import> allImports() {
    return {
            {"_Znwm", Failing<Call::ALLOCATE, kNew>(), {ENOMEM}},
            {"_ZnwmRKSt9nothrow_t", Failing<Call::ALLOCATE, kNewOrNull>(), {ENOMEM}},
            {"_ZnwmSt11align_val_tRKSt9nothrow_t",
             Failing<Call::ALLOCATE, kAlignedNewOrNull>(),
             {ENOMEM}},
            {"clock_gettime", Failing<Call::CLOCK, &clock_gettime>(), {EINVAL}},
            {"close", Failing<Call::CLOSE, &closeOnce>(), {EINTR, EIO}},
            {"fallocate", Failing<Call::RESERVE, &fallocate>(), {ENOSPC, EOPNOTSUPP, EINTR}},
            {"fclose", Failing<Call::CLOSE, &fclose>(), {EINTR, EIO}},
            {"fcntl", Failing<Call::LOCK, &controlFile>(), {EACCES, EAGAIN, ENOLCK}},
            {"fgets", Failing<Call::READ, &fgets>(), {EINTR, EIO}},
            {"flock", Failing<Call::LOCK, &flock>(), {EINTR, ENOLCK}},
            {"fopen", Failing<Call::FOPEN, &fopen>(), {EACCES, ENOMEM}},
            {"fsync", Failing<Call::FSYNC, &fsync>(), {EIO, EINTR}},
            {"gettimeofday", Failing<Call::WALL_CLOCK, &wallClock>(), {EINVAL}},
            {"localtime_r", Failing<Call::LOCALTIME, &localtime_r>(), {EOVERFLOW}},
            {"madvise", Failing<Call::ADVISE, &madvise>(), {EINVAL}},
            {"mkdir", Failing<Call::MAKE_FOLDER, &mkdir>(), {EACCES, EROFS, EEXIST}},
            {"mmap", Failing<Call::MAP, &mmap>(), {ENOMEM}},
            {"munmap", Failing<Call::UNMAP, &munmap>(), {ENOMEM}},
            {"open", Failing<Call::OPEN, &openFile>(), {EACCES, EROFS, EMFILE, ENOSPC, EINTR}},
            {"opendir", Failing<Call::FOLDER, &opendir>(), {ENOENT, EACCES, EMFILE}},
            {"pread", Failing<Call::READ, &pread>(), {EINTR, EIO}},
            {"process_vm_readv", Failing<Call::PROBE, &process_vm_readv>(), {ENOSYS, EPERM}},
            {"pthread_create", Failing<Call::THREAD, &pthread_create>(), {EAGAIN}},
            {"pwrite", Failing<Call::WRITE, &pwrite>(), {ENOSPC, EIO}},
            {"read", Failing<Call::READ, &read>(), {EINTR, EIO}},
            {"remove", Failing<Call::REMOVE, &remove>(), {EACCES}},
            {"setpriority", Failing<Call::PRIORITY, &setNice>(), {EACCES}},
            {"stat", Failing<Call::STAT, &stat>(), {ENOENT, EACCES}},
            {"statvfs", Failing<Call::STATVFS, &storageOf>(), {EIO}},
            {"syscall", Failing<Call::FOLDER, &syscall>(), {ENOENT}},
            {"unlink", Failing<Call::UNLINK, &unlink>(), {EACCES, EBUSY}},
            {"write", Failing<Call::WRITE, &write>(), {ENOSPC, EIO, EINTR, Faults::kShortWrite}},
    };
}

// NOLINTBEGIN(performance-no-int-to-ptr): the loader gives addresses as numbers

using DynamicEntries = std::array<ElfW(Addr), DT_NUM>;

DynamicEntries dynamicEntriesOf(const dl_phdr_info& object) {
    DynamicEntries entries{};
    for (int i = 0; i < object.dlpi_phnum; ++i) {
        if (object.dlpi_phdr[i].p_type != PT_DYNAMIC) {
            continue;
        }
        const auto* entry =
                reinterpret_cast<const ElfW(Dyn)*>(object.dlpi_addr + object.dlpi_phdr[i].p_vaddr);
        for (; entry->d_tag != DT_NULL; ++entry) {
            if (static_cast<size_t>(entry->d_tag) < entries.size()) {
                entries[static_cast<size_t>(entry->d_tag)] = entry->d_un.d_ptr;
            }
        }
    }
    return entries;
}

/// The address of a function in the object's table, which is read-only since it was loaded.
void replaceAddress(ElfW(Addr) place, void* function) {
    const auto pageBytes = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    mprotect(reinterpret_cast<void*>(place & -pageBytes), pageBytes, PROT_READ | PROT_WRITE);
    *reinterpret_cast<void**>(place) = function;
}

/// Changes what a loaded object calls. Its relocations say where the addresses stand.
void replaceImports(const dl_phdr_info& object) {
    const DynamicEntries entries = dynamicEntriesOf(object);
    const auto addressOf = [&](size_t tag) {
        // glibc has added where the object is; bionic has not.
        return entries[tag] + (entries[tag] < object.dlpi_addr ? object.dlpi_addr : 0);
    };
    std::vector<Import> imports = allImports();
    const auto* symbols = reinterpret_cast<const ElfW(Sym)*>(addressOf(DT_SYMTAB));
    const auto* names = reinterpret_cast<const char*>(addressOf(DT_STRTAB));
    for (const auto& [table, bytes] : {std::pair{addressOf(DT_RELA), entries[DT_RELASZ]},
                                       {addressOf(DT_JMPREL), entries[DT_PLTRELSZ]}}) {
        const auto* relocation = reinterpret_cast<const ElfW(Rela)*>(table);
        for (size_t i = 0; i < bytes / sizeof(*relocation); ++i, ++relocation) {
            const char* name = names + symbols[ELF64_R_SYM(relocation->r_info)].st_name;
            for (Import& import : imports) {
                if (strcmp(name, import.name) == 0) {
                    replaceAddress(object.dlpi_addr + relocation->r_offset, import.replacement);
                    import.isFound = true;
                }
            }
        }
    }
    for (const Import& import : imports) {
        if (!import.isFound) {
            throw std::logic_error(std::string("the library does not call ") + import.name);
        }
    }
}

// NOLINTEND(performance-no-int-to-ptr)

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
std::vector<int> niceValues() {
    const size_t count = std::min(sNiceValueCount.load(), sNiceValues.size());
    return {sNiceValues.begin(), sNiceValues.begin() + count};
}

}  // namespace JCam::Support::Interpose
