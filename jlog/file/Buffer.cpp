#include "jlog/file/Buffer.h"

#include <utility>

namespace JCam::Utils::JLog::File {

BufferList::~BufferList() {
    for (Buffer* buffer = mFront; buffer != nullptr;) {
        const std::unique_ptr<Buffer> owned(std::exchange(buffer, buffer->next));
    }
}

void BufferList::pushBack(std::unique_ptr<Buffer> buffer) {
    Buffer* added = buffer.release();
    added->prev = mBack;
    added->next = nullptr;
    (mBack != nullptr ? mBack->next : mFront) = added;
    mBack = added;
    ++mSize;
}

std::unique_ptr<Buffer> BufferList::remove(Buffer* buffer) {
    (buffer->prev != nullptr ? buffer->prev->next : mFront) = buffer->next;
    (buffer->next != nullptr ? buffer->next->prev : mBack) = buffer->prev;
    buffer->prev = nullptr;
    buffer->next = nullptr;
    --mSize;
    return std::unique_ptr<Buffer>(buffer);
}

}  // namespace JCam::Utils::JLog::File
