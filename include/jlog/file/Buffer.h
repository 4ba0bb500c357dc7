#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

#include "jlog/file/LogRecord.h"
#include "jlog/JLogExport.h"

namespace JCam::Utils::JLog::File {

/// Bytes of records in one buffer: 256 KiB.
inline constexpr size_t kBufferBytes = 262144;

/// Bytes of a cache line, on the processors that this runs on.
inline constexpr size_t kCacheLineBytes = 64;

/// One block of records, packed back to back from the start of `data` to `writePtr`. Exactly one of
/// the logger's current slot, its queue and its pool owns it. Exported, like list and pool, for
/// subclasses of FileJLoggerBase, which move buffers.
///
/// Life: fresh -> current (records are reserved) -> full (queued) -> rendered once no writer is
/// pending -> into the pool or freed. A pooled buffer is reset when it is used again.
///
/// A crash dump walks slot and queue without the mutex, at any moment. So a buffer stays in one of
/// the two until its text is in a file (or is given up, without a file or a consumer), and no
/// buffer is reused or freed while a dump runs (see CrashGate).
struct JLOG_EXPORT Buffer {
    /// Set in pendingWriters when the buffer is full, that is, retired to the queue. It shares the
    /// word with the count, so that the last writer learns both from its own decrement: after that,
    /// the consumer may free the buffer at any moment.
    static constexpr uint32_t kFull = 0x80000000;

    /// Writers that have reserved a record here and not yet published it, plus kFull.
    std::atomic<uint32_t> pendingWriters{0};
    /// The kernel has made the pages. Used by the writer of the first record, and by the buffer's
    /// owner before that; the mutex orders the two.
    bool pagesMade{false};
    /// The next free byte of `data`. Stored under the logger's mutex; the consumer reads it once
    /// the buffer is full and it no longer moves, a crash handler at any moment.
    std::atomic<char*> writePtr{data};
    /// Bytes behind writePtr. Guarded by the logger's mutex.
    size_t freeBytes{kBufferBytes};
    /// The older neighbour in a BufferList. Both links keep their values when the buffer leaves the
    /// list: a crash dump may be following them.
    std::atomic<Buffer*> prev{nullptr};
    /// The newer one.
    std::atomic<Buffer*> next{nullptr};
    /// The records, and behind them what is free.
    alignas(kRecordAlignment) char data[kBufferBytes];

    /// Leaves `data` as the kernel returned it, so that no page is touched before it is used.
    Buffer() noexcept {}  // NOLINT(modernize-use-equals-default)

    /// Takes pages from the kernel, by one mmap(2); null without memory. The kernel gets them back
    /// when the buffer goes, where a heap would keep what a burst has left. No page is shared with
    /// other memory that callers write to.
    static void* operator new(size_t bytes, const std::nothrow_t& tag) noexcept;
    /// Gives the pages back. Keeps errno. There is no operator new that throws.
    // NOLINTNEXTLINE(cert-dcl54-cpp,misc-new-delete-overloads)
    static void operator delete(void* memory) noexcept;
    /// The same; the language requires it beside that new.
    static void operator delete(void* memory, const std::nothrow_t& tag) noexcept;

    /// Has the kernel make all pages of a new buffer, in place of one page fault for each. Takes
    /// some 100 us. Others may write records meanwhile, but the buffer must not go. Keeps errno.
    void makePages();

    /// Acquire: the first words of all records before it are visible, so they can be walked.
    [[nodiscard]] const char* end() const { return writePtr.load(std::memory_order_acquire); }
    /// Whether a record was reserved here, complete or not.
    [[nodiscard]] bool holdsRecords() const { return end() != data; }

    /// Reserves `bytes`, which are free, for a record. Increments pendingWriters; finishWriter()
    /// decrements it. Under the logger's mutex, so relaxed but for the last store: its release
    /// meets end(), so that a reader that sees the record also sees its size.
    LogHeader* reserve(size_t bytes) {
        char* place = writePtr.load(std::memory_order_relaxed);
        auto* record = new (place) LogHeader;
        record->reserve(static_cast<uint32_t>(bytes));
        pendingWriters.fetch_add(1, std::memory_order_relaxed);
        writePtr.store(place + bytes, std::memory_order_release);
        freeBytes -= bytes;
        return record;
    }

    /// Decrements pendingWriters; true for the last writer of a full buffer, which is then
    /// complete. The release publishes the record to the acquire of writersPending(). The caller
    /// may not touch the buffer afterwards.
    [[nodiscard]] bool finishWriter() {
        return pendingWriters.fetch_sub(1, std::memory_order_release) == (kFull | 1);
    }

    /// Marks the buffer as full and returns the writers still pending. Release for the last
    /// writer, which learns from the word that the buffer is full; acquire as in writersPending().
    uint32_t markFull() { return pendingWriters.fetch_or(kFull, std::memory_order_acq_rel); }

