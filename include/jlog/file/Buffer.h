#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "jlog/file/LogRecord.h"
#include "jlog/JLogExport.h"

namespace JCam::Utils::JLog::File {

/// Bytes of records in one buffer: 256 KiB.
inline constexpr size_t kBufferBytes = 262144;

/// Bytes of a cache line, on the processors that this runs on.
inline constexpr size_t kCacheLineBytes = 64;

/// What reservations change in a buffer, as one word, so that one compare-exchange reserves:
///
///     63       62                    32              16                0
///     +--------+---------+-----------+---------------+-----------------+
///     | closed | awaited | units used| serials taken | writers pending |
///     +--------+---------+-----------+---------------+-----------------+
///
/// A unit is kRecordAlignment bytes. No field overflows: a buffer has room for fewer records than
/// any of them can count.
class BufferState {
  public:
    /// No record is reserved any more.
    static constexpr uint64_t kClosed = uint64_t{1} << 63;
    /// The consumer waits for the writers that are pending. Only in closed buffers.
    static constexpr uint64_t kAwaited = uint64_t{1} << 62;
    /// What a writer that has ended takes off.
    static constexpr uint64_t kOneWriter = 1;

    /// An open buffer without records.
    constexpr BufferState() = default;
    /// The state that `word` holds.
    constexpr explicit BufferState(uint64_t word) : mWord(word) {}

    /// One writer's request for `bytes`, with a serial number or without: the sum of a state and a
    /// request is the state after the reservation.
    static constexpr BufferState request(size_t bytes, bool serial) {
        return BufferState(kOneWriter | (serial ? uint64_t{1} << kSerialShift : 0) |
                           (bytes / kRecordAlignment) << kUnitShift);
    }

    /// The state as Buffer::state holds it.
    [[nodiscard]] constexpr uint64_t word() const { return mWord; }
    /// Writers that have reserved a record and not yet published it.
    [[nodiscard]] constexpr uint32_t pending() const { return mWord & kFieldMask; }
    /// Enter and exit records that were reserved.
    [[nodiscard]] constexpr uint32_t serials() const { return mWord >> kSerialShift & kFieldMask; }
    /// Bytes that were reserved. Damaged memory may say more than a buffer has.
    [[nodiscard]] constexpr size_t bytes() const {
        return (mWord >> kUnitShift & kFieldMask) * kRecordAlignment;
    }
    /// Whether this state is one that a reservation may lead to: open, and within the buffer.
    [[nodiscard]] constexpr bool isValidOpen() const {
        return mWord >> kUnitShift <= kBufferBytes / kRecordAlignment;
    }
    /// Whether the consumer is to be told that the one writer who is pending has ended.
    [[nodiscard]] constexpr bool isAwaitedLast() const {
        return (mWord & (kAwaited | kFieldMask)) == (kAwaited | kOneWriter);
    }

  private:
    static constexpr unsigned int kSerialShift = 16;
    static constexpr unsigned int kUnitShift = 32;
    static constexpr uint64_t kFieldMask = 0xFFFF;
    static_assert(kBufferBytes / kRecordAlignment <= kFieldMask);

    uint64_t mWord{0};
};

class BlackBox;
class BufferStore;
struct BoxSlot;

/// A block of records, packed back to back from the start of `data`, and its head, which is this
/// object. It is in the logger's current slot, its queue or its pool, or with a thread that moves
/// it from one to the next. Exported, like list, pool and store, for subclasses of FileJLoggerBase,
/// which move buffers.
///
/// Life: fresh -> current (open: records are reserved) -> full (closed, queued) -> rendered once no
/// writer is pending -> cleared, and into the pool or freed. Wherever no record was written, the
/// block is zero.
///
/// A caller takes no lock to reserve a record. It reads the slot, then the state of the buffer that
/// it found there, and then exchanges that state. Meanwhile the buffer may have been closed,
/// rendered, pooled, freed, and made current again. So heads lie in memory that lives as long as
/// the logger. The exchange succeeds only on an open buffer, and only the current one is open:
/// whatever the caller has seen before, it has reserved a record of the current buffer, which its
/// pending writer keeps from being rendered or freed. All else about the buffer is read after that.
///
/// A crash dump walks slot and queue without the mutex, at any moment. So a buffer stays in one of
/// the two until its text is in a file (or is given up, without a file or a consumer), and no
/// buffer that a dump can find is cleared or freed while the dump runs (see CrashGate).
struct JLOG_EXPORT Buffer {
    /// A BufferState. While the buffer is open, every change is a read-modify-write: so all of them
    /// are in the release sequence of open().
    alignas(kCacheLineBytes) std::atomic<uint64_t> state{BufferState::kClosed};
    /// The records, and behind them what is free: kBufferBytes.
    char* data{nullptr};
    /// The last serial number before those of this buffer. Written before open(), like `data`.
    uint32_t serialBase{0};
    /// The kernel has made the pages. Used by the writer of the first record, and by the buffer's
    /// owner before that; open() orders the two.
    bool pagesMade{false};
    /// The older neighbour in a BufferList. Both links keep their values when the buffer leaves the
    /// list: a crash dump may be following them.
    std::atomic<Buffer*> prev{nullptr};
    /// The newer one.
    std::atomic<Buffer*> next{nullptr};
    /// Where the head came from.
    BufferStore* store{nullptr};
    /// The next one of the store's heads that are free, while this is one of them.
    Buffer* nextFree{nullptr};
    /// What the black box says about `data`; null for memory that ends with the process.
    BoxSlot* slot{nullptr};

