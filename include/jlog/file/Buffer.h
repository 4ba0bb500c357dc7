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

/// The unit in which cores pass memory to each other, on the processors that this runs on.
inline constexpr size_t kCacheLineBytes = 64;

/// One block of records, packed back to back from the start of `data` to `writePtr`. It is owned by
/// exactly one of the logger's current slot, its queue and its pool. Exported, like list and pool,
/// for subclasses of FileJLoggerBase, which move buffers.
///
/// Life: fresh -> current (records are reserved) -> full (queued) -> rendered once no writer is
/// pending -> into the pool or freed. A pooled buffer is reset when it is used again.
///
/// A crash dump walks slot and queue without the mutex, at any moment. For its sake a buffer is
/// always found in one of the two until its text is in a file (or is given up, where there is no
/// file or no consumer), and nobody reuses or frees a buffer while a dump runs (see CrashGate).
struct JLOG_EXPORT Buffer {
    /// Set in pendingWriters once the buffer is full, that is retired to the queue. It shares the
    /// word with the count because the last writer must learn both from its own decrement: a moment
    /// later the consumer may have freed the buffer.
    static constexpr uint32_t kFull = 0x80000000;

    /// Writers that have reserved a record here and not yet published it, plus kFull.
    std::atomic<uint32_t> pendingWriters{0};
    /// Somebody has seen to the pages of the buffer. For the writer of its first record alone, and
    /// for whoever has the buffer before that: the mutex orders them.
    bool pagesMade{false};
    /// The next free byte of `data`. Stored under the logger's mutex; the consumer reads it once
    /// the buffer is full and it no longer moves, a crash handler at any moment.
    std::atomic<char*> writePtr{data};
    /// Bytes behind writePtr. Guarded by the logger's mutex.
    size_t freeBytes{kBufferBytes};
    /// The older neighbour in a BufferList. Both stay as they are when the buffer leaves the list,
    /// for a crash dump that is on its way through.
    std::atomic<Buffer*> prev{nullptr};
    /// The newer one.
    std::atomic<Buffer*> next{nullptr};
    /// The records, and behind them what is free.
    alignas(kRecordAlignment) char data[kBufferBytes];

    /// Leaves `data` as the kernel gave it, so that no page is touched before it is used.
    Buffer() noexcept {}  // NOLINT(modernize-use-equals-default)

    /// Pages of its own, by one mmap(2); null without memory. The kernel gets them back when the
    /// buffer goes, while a heap keeps what a burst has left, and none of them is shared with
    /// something else that callers write to.
    static void* operator new(size_t bytes, const std::nothrow_t& tag) noexcept;
    /// Gives the pages back. The counterpart of the new above, too: there is none that throws, as
    /// without memory nothing may. Keeps errno.
    // NOLINTNEXTLINE(cert-dcl54-cpp,misc-new-delete-overloads)
    static void operator delete(void* memory) noexcept;
    /// The same; the language wants it beside that new.
    static void operator delete(void* memory, const std::nothrow_t& tag) noexcept;

    /// Has the kernel make all pages of a new buffer, which it otherwise does one by one when they
    /// are first written to. Takes around 100 us; others may be writing records meanwhile, but the
    /// buffer must not go. Keeps errno.
    void makePages();

    /// Acquire: the first words of all records before it are visible, so they can be walked.
    [[nodiscard]] const char* end() const { return writePtr.load(std::memory_order_acquire); }
    /// Whether a record was reserved here, complete or not.
    [[nodiscard]] bool holdsRecords() const { return end() != data; }

    /// Reserves `bytes`, which are free, for a record and adds its writer, whom finishWriter()
    /// takes off. Under the logger's mutex, so relaxed but for the last store: its release lets no
    /// reader get past the start of a record without its size.
    LogHeader* reserve(size_t bytes) {
        char* place = writePtr.load(std::memory_order_relaxed);
        auto* record = new (place) LogHeader;
        record->reserve(static_cast<uint32_t>(bytes));
        pendingWriters.fetch_add(1, std::memory_order_relaxed);
        writePtr.store(place + bytes, std::memory_order_release);
        freeBytes -= bytes;
        return record;
    }

    /// Takes a writer off; true when it was the last one of a full buffer, which is now complete.
    /// The release publishes the record to the acquire of writersPending(). The buffer may not be
    /// touched after.
    [[nodiscard]] bool finishWriter() {
        return pendingWriters.fetch_sub(1, std::memory_order_release) == (kFull | 1);
    }

