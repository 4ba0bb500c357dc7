#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Faults in the calls that the library itself makes of libc, whatever else the process does: a call
// is known by the place in the library that makes it. Interpose.cpp puts them in. What is ordered
// and what is counted lies in memory that children share. All functions may be called from any
// thread; what the interposed functions call is signal-safe.
namespace JCam::Support::Faults {

/// Functions in which there can be faults.
enum class Call : uint8_t {
    ADVISE,    // madvise
    ALLOCATE,  // malloc and its kin, on a thread that is Inside
    CLOCK,     // clock_gettime
    CLOSE,     // also fclose; the descriptor is closed all the same, as on Linux
    FOLDER,    // getdents64, which is what opendir and readdir ask for
    FOPEN,
    FSYNC,
    LOCALTIME,
    LOCK,         // flock
    MAKE_FOLDER,  // mkdir
    MAP,          // mmap of a record buffer
    OPEN,
    PROBE,  // process_vm_readv
    READ,   // also fgets
    REMOVE,
    STAT,
    STATVFS,
    THREAD,  // pthread_create
    UNLINK,
    UNMAP,       // munmap of a record buffer
    WALL_CLOCK,  // gettimeofday
    WRITE,
    COUNT,
};

/// In place of an errno: a write that takes half of what it is given.
inline constexpr int kShortWrite = -1;

/// The errors that a call is tried with.
const std::vector<int>& errorsOf(Call call);
std::string nameOf(Call call);

/// A place in the library, or for allocations wherever, from which a function was called.
struct Site {
    Call call;
    uintptr_t address;
    uint32_t calls;
};

/// One fault: the `nth` call from a site, counted from 1.
struct Order {
    Call call;
    uintptr_t address;
    uint32_t nth;
    int error;
};

/// From here on calls are counted anew, and the one that is ordered fails.
void arm(const Order& order);
/// The same; every call of the library fails once in `oneIn` calls or so.
void armAtRandom(uint64_t seed, uint32_t oneIn);
/// Calls are counted, and none fails.
void armWithoutFault();
/// From here on only calls of this thread are counted and fail.
void limitToThisThread();
/// No call is counted, and none fails.
void disarm();

/// The sites that were called from since calls are counted.
std::vector<Site> sites();
/// Faults since then, of all calls or of one.
uint32_t struck();
uint32_t struck(Call call);

/// The orders for each error of each site: all of the first calls, and ever fewer of the later
/// ones.
std::vector<Order> ordersFor(const std::vector<Site>& sites);

/// For a scope in which what this thread allocates is the library's doing.
class Inside {
  public:
    Inside();
    ~Inside();
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;
};

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

// For the interposed functions.

/// Whether this call, from `caller`, is to fail; errno is set then, and left alone otherwise. With
/// kShortWrite ordered errno becomes that.
bool strikes(Call call, const void* caller);
/// Keeps a write of the library.
void keepWrite(const void* caller, const void* bytes, size_t count, ssize_t accepted);

}  // namespace JCam::Support::Faults