    /// A BufferStore makes buffers, and a std::unique_ptr gives them back.
    static void* operator new(size_t bytes) = delete;
    /// The same.
    static void operator delete(void* memory) = delete;
    /// Gives the records back to the kernel or the black box, and the head, which stays, to its
    /// store. Signal-safe. Keeps errno.
    void giveBack() noexcept;

    /// Adds `request`, and sets `before` to the state it was added to. False, and nothing reserved,
    /// when the buffer is closed or has no room. Never waits for another thread. Signal-safe.
    ///
    /// Acquire: meets open(), so that the other members, and the zeros in the block, are visible.
    /// Nothing is released; the fields of a record are published by its type and by finishWriter().
    [[nodiscard]] bool reserve(BufferState request, BufferState& before) {
        // For writing: with other callers around, the load would bring the line, and the exchange
        // then wait for the right to write to it.
        __builtin_prefetch(&state, 1);
        uint64_t seen = state.load(std::memory_order_relaxed);
        while (BufferState(seen + request.word()).isValidOpen()) {
            if (state.compare_exchange_weak(seen, seen + request.word(), std::memory_order_acquire,
                                            std::memory_order_relaxed)) {
                before = BufferState(seen);
                return true;
            }
        }
        return false;
    }

    /// Ends the writing of a reserved record. True for the last writer of a buffer that the
    /// consumer waits for: it is to be notified. The release publishes the record to the acquires
    /// of writersPending() and awaitWriters(). The caller may not touch the buffer afterwards.
    [[nodiscard]] bool finishWriter() {
        return BufferState(state.fetch_sub(BufferState::kOneWriter, std::memory_order_release))
                .isAwaitedLast();
    }

    /// Lets callers reserve records, the first of which may be reserved already. Release: see
    /// reserve(). Under the logger's mutex, when the buffer is in the slot: a record must not be
    /// where a crash dump does not find it.
    void open(BufferState first);

    /// Refuses further reservations, and returns the last state. Acquire as in writersPending().
    /// Under the logger's mutex.
    BufferState close() {
        return BufferState(state.fetch_or(BufferState::kClosed, std::memory_order_acquire));
    }

    /// Acquire: at 0 every record of a closed buffer is complete and visible.
    [[nodiscard]] uint32_t writersPending() const {
        return BufferState(state.load(std::memory_order_acquire)).pending();
    }
    /// The same for a consumer that is about to wait for them. From now on the last writer tells
    /// it; one word says both, so that neither misses the other.
    uint32_t awaitWriters() {
        return BufferState(state.fetch_or(BufferState::kAwaited, std::memory_order_acquire))
                .pending();
    }

    /// Bytes of records, complete or not. Acquire: a complete record among them can be read.
    [[nodiscard]] size_t usedBytes() const {
        return std::min(BufferState(state.load(std::memory_order_acquire)).bytes(), kBufferBytes);
    }
    /// Behind the last record.
    [[nodiscard]] const char* end() const { return data + usedBytes(); }
    /// Whether a record was reserved here, complete or not.
    [[nodiscard]] bool holdsRecords() const { return usedBytes() > 0; }

    /// Empties a rendered buffer: it is closed and all zero. Takes some microseconds. Relaxed: the
    /// mutex hands the buffer to its next user.
    void clear();

  private:
    /// Tells the black box, if there is one, that the records need not be kept any longer.
    JLOG_INTERNAL void leaveBox() const;
};

static_assert(sizeof(Buffer) == kCacheLineBytes);

}  // namespace JCam::Utils::JLog::File

