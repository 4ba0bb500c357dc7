#include "jlog/file/Buffer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

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

}  // namespace

void* Buffer::operator new(size_t bytes, const std::nothrow_t& /*tag*/) noexcept {
    void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return memory != MAP_FAILED ? memory : nullptr;
}

// NOLINTNEXTLINE(cert-dcl54-cpp,misc-new-delete-overloads): see the header
void Buffer::operator delete(void* memory) noexcept {
    if (memory == nullptr) {
        return;
    }
    const int callersErrno = errno;
    // munmap(2) may fail: splitting a mapping that was merged with its neighbours takes memory.
    if (munmap(memory, sizeof(Buffer)) != 0) {
        madvise(memory, sizeof(Buffer), MADV_DONTNEED);
    }
    errno = callersErrno;
}

void Buffer::operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept {
    operator delete(memory);
}

void Buffer::makePages() {
    pagesMade = true;
    const int callersErrno = errno;
    if (madvise(this, sizeof(Buffer), MADV_POPULATE_WRITE) != 0) {
        // Linux before 5.14, or no memory.
        touchPages(reinterpret_cast<char*>(this), sizeof(Buffer));
    }
    errno = callersErrno;
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
    // and the thread that is to reuse or free the buffer sees the gate shut.
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
