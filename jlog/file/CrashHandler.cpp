// What runs after a fatal signal, on the thread that received it, while all others go on. That
// thread may have been stopped anywhere: in malloc, in the time-zone code, with the logger's mutex
// in hand, in the rendering of the flush thread. The rules for everything here, and for whatever it
// calls:
//
// 1. No allocation, no lock, no stdio, no locale, no time-zone code, no opendir, no Android log.
//    There are system calls that POSIX lists as signal-safe or that are plain calls on Linux,
//    arithmetic, and memory that was set aside when the hook was armed.
// 2. Little stack: it is the one of the thread that died.
// 3. No waiting for what this thread may hold itself, nor for what makes no progress.
// 4. What others write is read through atomics, and nothing in memory is trusted: pointers are
//    probed before they are followed, sizes checked. The text of a buffer is written out before the
//    next one is touched.
// 5. The kernel is given whole lines.

#include <sys/resource.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <ctime>

#include "jlog/file/CrashGate.h"
#include "jlog/file/CrashSignals.h"
#include "jlog/file/FileJLoggerBase.h"
#include "jlog/file/FileJLogWriter.h"

namespace JCam::Utils::JLog::File {

namespace {

constexpr char kCrashFilePrefix[] = "NE_";
/// In mode 1 a current buffer with more bytes of records than this is dumped alone.
constexpr ptrdiff_t kMaxBytesOfSmallDump = 12799;
/// What describes a buffer, in front of its records.
constexpr size_t kHeadBytes = offsetof(Buffer, data);

/// Whether the signal waits for this thread to unblock it.
bool isPending(int sig) {
    sigset_t pending;
    return sigpending(&pending) == 0 && sigismember(&pending, sig) == 1;
}

/// The signal mask of a dump, for a scope.
///
/// SIGSEGV and SIGBUS are let through: the kernel ends a process at once that faults while the
/// signal is blocked, and the action that was installed before us would never learn of a fault in
/// here. SIGXFSZ is kept off: beyond the file size limit the write is to fail, not the process to
/// die of another signal than the one it has received. SIGABRT can only come from elsewhere, and
/// has no business in here either: another thread takes it, or this one afterwards.
class DumpSignalMask {
  public:
    DumpSignalMask() {
        sigset_t faults;
        sigemptyset(&faults);
        sigaddset(&faults, SIGSEGV);
        sigaddset(&faults, SIGBUS);
        sigset_t others;
        sigemptyset(&others);
        sigaddset(&others, SIGABRT);
        sigaddset(&others, SIGXFSZ);
        pthread_sigmask(SIG_BLOCK, &others, &mOriginal);
        mWasPending = isPending(SIGXFSZ);
        pthread_sigmask(SIG_UNBLOCK, &faults, nullptr);
    }
    ~DumpSignalMask() {
        if (!mWasPending && isPending(SIGXFSZ)) {
            const timespec noWait = {};
            sigset_t fileSize;
            sigemptyset(&fileSize);
            sigaddset(&fileSize, SIGXFSZ);
            sigtimedwait(&fileSize, nullptr, &noWait);
        }
        pthread_sigmask(SIG_SETMASK, &mOriginal, nullptr);
    }
    DumpSignalMask(const DumpSignalMask&) = delete;
    DumpSignalMask& operator=(const DumpSignalMask&) = delete;

  private:
    sigset_t mOriginal;
    bool mWasPending;
};

/// The priority of a dump, for a scope: it may run on the flush thread, which is at the end of
/// every queue, while others wait for the process to end. Without the right to raise it, it stays.
class DumpPriority {
  public:
    explicit DumpPriority(pid_t tid)
            : mTid(static_cast<id_t>(tid)), mOriginal(getpriority(PRIO_PROCESS, mTid)) {
        if (mOriginal > 0) {
            setpriority(PRIO_PROCESS, mTid, 0);
        }
    }
    ~DumpPriority() {
        if (mOriginal > 0) {
            setpriority(PRIO_PROCESS, mTid, mOriginal);
        }
    }
    DumpPriority(const DumpPriority&) = delete;
    DumpPriority& operator=(const DumpPriority&) = delete;

