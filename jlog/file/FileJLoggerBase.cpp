#include "jlog/file/FileJLoggerBase.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include <android/log.h>
#include <cutils/properties.h>

#include "jlog/file/BlackBox.h"
#include "jlog/file/CrashGate.h"
#include "jlog/file/FileJLogWriter.h"
#include "jlog/file/FileLogTag.h"
#include "jlog/file/LogFolder.h"
#include "jlog/Wrapping.h"

namespace JCam::Utils::JLog::File {

/// Kernel thread id of this thread; -1 until it reserves its first record.
thread_local int sTid = -1;

namespace {

constexpr uint8_t kAppRequest = 1;

/// Buffers that a bounded queue keeps: the newest 1 MiB of records, for a crash dump.
constexpr size_t kMaxUnconsumedBuffers = 4;

clockid_t chooseClock() {
    return property_get_int32("vendor.debug.camera.jlog.monoclock", 0) == 1 ? CLOCK_MONOTONIC
                                                                            : CLOCK_REALTIME;
}

constexpr size_t alignRecord(size_t size) {
    return wrappingSum(size, kRecordAlignment - 1) & ~(kRecordAlignment - 1);
}

/// The room behind the fixed part of a record must hold the largest name and message.
static_assert(sizeof(LogDetails) + kMaxNameChars + kMaxMessageChars + 2 < kBufferBytes);

/// Asks for cache lines that records to come will take, for writing. The core of the flush thread
/// holds them, which has cleared the buffer. A caller that misses such a line waits at its next
/// atomic operation: that waits for the stores before it.
void prefetchBehind(const LogHeader* record, size_t bytes) {
    // A record takes some two lines, and a line takes as long as three calls. Nearer ones have been
    // asked for by the calls before.
    constexpr uintptr_t kFirstLine = 6;
    constexpr uintptr_t kLastLine = 8;
    // As a number: behind the end of the buffer there is nothing to point at, and a prefetch does
    // no harm.
    const uintptr_t end = reinterpret_cast<uintptr_t>(record) + bytes;
    for (uintptr_t line = kFirstLine; line <= kLastLine; ++line) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): never dereferenced
        __builtin_prefetch(reinterpret_cast<const void*>(end + line * kCacheLineBytes), 1);
    }
}

/// Copies `count` characters to `out` and terminates them.
void copyText(char* out, const char* text, size_t count) {
    // Hides the bound of the count: with it, GCC replaces the call by "rep movs", which takes some
    // ten nanoseconds to begin.
    asm("" : "+r"(count));
    memcpy(out, text, count);
    out[count] = '\0';
}

}  // namespace

FileJLoggerBase::FileJLoggerBase() : mClockId(chooseClock()), mStore(BlackBox::make(mClockId)) {
    {
        const JLogLock lock(mMutex);
        fillSlotLocked({});
    }
    if (Buffer* buffer = mCurrent.current()) {
        BufferStore::makePages(buffer->data);
        buffer->pagesMade = true;
    }
    refreshReservationLine();
}

FileJLoggerBase::~FileJLoggerBase() {
    // A handler may still be installed: by the hook of another logger, or because the subclass has
    // not disarmed its own. It must not find this object from now on; one that has is waited for.
    FileJLoggerBase* self = this;
    sActiveLogger.compare_exchange_strong(self, nullptr, std::memory_order_seq_cst);
    CrashGate::awaitDumpEnd();
}

void FileJLoggerBase::onLogEnter(unsigned int moduleId, const char* name, unsigned int requestNo) {
    logEnterExit(RECORD_ENTER, moduleId, name, requestNo);
}

void FileJLoggerBase::onLogExit(unsigned int moduleId, const char* name, unsigned int requestNo) {
    logEnterExit(RECORD_EXIT, moduleId, name, requestNo);
}

