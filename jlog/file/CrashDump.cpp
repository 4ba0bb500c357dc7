// Runs after a fatal signal, by the rules of CrashHandler.cpp.

#include "jlog/file/CrashDump.h"

#include <sys/resource.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <functional>

#include "jlog/file/CrashSignals.h"
#include "jlog/file/FileJLogWriter.h"

namespace JCam::Utils::JLog::File {

namespace {

constexpr char kCrashFilePrefix[] = "NE_";
/// A small dump writes a current buffer with more bytes of records than this alone.
constexpr ptrdiff_t kMaxBytesOfSmallDump = 12799;
/// The fields of a buffer, in front of its records.
constexpr size_t kHeadBytes = offsetof(Buffer, data);

/// A scope with the signal mask of a dump.
///
/// SIGSEGV and SIGBUS are unblocked: the kernel ends a process at once that faults while the signal
/// is blocked, and the previous action would not learn of a fault of the dump. SIGXFSZ is blocked:
/// beyond the file size limit the write is to fail, and the process to die of its own signal.
/// SIGABRT is blocked: it comes from elsewhere, and another thread takes it, or this one later.
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

/// A scope with the priority of a dump: the flush thread, which may run it, has the lowest one, and
/// others wait for the process to end. Without the right to raise it, the priority stays.
class DumpPriority {
  public:
    DumpPriority() : mTid(static_cast<id_t>(gettid())), mOriginal(getpriority(PRIO_PROCESS, mTid)) {
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

/// How many bytes from the start of `buffer`, which may be any address, can be read. The kernel
/// copies one byte of each page; unlike a load, that may fail.
size_t readableBytes(const Buffer* buffer) {
    constexpr size_t kPageBytes = 4096;  // the smallest there is
    constexpr size_t kPages = sizeof(Buffer) / kPageBytes + 2;
    const auto begin = reinterpret_cast<uintptr_t>(buffer);
    // Not null, which would pass on a kernel without the call, nor so near the end of the address
    // space that the addresses of pages would wrap.
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
        return sizeof(Buffer);  // all of it, or the kernel lacks the call: then it is tried
    }
    return copied <= 0 ? 0
                       : reinterpret_cast<uintptr_t>(probes[static_cast<size_t>(copied)].iov_base) -
                                 begin;
}

}  // namespace

void CrashDump::write(const char* signalName, const void* address, const FileJLogWriter* logWriter,
                      bool smallDump) {
    const DumpPriority priority;
    // First of all: from here on a fault of the dump reaches the previous action.
    const DumpSignalMask mask;
    // A file may still be open, from a dump whose handler was left by a jump.
    mWriter.close();
    mWriter.spareFileOf(logWriter);
    if (!mWriter.open(true, kCrashFilePrefix, true)) {
        return;
    }
    mWriter.writeString("%s : addr = %p\n", signalName, address);
    mWriter.flush(false);
    writeRecords(smallDump);
    mWriter.close();
}

void CrashDump::writeRecords(bool smallDump) {
    // The slot is read before the queue: all records that were there before are in this buffer or
    // in those that the queue holds up to it, even if it is retired meanwhile.
    const Buffer* current = mCurrent.peek();
    const size_t currentBytes = readableBytes(current);
    const bool hasCurrent = current != nullptr && currentBytes >= kHeadBytes;
    if (!hasCurrent || !smallDump || current->end() - current->data <= kMaxBytesOfSmallDump) {
        writeQueue(current);
    }
    if (hasCurrent) {
        writeBuffer(*current, currentBytes);
    }
}

void CrashDump::writeQueue(const Buffer* end) {
    // The size before the front: a buffer that leaves in between is counted and not found, rather
    // than the other way round.
    const size_t queued = mQueue.size();
    QueueWalk walk = {mQueue.peekFront(), nullptr, queued};
    writeForward(walk, end);
    if (walk.next != end && walk.last != mQueue.peekBack()) {
        // A damaged link, or buffers that were queued meanwhile.
        findFromBack(walk);
        writeForward(walk, end);
    }
}

void CrashDump::writeForward(QueueWalk& walk, const Buffer* end) {
    // Counted: damaged links may form a circle.
    for (; walk.left > 0 && walk.next != end; --walk.left) {
        const size_t bytes = readableBytes(walk.next);
        if (bytes < kHeadBytes) {
            return;
        }
        writeBuffer(*walk.next, bytes);
        walk.last = walk.next;
        walk.next = walk.next->next.load(std::memory_order_seq_cst);
    }
}

void CrashDump::findFromBack(QueueWalk& walk) {
    const Buffer* back = mQueue.peekBack();
    const size_t most = mQueue.size();
    walk.next = nullptr;
    for (walk.left = 0; walk.left < most && back != walk.last; ++walk.left) {
        if (readableBytes(back) < kHeadBytes ||
            (walk.next != nullptr && back->next.load(std::memory_order_seq_cst) != walk.next)) {
            return;
        }
        walk.next = back;
        back = back->prev.load(std::memory_order_seq_cst);
    }
}

void CrashDump::writeBuffer(const Buffer& buffer, size_t readable) {
    const char* readableEnd = buffer.data + (readable - kHeadBytes);
    mWriter.appendRecords(buffer.data, std::min(buffer.end(), readableEnd, std::less<>()));
    mWriter.flush(false);
}

}  // namespace JCam::Utils::JLog::File
