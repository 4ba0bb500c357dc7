#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "LedgerBook.h"

namespace CameraHost {

/// The thread that a fatal signal meets.
enum class CrashPlace {
    HOST,          // the calling thread, by a fault of its own
    LOGGING,       // a thread that logs, wherever it is
    MALLOC,        // a thread that does nothing but allocate and free
    FLUSH_THREAD,  // the library's own
};
inline constexpr int kCrashPlaces = 4;

/// The thread of a place; `loggingTid` is the one for CrashPlace::LOGGING. Starts one that
/// allocates if need be.
[[nodiscard]] pid_t findThread(CrashPlace place, pid_t loggingTid);

/// Gets `sig` (SIGABRT, SIGSEGV or SIGBUS) as a bug would, or SIGKILL.
void fault(int sig);

/// Brings this process down by `sig` (one of those four). Marks the ledgers at the last moment. If
/// the process survives, this thread waits for its parent to give it up.
[[noreturn]] void crash(int sig, CrashPlace place, pid_t loggingTid, const LedgerBook& ledgers);

/// How a child process has ended.
struct ChildEnd {
    pid_t pid;
    bool hung;        // killed by its parent, since it did not end in time
    int sig;          // the signal that ended it, or 0
    int exitStatus;   // if it has exited
    int64_t endedNs;  // steady clock
};

/// Runs `body` in a child process without core file, which exits with what `body` returns. Must be
/// called while this process has one thread.
[[nodiscard]] ChildEnd runInChild(const std::function<int()>& body,
                                  std::chrono::microseconds bound);

[[nodiscard]] std::string_view signalName(int sig);
[[nodiscard]] std::string_view placeName(CrashPlace place);
[[nodiscard]] std::string describeEnd(const ChildEnd& end);

}  // namespace CameraHost