  private:
    id_t mTid;
    int mOriginal;
};

/// A signal that somebody has sent to the thread that dumps, for when the dump is over; 0 if none.
/// Relaxed: one thread sets and takes it.
std::atomic<int> sPostponed{0};

/// How many times in a row a signal was raised for the default action, as far as is known, and the
/// process goes on; and when that was last, in seconds of the monotonic clock. Relaxed: an
/// estimate.
std::atomic<int> sRounds{0};
std::atomic<int64_t> sLastRoundSec{0};

/// Whether signals go round in circles: somebody else's action is in place, and only leads back
/// here. To be called before a signal is raised for the default action.
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

/// Lets the default action end the process here: an action that runs around this handler, and puts
/// itself back, would keep it from that for ever.
void endBy(int sig) {
    const struct sigaction defaultAction = {};
    sigaction(sig, &defaultAction, nullptr);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, sig);
    pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    raise(sig);
}

/// Whether the signal was sent, as opposed to a fault of the thread.
bool wasSent(const siginfo_t& info) {
    return info.si_code <= 0;
}

/// How many bytes from the start of a buffer can be read; it may be no buffer at all. The kernel
/// tells by copying a byte of each page: unlike a load, that may fail.
size_t readableBytes(const Buffer* buffer) {
    constexpr size_t kPageBytes = 4096;  // the smallest there is
    constexpr size_t kPages = sizeof(Buffer) / kPageBytes + 2;
    const auto begin = reinterpret_cast<uintptr_t>(buffer);
    // Not null, which a kernel without the call would let pass, nor so near the end that the
    // addresses of pages would wrap.
    if (begin < kPageBytes || begin > UINTPTR_MAX - 2 * sizeof(Buffer) ||
        begin % alignof(Buffer) != 0) {
        return 0;
    }
    const uintptr_t end = begin + sizeof(Buffer);
    std::array<iovec, kPages> probes;
    std::array<char, kPages> copies;
    size_t count = 0;
    for (uintptr_t place = begin; place < end; place = (place / kPageBytes + 1) * kPageBytes) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): for the kernel alone
        probes[count++] = {reinterpret_cast<void*>(place), 1};
    }
    const iovec local = {copies.data(), count};
    const ssize_t copied = process_vm_readv(getpid(), &local, 1, probes.data(), count, 0);
    if (copied == static_cast<ssize_t>(count) || (copied < 0 && errno != EFAULT)) {
        return sizeof(Buffer);  // or the kernel lacks the call, and it is to be tried
    }
    return copied <= 0 ? 0
                       : reinterpret_cast<uintptr_t>(probes[static_cast<size_t>(copied)].iov_base) -
                                 begin;
}

const char* nameOf(int sig) {
    const size_t i = crashSignalIndex(sig);
    return i < kCrashSignals.size() ? kCrashSignals[i].name : "NE";
}

/// Hands the signal to `action`. Returns whether the process goes on, as far as can be told: after
/// the default action it does not, which takes effect when the handler returns.
bool handOn(int sig, siginfo_t* info, void* context, const struct sigaction& action) {
    // One word whatever the flags say: the kernel looks for the two special values first.
    if (action.sa_handler == SIG_IGN) {
        return true;
    }
    if (action.sa_handler != SIG_DFL) {
        if ((action.sa_flags & SA_SIGINFO) != 0) {
            action.sa_sigaction(sig, info, context);
        } else {
            action.sa_handler(sig);
        }
        return !isPending(sig);  // for the default action, where it has led back here
    }
    if (goesRound()) {
        endBy(sig);
    }
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    raise(sig);
    if (sigismember(&blocked, sig) == 1) {
        return false;  // as while its handler runs: it stays pending until the handler returns
    }
    sRounds.store(0, std::memory_order_relaxed);
    return true;
}

}  // namespace