void FileJLoggerBase::logEnterExit(RecordType type, unsigned int moduleId, const char* name,
                                   unsigned int requestNo) {
    const size_t nameChars = strnlen(name, kMaxNameChars);
    LogHeader* header = nullptr;
    Buffer* buffer = nullptr;
    unsigned int serial = 0;
    if (!allocLogSpace(sizeof(LogEnterExit) + nameChars + 1, &header, &buffer, &serial)) {
        return;
    }
    auto* record = reinterpret_cast<LogEnterExit*>(header);
    record->serial = serial;
    record->moduleId = moduleId;
    record->requestNo = requestNo;
    record->requestType = kAppRequest;
    copyText(reinterpret_cast<char*>(record) + LogEnterExit::kNameOffset, name, nameChars);
    publish(header, buffer, type);
}

void FileJLoggerBase::onLogDetails(unsigned int moduleId, const char* name, JLogLevel level,
                                   const char* message, unsigned long length) {
    const size_t nameChars = strnlen(name, kMaxNameChars);
    const size_t messageChars = message != nullptr ? std::min<size_t>(length, kMaxMessageChars) : 0;
    const size_t messageOffset = sizeof(LogDetails) + nameChars + 1;
    LogHeader* header = nullptr;
    Buffer* buffer = nullptr;
    if (!allocLogSpace(messageOffset + messageChars + 1, &header, &buffer, nullptr)) {
        return;
    }
    auto* record = reinterpret_cast<LogDetails*>(header);
    auto* bytes = reinterpret_cast<char*>(header);
    record->moduleId = moduleId;
    // Eight bits hold every level that has a name; all above print alike.
    record->level = static_cast<uint8_t>(std::min<uint32_t>(level, UINT8_MAX));
    record->message = bytes + messageOffset;
    copyText(bytes + LogDetails::kNameOffset, name, nameChars);
    copyText(bytes + messageOffset, messageChars > 0 ? message : "", messageChars);
    publish(header, buffer, RECORD_DETAILS);
}

bool FileJLoggerBase::allocLogSpace(unsigned long size, LogHeader** header, Buffer** buffer,
                                    unsigned int* serial) {
    const size_t bytes = alignRecord(std::max(size, sizeof(LogHeader)));
    // Compares the size itself: the aligned size wraps to 0 near the end of the type.
    if (size > kBufferBytes) {
        __android_log_print(ANDROID_LOG_ERROR, kFileLogTag, "Log size too large: %zu", bytes);
        return false;
    }
    const BufferState request = BufferState::request(bytes, serial != nullptr);
    BufferState before;
    Buffer* target = mCurrent.current();
    if (target == nullptr || !target->reserve(request, before)) [[unlikely]] {
        target = reserveWithMutex(request, before);
        if (target == nullptr) {
            return false;
        }
    }
    auto* record = new (target->data + before.bytes()) LogHeader;
    record->reserve(static_cast<uint32_t>(bytes));
    // The size before all else: in a black box this may be as far as the thread gets.
    std::atomic_signal_fence(std::memory_order_release);
    if (mNeHook.load(std::memory_order_relaxed) >= 1) {
        // Release: a crash dump that sees something of the record also sees its size.
        std::atomic_thread_fence(std::memory_order_release);
    }
    prefetchBehind(record, bytes);
    stamp(*record);
    *header = record;
    *buffer = target;
    if (serial != nullptr) {
        *serial = wrappingSum(target->serialBase, wrappingSum(before.serials(), 1U));
    }
    if (mReservationLine.load(std::memory_order_relaxed)) [[unlikely]] {
        __android_log_print(ANDROID_LOG_DEBUG, kFileLogTag, "size = %zu, %p of buffer %p", bytes,
                            static_cast<void*>(record), static_cast<void*>(target));
    }
    return true;
}