/// \cond
// A buffer that nobody owns any more goes back to where it came from. Any thread; signal-safe.
template <>
struct std::default_delete<JCam::Utils::JLog::File::Buffer> {
    void operator()(JCam::Utils::JLog::File::Buffer* buffer) const noexcept { buffer->giveBack(); }
};
/// \endcond

namespace JCam::Utils::JLog::File {

/// Makes buffers. Their records are mapped one by one, so that the kernel gets them back when a
/// buffer goes, where a heap would keep what a burst has left. Their heads are kept until the store
/// goes: 64 bytes for each of the buffers that there were at one time. With a black box it has that
/// memory first.
class JLOG_EXPORT BufferStore {
  public:
    /// Without memory, and without a box.
    BufferStore();
    /// Has the memory of `box`, which may be null.
    explicit BufferStore(std::unique_ptr<BlackBox> box);
    /// Gives back all memory of heads, and the box. No buffer may be left.
    ~BufferStore();
    BufferStore(const BufferStore&) = delete;
    BufferStore& operator=(const BufferStore&) = delete;

    /// Memory for records, which may be without pages; null without memory. Signal-safe. Keeps
    /// errno.
    char* mapRecords();
    /// Gives it back. Signal-safe. Keeps errno.
    void unmapRecords(char* records);
    /// Has the kernel make all its pages, in place of one page fault for each. Takes some 100 us.
    /// Others may write records meanwhile. Signal-safe. Keeps errno.
    static void makePages(char* records);

    /// A buffer with the memory that mapRecords() returned; null if that is null or there is none
    /// for a head. Under the logger's mutex. Signal-safe. Keeps errno.
    std::unique_ptr<Buffer> make(char* records);

    /// The black box; null if there is none.
    [[nodiscard]] BlackBox* box() const { return mBox.get(); }
    /// Whether there is no safer memory to be had than that of `buffer`: it is in the box, or the
    /// box is used up, or there is none.
    [[nodiscard]] bool isSafest(const Buffer& buffer) const;

  private:
    friend struct Buffer;
    struct Block;

    Buffer* takeHead();
    Buffer* takeFreeHead();
    /// From any thread.
    void takeBack(Buffer* head);

    /// Heads of freed buffers. A release adds one, an acquire takes it. Only make() takes, so none
    /// that it looks at is taken and added again meanwhile.
    std::atomic<Buffer*> mFree{nullptr};
    /// The heads, newest block first.
    Block* mBlocks{nullptr};
    /// Its buffers are made and given back here.
    const std::unique_ptr<BlackBox> mBox;
};

/// Owns the buffer that receives new records, or none. It is replaced under the logger's mutex, and
/// read by callers and by the crash dump without.
class BufferSlot {
  public:
    /// Empty.
    BufferSlot() = default;
    /// Frees the buffer, and the records in it are lost.
    ~BufferSlot() { const std::unique_ptr<Buffer> last(get()); }
    BufferSlot(const BufferSlot&) = delete;
    BufferSlot& operator=(const BufferSlot&) = delete;

    /// The buffer, or null. Relaxed: under the mutex.
    [[nodiscard]] Buffer* get() const { return mBuffer.load(std::memory_order_relaxed); }
    /// The same for a caller that is to reserve a record. Acquire: the head is there.
    [[nodiscard]] Buffer* current() const { return mBuffer.load(std::memory_order_acquire); }
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

/// A few buffers for the next burst, all of them clear. Under the logger's mutex.
class JLOG_EXPORT BufferPool {
  public:
    /// How many it keeps: 768 KiB.
    static constexpr size_t kMaxBuffers = 3;

    /// How many there are.
    [[nodiscard]] size_t size() const { return mSize; }
    /// The buffer that has been here longest; null when there is none.
    [[nodiscard]] const Buffer* oldest() const { return mSize > 0 ? mBuffers[0].get() : nullptr; }
    /// The buffer that was put in last; null when there is none.
    [[nodiscard]] const Buffer* newest() const {
        return mSize > 0 ? mBuffers[mSize - 1].get() : nullptr;
    }
    /// Takes the newest; null when there is none.
    std::unique_ptr<Buffer> take();
    /// Adds `buffer`. Returns the oldest one if there was no room, otherwise null.
    [[nodiscard]] std::unique_ptr<Buffer> put(std::unique_ptr<Buffer> buffer);

  private:
    std::array<std::unique_ptr<Buffer>, kMaxBuffers> mBuffers;
    size_t mSize{0};
};

}  // namespace JCam::Utils::JLog::File
