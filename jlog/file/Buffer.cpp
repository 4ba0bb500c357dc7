#include "jlog/file/Buffer.h"

#include <algorithm>
#include <utility>

namespace JCam::Utils::JLog::File {

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