Buffer* FileJLoggerBase::reserveWithMutex(BufferState request, BufferState& before) {
    if (!mMutex.lockUnlessHeld()) {
        mDroppedInHandlers.fetch_add(1, std::memory_order_relaxed);
        return nullptr;
    }
    Buffer* buffer = mCurrent.get();
    bool isRetired = false;
    bool isFirstRefusal = false;
    if (buffer == nullptr || !buffer->reserve(request, before)) {
        if (buffer != nullptr) {
            retireCurrentLocked(request);
            isRetired = true;
        } else {
            fillSlotLocked(request);
        }
        before = {};
        buffer = mCurrent.get();
        if (buffer == nullptr) {
            isFirstRefusal = !std::exchange(mOutOfMemory, true);
        }
    }
    mMutex.unlock();
    if (isRetired) {
        // Not under the mutex: the thread that it wakes would wait for the mutex first.
        mCond.notifyOne();
    }
    if (isFirstRefusal) {
        __android_log_print(ANDROID_LOG_ERROR, kFileLogTag,
                            "Out of memory: no buffer of %zu bytes, dropping records",
                            kBufferBytes);
    }
    return buffer;
}

inline void FileJLoggerBase::stamp(LogHeader& record) const {
    if (sTid < 0) [[unlikely]] {
        sTid = gettid();
    }
    record.tid = sTid;
    if (clock_gettime(mClockId, &record.timestamp) != 0) [[unlikely]] {
        record.timestamp = {};
    }
}

void FileJLoggerBase::publish(LogHeader* header, Buffer* buffer, RecordType type) {
    if (mNeHook.load(std::memory_order_relaxed) >= 1) {
        // A full fence, where the type alone needs a release: a crash handler also reads the
        // buffer's other words without the mutex.
        std::atomic_thread_fence(std::memory_order_seq_cst);
    }
    header->publish(type);
    // After the record is published, and before finishWriter(), so that the buffer stays.
    if (reinterpret_cast<char*>(header) == buffer->data) [[unlikely]] {
        makeReady(*buffer);
    }
    if (buffer->finishWriter()) {
        mCond.notifyOne();
    }
}

uint32_t FileJLoggerBase::retireCurrentLocked(BufferState first) {
    // A dump is to find everything that was queued when its signal came.
    if (mQueueBounded && !CrashGate::isDumping()) {
        trimQueueLocked();
    }
    // Before the buffer is closed: while the kernel is asked for memory, others go on filling it.
    std::unique_ptr<Buffer> empty = allocEmptyBuffer();
    const BufferState last = mCurrent.get()->close();
    mSerial = wrappingSum(mCurrent.get()->serialBase, last.serials());
    Buffer* next = empty.get();
    mFullBuffers.pushBackFrom(mCurrent, std::move(empty));
    openLocked(next, first);
    return last.pending();
}

void FileJLoggerBase::fillSlotLocked(BufferState first) {
    mCurrent.replace(allocEmptyBuffer());
    openLocked(mCurrent.get(), first);
}

void FileJLoggerBase::openLocked(Buffer* current, BufferState first) const {
    if (current != nullptr) {
        current->serialBase = mSerial;
        current->open(first);
    }
}

void FileJLoggerBase::trimQueueLocked() {
    Buffer* buffer = mFullBuffers.front();
    while (buffer != nullptr && mFullBuffers.size() >= kMaxUnconsumedBuffers) {
        Buffer* next = buffer->next.load(std::memory_order_relaxed);
        if (buffer->writersPending() == 0) {
            std::unique_ptr<Buffer> oldest = unlessDumping(mFullBuffers.remove(buffer));
            if (oldest != nullptr && mStore.isSafest(*oldest)) {
                oldest->clear();
                mEmptyBuffers.put(std::move(oldest)).reset();
            }
        }
        buffer = next;
    }
}

std::unique_ptr<Buffer> FileJLoggerBase::allocEmptyBuffer() {
    const Buffer* newest = mEmptyBuffers.newest();
    return newest != nullptr && mStore.isSafest(*newest) ? mEmptyBuffers.take()
                                                         : newBufferLocked(mStore.mapRecords());
}

std::unique_ptr<Buffer> FileJLoggerBase::newBufferLocked(char* records) {
    std::unique_ptr<Buffer> buffer = mStore.make(records);
    if (buffer != nullptr) {
        mOutOfMemory = false;
    } else if (records != nullptr) {
        mStore.unmapRecords(records);
    }
    return buffer;
}

