#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

#include "jlog/file/LogRecord.h"

namespace JCam::Utils::JLog::File {

/// Bytes of records in one buffer: 256 KiB.
inline constexpr size_t kBufferBytes = 262144;

/// One block of records, packed back to back from the start of `data` to `writePtr`. It is owned by
/// exactly one of the logger's current slot, its queue and its pool.
///
/// Life: fresh -> current (records are reserved) -> full (queued) -> rendered once no writer is
/// pending -> reset, and into the pool or freed.
struct Buffer {
    /// Set in pendingWriters once the buffer is full, that is retired to the queue. It shares the
    /// word with the count because the last writer must learn both from its own decrement: a moment
    /// later the consumer may have freed the buffer.
    static constexpr uint32_t kFull = 0x80000000;

    /// Writers that have reserved a record here and not yet published it, plus kFull.
    std::atomic<uint32_t> pendingWriters{0};
    /// The next free byte of `data`. Stored under the logger's mutex; the consumer reads it once
    /// the buffer is full and it no longer moves, a crash handler at any moment.
    std::atomic<char*> writePtr{data};
    /// Bytes behind writePtr. Guarded by the logger's mutex.
    size_t freeBytes{kBufferBytes};
    /// Neighbours in a BufferList.
    Buffer* prev{nullptr};
    Buffer* next{nullptr};
    alignas(kRecordAlignment) char data[kBufferBytes];

    // Leaves `data` as the allocator gave it, so that no page is touched before it is used.
    Buffer() noexcept {}  // NOLINT(modernize-use-equals-default)

    /// Acquire: the first words of all records before it are visible, so they can be walked.
    [[nodiscard]] const char* end() const { return writePtr.load(std::memory_order_acquire); }
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

/// Owning doubly linked list of buffers. The links stand in the buffers, so that queueing, which
/// happens on callers' threads, never allocates. Guarded by the logger's mutex.
class BufferList {
  public:
    BufferList() = default;
    ~BufferList();
    BufferList(const BufferList&) = delete;
    BufferList& operator=(const BufferList&) = delete;

    [[nodiscard]] bool empty() const { return mSize == 0; }
    [[nodiscard]] size_t size() const { return mSize; }
    [[nodiscard]] Buffer* front() const { return mFront; }

    void pushBack(std::unique_ptr<Buffer> buffer);
    /// Takes `buffer`, which is in this list, out of it.
    std::unique_ptr<Buffer> remove(Buffer* buffer);
    /// The list must not be empty.
    std::unique_ptr<Buffer> popFront() { return remove(mFront); }
    std::unique_ptr<Buffer> popBack() { return remove(mBack); }

  private:
    Buffer* mFront{nullptr};
    Buffer* mBack{nullptr};
    size_t mSize{0};
};

}  // namespace JCam::Utils::JLog::File
