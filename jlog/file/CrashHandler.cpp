// The protocol of a crash: the gate, the roles of threads, the previous action, and how a signal is
// handed on. CrashDump.cpp writes the crash file.
//
// This code runs after a fatal signal, on the thread that received it, while all others go on. The
// thread may have been stopped anywhere: in malloc, in the time-zone code, with the logger's mutex
// locked, in the rendering of the flush thread. The rules for this file and for all that it calls:
//
// 1. No allocation, no lock, no stdio, no locale, no time-zone code, no opendir, no Android log.
//    What is left: system calls that POSIX lists as signal-safe or that are plain calls on Linux,
//    arithmetic, and memory that was allocated when the hook was armed.
// 2. Little stack: it belongs to the thread that died.
// 3. No waiting for anything that this thread may hold, nor for anything that makes no progress.
// 4. Data of other threads is read through atomics, and no memory is trusted: pointers are probed
//    before they are followed, sizes are checked. The text of a buffer is written out before the
//    next buffer is touched.
// 5. Every write ends with a whole line.

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>

#include "jlog/file/CrashDump.h"
#include "jlog/file/CrashGate.h"
#include "jlog/file/CrashSignals.h"
#include "jlog/file/FileJLoggerBase.h"
#include "jlog/file/FileJLogWriter.h"

namespace JCam::Utils::JLog::File {

namespace {

/// A signal that was sent to the thread that dumps, to be raised after the dump; 0 if none.
/// Relaxed: one thread sets and takes it.
std::atomic<int> sPostponed{0};

/// How many times in a row a signal was raised for the default action and the process went on, and
/// when that was last, in seconds of the monotonic clock. Relaxed: an estimate.
std::atomic<int> sRounds{0};
std::atomic<int64_t> sLastRoundSec{0};

/// Whether a signal goes round in circles: another action is in place, and only leads back here. To
/// be called before a signal is raised for the default action.
bool goesRound() {
    constexpr int kMaxRounds = 4;  // an action may take the signal itself the second time
    constexpr int64_t kPauseSec = 30;
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const int64_t lastSec = sLastRoundSec.exchange(now.tv_sec, std::memory_order_relaxed);
    if (now.tv_sec - lastSec > kPauseSec) {
        sRounds.store(0, std::memory_order_relaxed);
    }
    return sRounds.fetch_add(1, std::memory_order_relaxed) + 1 >= kMaxRounds;
}

/// Has the default action end the process at once: an action that calls this handler, and then puts
/// itself back, would prevent it for ever.
void endBy(int sig) {
    const struct sigaction defaultAction = {};
    sigaction(sig, &defaultAction, nullptr);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, sig);
    pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    raise(sig);
}

/// Whether the signal was sent, and is no fault of the thread.
bool wasSent(const siginfo_t& info) {
    return info.si_code <= 0;
}

const char* nameOf(int sig) {
    const size_t i = crashSignalIndex(sig);
    return i < kCrashSignals.size() ? kCrashSignals[i].name : "NE";
}

/// Hands the signal to `action`. Returns whether the process goes on, as far as can be told. The
/// default action, which ends it, takes effect when the handler returns.
bool handOn(int sig, siginfo_t* info, void* context, const struct sigaction& action) {
    // Whatever the flags say: the kernel, too, checks for the two special values first.
    if (action.sa_handler == SIG_IGN) {
        return true;
    }
    if (action.sa_handler != SIG_DFL) {
        if ((action.sa_flags & SA_SIGINFO) != 0) {
            action.sa_sigaction(sig, info, context);
        } else {
            action.sa_handler(sig);
        }
        return !isPending(sig);  // it is, if the action has led back here and on to the default
    }
    if (goesRound()) {
        endBy(sig);
    }
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    raise(sig);
    if (sigismember(&blocked, sig) == 1) {
        return false;  // pending until the handler returns, as is usual in its own handler
    }
    sRounds.store(0, std::memory_order_relaxed);
    return true;
}

/// Ends the dump of this thread. Waits, within bounds, for a write of another thread.
void endDump(pid_t tid, int sig) {
    CrashGate::awaitWrite(tid);
    CrashGate::endDump(tid, sig);
}

/// To be called when the process outlives the signal.
void goOn(pid_t tid) {
    CrashGate::reopen(tid);
    if (const int postponed = sPostponed.exchange(0, std::memory_order_relaxed)) {
        raise(postponed);
    }
}

}  // namespace

