#include "jlog/file/Buffer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

#include "jlog/file/BlackBox.h"

namespace JCam::Utils::JLog::File {

namespace {

/// Writes to every page and changes nothing: a compare-exchange replaces a byte by itself. Where it
/// fails, a writer has just changed the byte, and the page is there. The writer's stores are not
/// atomic, which is a race for the language and none for the processor.
__attribute__((no_sanitize("thread"))) void touchPages(char* memory, size_t bytes) {
    const auto pageBytes = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    for (size_t offset = 0; offset < bytes; offset += pageBytes) {
        char* byte = memory + offset;
        char seen = __atomic_load_n(byte, __ATOMIC_RELAXED);
        __atomic_compare_exchange_n(byte, &seen, seen, false, __ATOMIC_RELAXED, __ATOMIC_RELAXED);
    }
}

char* mapMemory(size_t bytes) {
    const int callersErrno = errno;
    void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    errno = callersErrno;
    return memory != MAP_FAILED ? static_cast<char*>(memory) : nullptr;
}

void unmapMemory(void* memory, size_t bytes) {
    const int callersErrno = errno;
    // munmap(2) may fail: splitting a mapping that was merged with its neighbours takes memory.
    if (munmap(memory, bytes) != 0) {
        madvise(memory, bytes, MADV_DONTNEED);
    }
    errno = callersErrno;
}

}  // namespace

void Buffer::giveBack() noexcept {
    leaveBox();
    store->unmapRecords(data);
    store->takeBack(this);
}

void Buffer::open(BufferState first) {
    if (BlackBox* box = store->box()) {
        box->markOpened(slot);
    }
    state.store(first.word(), std::memory_order_release);
}

void Buffer::leaveBox() const {
    if (BlackBox* box = store->box(); box != nullptr && (slot != nullptr || holdsRecords())) {
        box->markEmptied(slot);
    }
}

void Buffer::clear() {
    leaveBox();
    memset(data, 0, usedBytes());
    state.store(BufferState::kClosed, std::memory_order_relaxed);
}

/// Memory for heads, a multiple of any page size.
struct BufferStore::Block {
    static constexpr size_t kHeads = 65536 / sizeof(Buffer) - 1;

    Block* older;
    size_t used;
    Buffer heads[kHeads];
};

BufferStore::BufferStore() = default;

BufferStore::BufferStore(std::unique_ptr<BlackBox> box) : mBox(std::move(box)) {}

BufferStore::~BufferStore() {
    while (mBlocks != nullptr) {
        Block* newest = mBlocks;
        mBlocks = newest->older;
        unmapMemory(newest, sizeof(Block));
    }
}

bool BufferStore::isSafest(const Buffer& buffer) const {
    return mBox == nullptr || buffer.slot != nullptr || mBox->isUsedUp();
}

char* BufferStore::mapRecords() {
    char* block = mBox != nullptr ? mBox->takeBlock() : nullptr;
    return block != nullptr ? block : mapMemory(kBufferBytes);
}

void BufferStore::unmapRecords(char* records) {
    if (mBox == nullptr || !mBox->giveBlock(records)) {
        unmapMemory(records, kBufferBytes);
    }
}

void BufferStore::makePages(char* records) {
    const int callersErrno = errno;
    if (madvise(records, kBufferBytes, MADV_POPULATE_WRITE) != 0) {
        // Linux before 5.14, or no memory.
        touchPages(records, kBufferBytes);
    }
    errno = callersErrno;
}

std::unique_ptr<Buffer> BufferStore::make(char* records) {
    Buffer* head = records != nullptr ? takeHead() : nullptr;
    if (head == nullptr) {
        return nullptr;
    }
    head->data = records;
    head->slot = mBox != nullptr ? mBox->slotOf(records) : nullptr;
    head->pagesMade = false;
    head->state.store(BufferState::kClosed, std::memory_order_relaxed);
    // A crash handler may find the buffer without the mutex: its fields before its address.
    std::atomic_thread_fence(std::memory_order_seq_cst);
    return std::unique_ptr<Buffer>(head);
}

Buffer* BufferStore::takeHead() {
    if (Buffer* head = takeFreeHead()) {
        return head;
    }
    if (mBlocks == nullptr || mBlocks->used == Block::kHeads) {
        // The kernel's memory is zero, and its pages are made as heads are used.
        static_assert(std::is_trivially_destructible_v<Buffer>);
        auto* block = reinterpret_cast<Block*>(mapMemory(sizeof(Block)));
        if (block == nullptr) {
            return nullptr;
        }
        block->older = mBlocks;
        mBlocks = block;
    }
    auto* head = ::new (&mBlocks->heads[mBlocks->used++]) Buffer;
    head->store = this;
    return head;
}

Buffer* BufferStore::takeFreeHead() {
    Buffer* head = mFree.load(std::memory_order_acquire);
    while (head != nullptr &&
           !mFree.compare_exchange_weak(head, head->nextFree, std::memory_order_acquire,
                                        std::memory_order_acquire)) {
    }
    return head;
}

void BufferStore::takeBack(Buffer* head) {
    head->nextFree = mFree.load(std::memory_order_relaxed);
    while (!mFree.compare_exchange_weak(head->nextFree, head, std::memory_order_release,
                                        std::memory_order_relaxed)) {
    }
}

BufferList::~BufferList() {
    for (Buffer* buffer = front(); buffer != nullptr;) {
        const std::unique_ptr<Buffer> owned(buffer);
        buffer = buffer->next.load(std::memory_order_relaxed);
    }
}

void BufferList::pushBackFrom(BufferSlot& slot, std::unique_ptr<Buffer> successor) {
    Buffer* added = slot.get();
    Buffer* back = mBack.load(std::memory_order_relaxed);
    added->prev.store(back, std::memory_order_relaxed);
    added->next.store(nullptr, std::memory_order_relaxed);
    // Release: a dump that reaches the buffer sees its end, and that it is the last one.
    (back != nullptr ? back->next : mFront).store(added, std::memory_order_release);
    mBack.store(added, std::memory_order_release);
    mSize.store(size() + 1, std::memory_order_release);
    // A release, too: all of the above comes before the successor.
    static_cast<void>(slot.replace(std::move(successor)).release());
}

std::unique_ptr<Buffer> BufferList::remove(Buffer* buffer) {
    Buffer* prev = buffer->prev.load(std::memory_order_relaxed);
    Buffer* next = buffer->next.load(std::memory_order_relaxed);
    // Sequentially consistent: a dump that still reaches the buffer has shut the CrashGate before,
    // and the thread that is to clear or free the buffer sees the gate shut.
    (prev != nullptr ? prev->next : mFront).store(next, std::memory_order_seq_cst);
    (next != nullptr ? next->prev : mBack).store(prev, std::memory_order_seq_cst);
    // After the unlinking, so that a dump never counts too few.
    mSize.store(size() - 1, std::memory_order_release);
    return std::unique_ptr<Buffer>(buffer);
}

std::unique_ptr<Buffer> BufferPool::take() {
    return mSize == 0 ? nullptr : std::move(mBuffers[--mSize]);
}

std::unique_ptr<Buffer> BufferPool::put(std::unique_ptr<Buffer> buffer) {
    std::unique_ptr<Buffer> surplus;
    if (mSize == kMaxBuffers) {
        surplus = std::move(mBuffers.front());
        std::move(mBuffers.begin() + 1, mBuffers.end(), mBuffers.begin());
        --mSize;
    }
    mBuffers[mSize++] = std::move(buffer);
    return surplus;
}

}  // namespace JCam::Utils::JLog::File
