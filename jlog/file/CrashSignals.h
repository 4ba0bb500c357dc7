#pragma once

#include <array>
#include <csignal>
#include <cstddef>

namespace JCam::Utils::JLog::File {

struct CrashSignal {
    int number;
    const char* name;
};

/// The signals that the crash hook catches, in the order of the logger's saved actions.
inline constexpr std::array<CrashSignal, 3> kCrashSignals{
        {{SIGABRT, "SIGABRT"}, {SIGSEGV, "SIGSEGV"}, {SIGBUS, "SIGBUS"}}};

/// The index of `number` above; the size for a signal that the hook does not know. Signal-safe.
constexpr size_t crashSignalIndex(int number) {
    size_t i = 0;
    while (i < kCrashSignals.size() && kCrashSignals[i].number != number) {
        ++i;
    }
    return i;
}

/// Whether `sig` waits for this thread to unblock it. Signal-safe.
inline bool isPending(int sig) {
    sigset_t pending;
    return sigpending(&pending) == 0 && sigismember(&pending, sig) == 1;
}

}  // namespace JCam::Utils::JLog::File