void FileJLoggerBase::sigHandler(int sig, siginfo_t* info, void* context) {
    const int callersErrno = errno;
    const pid_t tid = gettid();
    // Before the look for the logger: a thread that destroys it sees the gate shut, or the logger
    // is not found.
    const CrashGate::Role role = CrashGate::enter(tid, sig);
    FileJLoggerBase* logger = sActiveLogger.load(std::memory_order_seq_cst);
    const struct sigaction* found = logger != nullptr ? logger->previousAction(sig) : nullptr;
    // AGAIN: the previous action has had the signal, and has led back here.
    const struct sigaction defaultAction = {};
    const struct sigaction previous = restoreAction(
            sig, role == CrashGate::Role::AGAIN && found != nullptr ? &defaultAction : found);
    switch (role) {
        case CrashGate::Role::DUMP:
            sPostponed.store(0, std::memory_order_relaxed);
            if (logger != nullptr) {
                logger->dump(nameOf(sig), info != nullptr ? info->si_addr : nullptr);
            }
            endDump(tid, sig);
            break;
        case CrashGate::Role::AGAIN:
            break;
        case CrashGate::Role::NESTED:
            if (info != nullptr && wasSent(*info)) {
                sPostponed.store(sig, std::memory_order_relaxed);
                errno = callersErrno;
                return;
            }
            // A fault in the dump, which ends it.
            if (logger != nullptr && logger->mCrashWriter != nullptr) {
                logger->mCrashWriter->rescue();
            }
            endDump(tid, sig);
            break;
        case CrashGate::Role::LATE:
            CrashGate::awaitDumpEnd();
            break;
    }
    errno = callersErrno;
    if (handOn(sig, info, context, previous) && role == CrashGate::Role::DUMP) {
        goOn(tid);
    }
    errno = callersErrno;
}

struct sigaction FileJLoggerBase::restoreAction(int sig, const struct sigaction* found) {
    const auto isOurs = [](const struct sigaction& action) {
        return (action.sa_flags & SA_SIGINFO) != 0 && action.sa_sigaction == sigHandler;
    };
    struct sigaction previous = {};
    if (found != nullptr && !isOurs(*found)) {
        previous = *found;
        sigaction(sig, &previous, nullptr);
        return previous;
    }
    // There is no action to go back to: the hook was armed on top of another one, the logger is
    // gone, or the signal is none of the three. The default action keeps the signal from coming
    // back here for ever. Another action that is in place may be meant to get the signal, and
    // stays: goesRound() tells when it only leads back here.
    struct sigaction current = {};
    sigaction(sig, nullptr, &current);
    if (found != nullptr || isOurs(current)) {
        sigaction(sig, &previous, nullptr);
    }
    return previous;
}

const struct sigaction* FileJLoggerBase::previousAction(int sig) const {
    const size_t i = crashSignalIndex(sig);
    return i < kCrashSignals.size() ? &mOldActions[i] : nullptr;
}

void FileJLoggerBase::dump(const char* signalName, const void* address) {
    if (mCrashWriter == nullptr) {
        return;
    }
    CrashDump(*mCrashWriter, mCurrent, mFullBuffers, mStore.box())
            .write(signalName, address, mLogWriter.load(std::memory_order_seq_cst),
                   mNeHook.load(std::memory_order_relaxed) <= 1);
}

}  // namespace JCam::Utils::JLog::File