void FileJLoggerBase::sigHandler(int sig, siginfo_t* info, void* context) {
    const int callersErrno = errno;
    const pid_t tid = gettid();
    // Before the look for the logger: whoever destroys it sees the gate shut, or is not found.
    const CrashGate::Role role = CrashGate::enter(tid, sig);
    FileJLoggerBase* logger = sActiveLogger.load(std::memory_order_seq_cst);
    const struct sigaction* found = logger != nullptr ? logger->previousAction(sig) : nullptr;
    // The action that was found has had the signal, and has led back here.
    const struct sigaction defaultAction = {};
    const struct sigaction previous = restoreAction(
            sig, role == CrashGate::Role::AGAIN && found != nullptr ? &defaultAction : found);
    switch (role) {
        case CrashGate::Role::DUMP:
            sPostponed.store(0, std::memory_order_relaxed);
            if (logger != nullptr) {
                const DumpPriority priority(tid);
                logger->dump(nameOf(sig), info != nullptr ? info->si_addr : nullptr);
            }
            CrashGate::awaitWrite(tid);
            CrashGate::endDump(tid, sig);
            break;
        case CrashGate::Role::AGAIN:
            break;
        case CrashGate::Role::NESTED:
            if (info != nullptr && wasSent(*info)) {
                sPostponed.store(sig, std::memory_order_relaxed);
                errno = callersErrno;
                return;
            }
            // A fault in the dump, and so the end of it.
            if (logger != nullptr && logger->mCrashWriter != nullptr) {
                logger->mCrashWriter->rescue();
            }
            CrashGate::awaitWrite(tid);
            CrashGate::endDump(tid, sig);
            break;
        case CrashGate::Role::LATE:
            CrashGate::awaitDumpEnd();
            break;
    }
    errno = callersErrno;
    if (handOn(sig, info, context, previous) && role == CrashGate::Role::DUMP) {
        CrashGate::reopen(tid);
        if (const int postponed = sPostponed.exchange(0, std::memory_order_relaxed)) {
            raise(postponed);
        }
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
    // gone, or the signal is none of the three. The default action, so that the signal does not
    // come back here for ever. If somebody else's action is in place, the signal may be meant for
    // that: goesRound() tells when it is not.
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
    FileJLogWriter* writer = mCrashWriter.get();
    if (writer == nullptr) {
        return;
    }
    const DumpSignalMask mask;
    // Open is the file of a dump whose handler was left by a jump.
    writer->close();
    writer->spareFileOf(mLogWriter.load(std::memory_order_seq_cst));
    if (!writer->open(true, kCrashFilePrefix, true)) {
        return;
    }
    writer->writeString("%s : addr = %p\n", signalName, address);
    writer->flush(false);
    dumpRecords();
    writer->close();
}

void FileJLoggerBase::dumpRecords() {
    // The current buffer first: whatever becomes of it, all records that were there before are in
    // it or in those that the queue holds up to it. It is found there if it was retired meanwhile.
    const Buffer* current = mCurrent.peek();
    const size_t currentBytes = readableBytes(current);
    const bool hasCurrent = current != nullptr && currentBytes >= kHeadBytes;
    if (hasCurrent && mNeHook.load(std::memory_order_relaxed) <= 1 &&
        current->end() - current->data > kMaxBytesOfSmallDump) {
        dumpBuffer(*current, currentBytes);
        return;
    }
    // The size before the front: a buffer that leaves in between is counted, and not found.
    const size_t queued = mFullBuffers.size();
    QueueWalk walk = {mFullBuffers.peekFront(), nullptr, queued};
    dumpQueue(walk, current);
    const Buffer* back = mFullBuffers.peekBack();
    if (walk.next != current && walk.last != back) {
        // A damaged link, or buffers that came meanwhile. What is behind it is reached from the
        // other end.
        const size_t most = mFullBuffers.size();
        walk.next = nullptr;
        for (walk.left = 0; walk.left < most && back != walk.last; ++walk.left) {
            if (readableBytes(back) < kHeadBytes ||
                (walk.next != nullptr && back->next.load(std::memory_order_seq_cst) != walk.next)) {
                break;
            }
            walk.next = back;
            back = back->prev.load(std::memory_order_seq_cst);
        }
        dumpQueue(walk, current);
    }
    if (hasCurrent) {
        dumpBuffer(*current, currentBytes);
    }
}

void FileJLoggerBase::dumpQueue(QueueWalk& walk, const Buffer* end) {
    // Counted, since damaged links may go round in circles.
    for (; walk.left > 0 && walk.next != end; --walk.left) {
        const size_t bytes = readableBytes(walk.next);
        if (bytes < kHeadBytes) {
            return;
        }
        dumpBuffer(*walk.next, bytes);
        walk.last = walk.next;
        walk.next = walk.next->next.load(std::memory_order_seq_cst);
    }
}

void FileJLoggerBase::dumpBuffer(const Buffer& buffer, size_t readable) {
    renderRecords(buffer, *mCrashWriter, readable - kHeadBytes);
    mCrashWriter->flush(false);
}

}  // namespace JCam::Utils::JLog::File
