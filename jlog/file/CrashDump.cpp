// Runs after a fatal signal, by the rules of CrashHandler.cpp.

#include "jlog/file/CrashDump.h"

#include <sys/resource.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>

#include "jlog/file/BlackBox.h"
#include "jlog/file/CrashSignals.h"
#include "jlog/file/FileJLogWriter.h"
#include "jlog/file/LineRenderer.h"

namespace JCam::Utils::JLog::File {

namespace {

constexpr char kCrashFilePrefix[] = "NE_";
/// A small dump writes a current buffer with more bytes of records than this alone.
constexpr size_t kMaxBytesOfSmallDump = 12799;

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

/// How many of the `bytes`, at most kBufferBytes, from `memory` on, which may be any address, can
/// be read. The kernel copies one byte of each page; unlike a load, that may fail.
size_t readableBytes(const void* memory, size_t bytes) {
    constexpr size_t kPageBytes = 4096;  // the smallest there is
    constexpr size_t kPages = kBufferBytes / kPageBytes + 2;
    const auto begin = reinterpret_cast<uintptr_t>(memory);
    // Not null, which would pass on a kernel without the call, nor so near the end of the address
    // space that the addresses of pages would wrap.
    if (bytes == 0 || begin < kPageBytes || begin > UINTPTR_MAX - 2 * kBufferBytes) {
        return 0;
    }
    const uintptr_t end = begin + bytes;
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
        return bytes;  // all of it, or the kernel lacks the call: then it is tried
    }
    return copied <= 0 ? 0
                       : reinterpret_cast<uintptr_t>(probes[static_cast<size_t>(copied)].iov_base) -
                                 begin;
}

/// Whether there is the head of a buffer at `buffer`, which may be any address.
bool isReadable(const Buffer* buffer) {
    return reinterpret_cast<uintptr_t>(buffer) % alignof(Buffer) == 0 &&
           readableBytes(buffer, sizeof(Buffer)) == sizeof(Buffer);
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
    const bool hasCurrent = isReadable(current);
    if (!hasCurrent || !smallDump || current->usedBytes() <= kMaxBytesOfSmallDump) {
        writeQueue(current);
    }
    if (hasCurrent) {
        writeBuffer(*current);
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
        if (!isReadable(walk.next)) {
            return;
        }
        writeBuffer(*walk.next);
        walk.last = walk.next;
        walk.next = walk.next->next.load(std::memory_order_seq_cst);
    }
}

void CrashDump::findFromBack(QueueWalk& walk) {
    const Buffer* back = mQueue.peekBack();
    const size_t most = mQueue.size();
    walk.next = nullptr;
    for (walk.left = 0; walk.left < most && back != walk.last; ++walk.left) {
        if (!isReadable(back) ||
            (walk.next != nullptr && back->next.load(std::memory_order_seq_cst) != walk.next)) {
            return;
        }
        walk.next = back;
        back = back->prev.load(std::memory_order_seq_cst);
    }
}

void CrashDump::writeBuffer(const Buffer& buffer) {
    const char* records = buffer.data;
    if (reinterpret_cast<uintptr_t>(records) % kRecordAlignment != 0) {
        return;
    }
    const char* end = records + readableBytes(records, buffer.usedBytes());
    // Counted first: what is completed meanwhile may or may not get into the file.
    const uint32_t complete = mBox != nullptr ? countComplete(records, end) : 0;
    mWriter.appendRecords(records, end);
    mWriter.flush(false);
    if (mBox != nullptr && !mWriter.hasLostText() &&
        readableBytes(buffer.slot, sizeof(BoxSlot)) == sizeof(BoxSlot)) {
        mBox->markDumped(buffer.slot, complete);
    }
}

}  // namespace JCam::Utils::JLog::File