    /// Marks the buffer as full and returns the writers still pending. Release for whoever learns
    /// from the word that the buffer is full; acquire as in writersPending().
    uint32_t markFull() { return pendingWriters.fetch_or(kFull, std::memory_order_acq_rel); }

    /// Acquire: at 0 every record of a full buffer is complete and visible.
    [[nodiscard]] uint32_t writersPending() const {
        return pendingWriters.load(std::memory_order_acquire) & ~kFull;
    }

    /// Makes a rendered buffer as good as new. Relaxed: the mutex hands it to its next user.
    void reset() {
        pendingWriters.store(0, std::memory_order_relaxed);
        writePtr.store(data, std::memory_order_relaxed);
        freeBytes = kBufferBytes;
    }
};

static_assert(offsetof(Buffer, data) % kRecordAlignment == 0);
static_assert(kBufferBytes % kRecordAlignment == 0);

/// Owns the buffer that receives new records, or none. The pointer is atomic for the crash dump,
/// everything else happens under the logger's mutex.
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
    /// The same for a crash dump. Signal-safe. Sequentially consistent, see CrashGate; and as an
    /// acquire it shows the whole buffer, and in the queue all buffers that were here before.
    [[nodiscard]] Buffer* peek() const { return mBuffer.load(std::memory_order_seq_cst); }

    /// Puts `buffer`, which may be null, into the slot and gives back what was there.
    std::unique_ptr<Buffer> replace(std::unique_ptr<Buffer> buffer) {
        return std::unique_ptr<Buffer>(
                mBuffer.exchange(buffer.release(), std::memory_order_seq_cst));
    }

  private:
    std::atomic<Buffer*> mBuffer{nullptr};
};

/// The queue: an owning doubly linked list of full buffers, oldest first. The links stand in the
/// buffers, so that queueing, which happens on callers' threads, never allocates. Changed under the
/// logger's mutex; a crash dump walks from peekFront() along `next` without it, and where a damaged
/// link ends its way, from peekBack() along `prev`.
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
    /// slot before learns how many buffers from the front it has to look for. Acquire: of a buffer
    /// that is not counted any more the front knows nothing either.
    [[nodiscard]] size_t size() const { return mSize.load(std::memory_order_acquire); }
    /// The oldest buffer, or null. Relaxed: under the mutex.
    [[nodiscard]] Buffer* front() const { return mFront.load(std::memory_order_relaxed); }
    /// The same for a crash dump. Signal-safe. Sequentially consistent, see CrashGate.
    [[nodiscard]] Buffer* peekFront() const { return mFront.load(std::memory_order_seq_cst); }
    /// The newest buffer, or null, likewise.
    [[nodiscard]] Buffer* peekBack() const { return mBack.load(std::memory_order_seq_cst); }

    /// Appends the buffer of `slot`, which is not empty, and puts `successor`, which may be null,
    /// in its place. At no moment is the buffer in neither of the two.
    void pushBackFrom(BufferSlot& slot, std::unique_ptr<Buffer> successor);
    /// Takes `buffer`, which is in this list, out of it.
    std::unique_ptr<Buffer> remove(Buffer* buffer);

  private:
    std::atomic<Buffer*> mFront{nullptr};
    std::atomic<Buffer*> mBack{nullptr};
    std::atomic<size_t> mSize{0};
};

/// A few buffers for the next burst. They are not linked, and keep their records until they are
/// used again, for a crash dump that may have them in hand still. Under the logger's mutex.
class JLOG_EXPORT BufferPool {
  public:
    /// How many it keeps: 768 KiB.
    static constexpr size_t kMaxBuffers = 3;

    /// How many there are.
    [[nodiscard]] size_t size() const { return mSize; }
    /// The buffer that was put back last; null when there is none.
    std::unique_ptr<Buffer> take();
    /// Returns the buffer that has been here longest when there is no room for `buffer` otherwise.
    [[nodiscard]] std::unique_ptr<Buffer> put(std::unique_ptr<Buffer> buffer);

  private:
    std::array<std::unique_ptr<Buffer>, kMaxBuffers> mBuffers;
    size_t mSize{0};
};

}  // namespace JCam::Utils::JLog::File