void FileJLoggerBase::recycleFront() {
    // A buffer that was made when the black box was used up is of no use when it has room again.
    const auto isUnsafe = [this](const Buffer* buffer) {
        return buffer != nullptr && !mStore.isSafest(*buffer);
    };
    std::unique_ptr<Buffer> rendered;
    bool isWanted = false;
    {
        const JLogLock lock(mMutex);
        rendered = mFullBuffers.remove(mFullBuffers.front());
        isWanted = !isUnsafe(rendered.get()) && (mEmptyBuffers.size() < BufferPool::kMaxBuffers ||
                                                 isUnsafe(mEmptyBuffers.oldest()));
    }
    rendered = unlessDumping(std::move(rendered));
    if (rendered == nullptr || !isWanted) {
        return;
    }
    rendered->clear();
    std::unique_ptr<Buffer> surplus;
    const JLogLock lock(mMutex);
    surplus = mEmptyBuffers.put(std::move(rendered));
}

std::unique_ptr<Buffer> FileJLoggerBase::unlessDumping(std::unique_ptr<Buffer> buffer) {
    if (CrashGate::isDumping()) {
        // The process is about to end. Only a dump that begins just now leads here: while one runs,
        // consumers wait and queues are not trimmed.
        static_cast<void>(buffer.release());
    }
    return buffer;
}

// Otherwise a retirement that finds the pool empty asks the kernel for memory under the mutex, and
// of the calls that follow every fortieth has a page fault.
void FileJLoggerBase::makeReady(Buffer& current) {
    if (!current.pagesMade) {
        current.pagesMade = true;
        BufferStore::makePages(current.data);
    }
    addToPool(1);
}

bool FileJLoggerBase::addToPool(size_t wanted) {
    if (!mMutex.lockUnlessHeld()) {
        return false;
    }
    const bool isWanted = mEmptyBuffers.size() < wanted;
    mMutex.unlock();
    // Without the mutex: it takes some 100 us.
    char* records = isWanted ? mStore.mapRecords() : nullptr;
    if (records == nullptr) {
        return false;
    }
    BufferStore::makePages(records);
    std::unique_ptr<Buffer> surplus;
    const JLogLock lock(mMutex);
    std::unique_ptr<Buffer> buffer = newBufferLocked(records);
    if (buffer == nullptr) {
        return false;
    }
    buffer->pagesMade = true;
    surplus = mEmptyBuffers.put(std::move(buffer));
    return surplus == nullptr;
}

uint32_t FileJLoggerBase::renderRecords(const Buffer& buffer, FileJLogWriter& writer,
                                        size_t maxBytes) {
    return writer.appendRecords(buffer.data, buffer.data + std::min(buffer.usedBytes(), maxBytes));
}

void FileJLoggerBase::setQueueBounded(bool bounded) {
    const JLogLock lock(mMutex);
    mQueueBounded = bounded;
}

void FileJLoggerBase::refreshReservationLine() {
    const bool loggable =
            __android_log_is_loggable(ANDROID_LOG_DEBUG, kFileLogTag, ANDROID_LOG_VERBOSE) != 0;
    mReservationLine.store(loggable, std::memory_order_relaxed);
}

char* FileJLoggerBase::getTimeStamp(int clockId, char* out, unsigned long size) {
    timespec now = {};
    clock_gettime(clockId, &now);
    tm local = {};
    if (localtime_r(&now.tv_sec, &local) == nullptr) {
        local = {};
    }
    const size_t dateChars = strftime(out, size, "%m-%d %H:%M:%S", &local);
    if (dateChars == 0) {
        __android_log_print(ANDROID_LOG_ERROR, kFileLogTag, "strftime failed");
    }
    const int microChars =
            snprintf(out + dateChars, size - dateChars, ".%06ld", now.tv_nsec / 1000);
    if (microChars < 0) {
        out[dateChars] = '\0';
    }
    return out;
}

// The interface has it as a member, though it needs nothing of the object.
// NOLINTNEXTLINE(readability-convert-member-functions-to-static)
void FileJLoggerBase::getFolderPath(char* path, unsigned long /*size*/) {
    prepareLogFolder(path);
}

}  // namespace JCam::Utils::JLog::File
