#include "Ends.h"

#include <alloca.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>

#include "ExitStatus.h"

namespace CameraHost {

namespace {

constexpr std::array<EndTraits, kEnds> kTraits{
        {{"crash", 0, RunEnd::CRASH},
         {"SIGKILL from outside", SIGKILL, RunEnd::SUDDEN},
         {"stack overflow", SIGSEGV, RunEnd::SUDDEN},
         {"  with an alternate stack", SIGSEGV, RunEnd::SUDDEN},
         {"SIGILL", SIGILL, RunEnd::SUDDEN},
         {"SIGFPE", SIGFPE, RunEnd::SUDDEN},
         {"SIGSYS", SIGSYS, RunEnd::SUDDEN},
         {"SIGTERM", SIGTERM, RunEnd::SUDDEN},
         {"_exit", 0, RunEnd::SUDDEN},
         {"quick_exit", 0, RunEnd::SUDDEN},
         {"two faults at once", 0, RunEnd::TWO_CRASHES},
         {"fault, signal blocked", SIGSEGV, RunEnd::SUDDEN}}};

/// The way to end that endHere() takes. Set before its signal is sent.
End sEnd = End::KILL;

[[noreturn]] void useUpStack() {
    constexpr size_t kStep = 1024;  // less than the guard page
    for (;;) {
        *static_cast<volatile char*>(alloca(kStep)) = 1;
    }
}

void setAlternateStack() {
    alignas(16) static std::array<char, 65536> memory;
    stack_t stack = {};
    stack.ss_sp = memory.data();
    stack.ss_size = memory.size();
    sigaltstack(&stack, nullptr);
}

/// The handler of the signal that makes a thread end the process.
void endHere(int /*sig*/) {
    switch (sEnd) {
        case End::STACK_OVERFLOW_ALT:
            setAlternateStack();
            useUpStack();
        case End::STACK_OVERFLOW:
            useUpStack();
        case End::EXIT:
            _exit(EXIT_FINE);
        case End::QUICK_EXIT:
            quick_exit(EXIT_FINE);
        case End::BLOCKED: {
            sigset_t blocked;
            sigemptyset(&blocked);
            sigaddset(&blocked, traitsOf(sEnd).sig);
            pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
            fault(traitsOf(sEnd).sig);
            break;
        }
        default:
            // Not to this thread alone: the flush thread blocks SIGTERM.
            kill(getpid(), traitsOf(sEnd).sig);
    }
}

}  // namespace

const EndTraits& traitsOf(End end) {
    return kTraits[static_cast<size_t>(end)];
}

void endProcess(End end, int sig, CrashPlace place, pid_t loggingTid,
                std::chrono::microseconds gap) {
    // Two threads: the calling one is the second.
    const bool isSecond = end == End::TWO_FAULTS && place == CrashPlace::HOST;
    const pid_t target = findThread(isSecond ? CrashPlace::LOGGING : place, loggingTid);
    if (end == End::TWO_FAULTS) {
        const auto due = std::chrono::steady_clock::now() + gap;
        syscall(SYS_tgkill, getpid(), target, sig);
        while (std::chrono::steady_clock::now() < due) {
        }
        fault(sig);
    } else if (end != End::KILL) {
        // A signal that no thread blocks, not even the flush thread, and that the library ignores.
        sEnd = end;
        std::signal(SIGTRAP, endHere);
        syscall(SYS_tgkill, getpid(), target, SIGTRAP);
    }
    for (;;) {
        pause();
    }
}

}  // namespace CameraHost
