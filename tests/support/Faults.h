#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

// Faults in the calls that the library itself makes of libc, which Interpose.cpp asks for. A call
// is known by the place in the library that makes it. Rules and counters lie in memory that
// children share. Rules change while nothing of the library runs; what the library runs into is
// signal-safe, and may be called from any thread.
namespace JCam::Support::Faults {

/// Functions in which there can be faults.
enum class Call : uint8_t {
    ALLOCATE,     // operator new
    ADVISE,       // madvise
    CLOCK,        // clock_gettime
    CLOSE,        // also fclose; what is closed is gone all the same, as on Linux
    FOLDER,       // getdents64, opendir
    FOPEN,        //
    FSYNC,        //
    LOCALTIME,    // localtime_r
    LOCK,         // flock, fcntl
    MAKE_FOLDER,  // mkdir
    MAP,          // mmap, which the library calls for record buffers
    OPEN,         //
    PRIORITY,     // setpriority
    PROBE,        // process_vm_readv
    READ,         // also fgets, pread
    REMOVE,       //
    RESERVE,      // fallocate
    STAT,         //
    STATVFS,      //
    THREAD,       // pthread_create
    UNLINK,       //
    UNMAP,        // munmap
    WALL_CLOCK,   // gettimeofday
    WRITE,        // also pwrite
    COUNT,
};

/// In place of an errno: a write that takes half of what it is given.
inline constexpr int kShortWrite = -1;

/// Which calls fail, and how: this call, this time, once or for good.
struct Rule {
    Call call;
    int error;                   // an errno, or kShortWrite
    uint32_t first{1};           // of the calls that the rule is about, counted from 1
    uint32_t times{UINT32_MAX};  // so many of them, from the first one on
    uintptr_t site{0};           // only calls from this place in the library
    const char* path{nullptr};   // only calls with this path, which outlives the rule
};
std::string nameOf(const Rule& rule);

/// From here on calls are counted anew, and fail by these rules and no others. Only calls of
/// `thread` count and fail if that is not 0.
void arm(std::initializer_list<Rule> rules, pid_t thread = 0);
/// The same, but every call fails once in `oneIn` calls or so.
void armAtRandom(uint64_t seed, uint32_t oneIn);
/// No call is counted, and none fails.
void disarm();

/// Calls of a function since calls are counted, and faults of one or of all.
uint32_t calls(Call call);
uint32_t struck(Call call);
uint32_t struck();

/// A rule for each error of each place in the library that called since calls are counted: for all
/// of its first calls, and ever fewer of the later ones.
std::vector<Rule> everyFault();

/// What the library has given to write(2), in that order, and how much of it was taken. To be put
/// into memory that children share.
struct Tape {
    static constexpr size_t kBytes = 8 << 20;

    std::atomic<size_t> used{0};      // all bytes that were to be written
    std::atomic<size_t> accepted{0};  // those that write has taken
    std::atomic<size_t> torn{0};      // writes that did not end with a whole line
    /// Held by a thread that adds to the tape: a process may end at any moment, and no half of a
    /// write shall be found then.
    std::atomic_flag isBusy;
    char text[kBytes];

    void clear();
    /// Whatever did not fit is missing.
    [[nodiscard]] std::string content() const;
};
/// Keeps writes on `tape`; null for no more.
void record(Tape* tape);

// For the functions that the library calls in place of libc's.

/// Names a call, and the errors that it is tried with.
void define(Call call, const char* name, std::initializer_list<int> errors);
/// Counts a call. The error that it is to fail with, or 0. The caller of the function that this is
/// called in is the site: a default argument belongs to whoever leaves it out.
int strike(Call call, const char* path = nullptr, const void* caller = __builtin_return_address(0));
/// Keeps a write.
void keepWrite(const void* bytes, size_t count, ssize_t accepted);

}  // namespace JCam::Support::Faults
