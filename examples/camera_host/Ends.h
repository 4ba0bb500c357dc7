#pragma once

#include <sys/types.h>

#include <chrono>
#include <string_view>

#include "Check.h"
#include "Crash.h"

namespace CameraHost {

/// How a process ends.
enum class End {
    CRASH,               // by a signal that the library catches
    KILL,                // by its parent
    STACK_OVERFLOW,      // no handler can run
    STACK_OVERFLOW_ALT,  // the thread has an alternate stack
    ILLEGAL,
    ARITHMETIC,
    SYSTEM_CALL,
    TERMINATE,
    EXIT,
    QUICK_EXIT,
    TWO_FAULTS,  // of two threads: the second one ends the dump of the first
    BLOCKED,     // a fault of a thread that blocks the signal: the kernel ends the process at once
};
inline constexpr int kEnds = 12;

struct EndTraits {
    std::string_view name;
    int sig;        // that ends the process; 0: it exits, or (CRASH, TWO_FAULTS) one is drawn
    RunEnd runEnd;  // what is left behind
};

[[nodiscard]] const EndTraits& traitsOf(End end);

/// Ends this process like that, in the thread of a place, wherever that is; `sig` is the signal
/// that does it. The second of two faults comes after `gap` in the calling thread. For KILL waits
/// for the parent. Not for CRASH: see crash().
[[noreturn]] void endProcess(End end, int sig, CrashPlace place, pid_t loggingTid,
                             std::chrono::microseconds gap);

}  // namespace CameraHost
