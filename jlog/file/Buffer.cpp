#include "jlog/file/Buffer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace JCam::Utils::JLog::File {

void* Buffer::operator new(size_t bytes, const std::nothrow_t& /*tag*/) noexcept {
    void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return memory != MAP_FAILED ? memory : nullptr;
}

// NOLINTNEXTLINE(cert-dcl54-cpp,misc-new-delete-overloads): see the header
void Buffer::operator delete(void* memory) noexcept {
    munmap(memory, sizeof(Buffer));
}

void Buffer::operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept {
    operator delete(memory);
}

void Buffer::prefault() {
    const int callersErrno = errno;
    const bool populated = madvise(this, sizeof(Buffer), MADV_POPULATE_WRITE) == 0;
    errno = callersErrno;
    if (populated) {
        return;
    }
    // A kernel before 5.14: one by one.
    const auto pageBytes = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    for (size_t offset = 0; offset < sizeof(data); offset += pageBytes) {
        // Volatile: the store is wanted for its effect on the page alone.
        *static_cast<volatile char*>(data + offset) = 0;
    }
    *static_cast<volatile char*>(data + sizeof(data) - 1) = 0;
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
    // Release: whoever walks up to the buffer sees its end, and that it is the last one.
    (back != nullptr ? back->next : mFront).store(added, std::memory_order_release);
    mBack.store(added, std::memory_order_release);
    mSize.store(size() + 1, std::memory_order_release);
    // Its order is release, and so all of the above comes before the successor.
    static_cast<void>(slot.replace(std::move(successor)).release());
}

std::unique_ptr<Buffer> BufferList::remove(Buffer* buffer) {
    Buffer* prev = buffer->prev.load(std::memory_order_relaxed);
    Buffer* next = buffer->next.load(std::memory_order_relaxed);
    // Sequentially consistent: a dump that still gets at the buffer is one that shut the CrashGate
    // before, which whoever is to reuse or free the buffer then sees.
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