    /// Acquire: at 0 every record of a full buffer is complete and visible.
    [[nodiscard]] uint32_t writersPending() const {
        return pendingWriters.load(std::memory_order_acquire) & ~kFull;
    }

    /// Empties a rendered buffer. Relaxed: the mutex hands it to its next user.
    void reset() {
        pendingWriters.store(0, std::memory_order_relaxed);
        writePtr.store(data, std::memory_order_relaxed);
        freeBytes = kBufferBytes;
    }
};

static_assert(offsetof(Buffer, data) % kRecordAlignment == 0);
static_assert(kBufferBytes % kRecordAlignment == 0);

/// Owns the buffer that receives new records, or none. The pointer is atomic for the crash dump;
/// all other accesses are under the logger's mutex.
class BufferSlot {
  public:
    /// Empty.
    BufferSlot() = default;
    /// Frees the buffer, and the records in it are lost.
    ~BufferSlot() { delete get(); }
    BufferSlot(const BufferSlot&) = delete;
    BufferSlot& operator=(const BufferSlot&) = delete;

    /// The buffer, or null. Relaxed: under the mutex.
    [[nodiscard]] Buffer* get() const { return mBuffer.load(std::memory_order_relaxed); }
    /// The same for a crash dump. Signal-safe. Sequentially consistent, see CrashGate. As an
    /// acquire it makes the whole buffer visible, and in the queue all buffers that were here
    /// before.
    [[nodiscard]] Buffer* peek() const { return mBuffer.load(std::memory_order_seq_cst); }

    /// Puts `buffer`, which may be null, into the slot and returns what was there.
    std::unique_ptr<Buffer> replace(std::unique_ptr<Buffer> buffer) {
        return std::unique_ptr<Buffer>(
                mBuffer.exchange(buffer.release(), std::memory_order_seq_cst));
    }

  private:
    std::atomic<Buffer*> mBuffer{nullptr};
};

/// The queue: an owning doubly linked list of full buffers, oldest first. The links are in the
/// buffers, so queueing, which happens on callers' threads, never allocates. Changed under the
/// logger's mutex. A crash dump walks without it, from peekFront() along `next`, and beyond a
/// damaged link from peekBack() along `prev`.
class JLOG_EXPORT BufferList {
  public:
    /// Empty.
    BufferList() = default;
    /// Frees the buffers, and the records in them are lost.
    ~BufferList();
    BufferList(const BufferList&) = delete;
    BufferList& operator=(const BufferList&) = delete;

    /// As exact as size().
    [[nodiscard]] bool empty() const { return size() == 0; }
    /// Buffers in the list. Exact under the mutex. Signal-safe: a crash dump that has peeked at the
    /// slot before need look for no more buffers than this from the front. Acquire: a buffer that
    /// is not counted any more cannot be reached from the front either.
    [[nodiscard]] size_t size() const { return mSize.load(std::memory_order_acquire); }
    /// The oldest buffer, or null. Relaxed: under the mutex.
    [[nodiscard]] Buffer* front() const { return mFront.load(std::memory_order_relaxed); }
    /// The same for a crash dump. Signal-safe. Sequentially consistent, see CrashGate.
    [[nodiscard]] Buffer* peekFront() const { return mFront.load(std::memory_order_seq_cst); }
    /// The newest buffer, or null, likewise.
    [[nodiscard]] Buffer* peekBack() const { return mBack.load(std::memory_order_seq_cst); }

    /// Appends the buffer of `slot`, which is not empty, and puts `successor`, which may be null,
    /// in its place. At every moment the buffer is in at least one of the two.
    void pushBackFrom(BufferSlot& slot, std::unique_ptr<Buffer> successor);
    /// Takes `buffer`, which is in this list, out of it.
    std::unique_ptr<Buffer> remove(Buffer* buffer);

  private:
    std::atomic<Buffer*> mFront{nullptr};
    std::atomic<Buffer*> mBack{nullptr};
    std::atomic<size_t> mSize{0};
};

/// A few buffers for the next burst. They are not linked, and keep their records until they are
/// used again: a crash dump may still be reading them. Under the logger's mutex.
class JLOG_EXPORT BufferPool {
  public:
    /// How many it keeps: 768 KiB.
    static constexpr size_t kMaxBuffers = 3;

    /// How many there are.
    [[nodiscard]] size_t size() const { return mSize; }
    /// The buffer that was put in last; null when there is none.
    std::unique_ptr<Buffer> take();
    /// Adds `buffer`. Returns the buffer that has been here longest if there was no room, otherwise
    /// null.
    [[nodiscard]] std::unique_ptr<Buffer> put(std::unique_ptr<Buffer> buffer);

  private:
    std::array<std::unique_ptr<Buffer>, kMaxBuffers> mBuffers;
    size_t mSize{0};
};

}  // namespace JCam::Utils::JLog::File
