#include "BufferContender.h"

#include <unistd.h>

#include <chrono>
#include <cstring>
#include <ctime>

namespace JCam::Bench {

namespace {

using namespace std::chrono_literals;

constexpr size_t kBufferBytes = 262144;
constexpr size_t kCacheLine = 64;
/// Of a thread that waits for the consumer.
constexpr auto kConsumerInterval = 50us;
/// Looks of a thread at what another one is about to do, before it gives up its core.
constexpr int kLooks = 1000;

// A buffer's state: bytes taken, and writers pending. Taken beyond the end: closed.
constexpr uint64_t kOneWriter = 1;
constexpr uint64_t kOneByte = uint64_t{1} << 16;
constexpr uint64_t kClosed = uint64_t{1} << 63;

uint64_t pending(uint64_t state) {
    return state & (kOneByte - 1);
}
size_t bytesTaken(uint64_t state) {
    return (state & ~kClosed) / kOneByte;
}

/// Returns once `isTrue`, which another thread is about to see to.
template <typename Condition>
void spinUntil(Condition isTrue) {
    for (int look = 0; !isTrue(); ++look) {
        if (look >= kLooks) {
            std::this_thread::yield();
        }
    }
}

}  // namespace

struct BufferContender::Buffer {
    alignas(kCacheLine) std::atomic<uint64_t> state{kClosed};
    // Zeroed, so that the kernel has made all pages before the first event.
    alignas(kCacheLine) char events[kBufferBytes] = {};
};

struct BufferContender::Place {
    Buffer& buffer;
    Event& event;
};

std::atomic<BackEnd*> BufferContender::sBackEnd{nullptr};

BufferContender::BufferContender(const Workload& work)
        : EventCalls(work),
          mFile(work, "buffers.txt"),
          mBuffers(std::make_unique<Buffer[]>(kBuffers)),
          mCurrent(&mBuffers[0]) {
    mBuffers[0].state.store(0, std::memory_order_relaxed);
    sBackEnd.store(this, std::memory_order_release);
    mConsumer = std::thread([this] { consume(); });
}

BufferContender::~BufferContender() {
    drain();
    mStop.store(true, std::memory_order_release);
    replace(*mCurrent.load(std::memory_order_relaxed));
    mConsumer.join();
}

void BufferContender::enter(unsigned int module, const char* name, unsigned int request) {
    sBackEnd.load(std::memory_order_acquire)->onEnter(module, name, request);
}

void BufferContender::details(unsigned int module, const char* tag, uint8_t level, const char* text,
                              size_t bytes) {
    sBackEnd.load(std::memory_order_acquire)->onDetails(module, tag, level, text, bytes);
}

void BufferContender::onEnter(unsigned int module, const char* name, unsigned int request) {
    const size_t nameBytes = strnlen(name, Event::kMaxNameChars);
    const Place place = reserve(nameBytes, 0);
    place.event.fillEnter(module, name, request);
    publish(place);
}

void BufferContender::onDetails(unsigned int module, const char* tag, uint8_t level,
                                const char* text, size_t bytes) {
    const size_t tagBytes = strnlen(tag, Event::kMaxNameChars);
    const Place place = reserve(tagBytes, bytes);
    place.event.fillDetails(module, level, tag, text, bytes);
    publish(place);
}

inline BufferContender::Place BufferContender::reserve(size_t nameBytes, size_t textBytes) {
    const size_t bytes = Event::bytesFor(nameBytes, textBytes);
    for (;;) {
        Buffer& buffer = *mCurrent.load(std::memory_order_acquire);
        __builtin_prefetch(&buffer.state, 1);
        uint64_t seen = buffer.state.load(std::memory_order_relaxed);
        while (seen < kClosed && bytesTaken(seen) + bytes <= kBufferBytes) {
            if (!buffer.state.compare_exchange_weak(seen, seen + bytes * kOneByte + kOneWriter,
                                                    std::memory_order_acquire,
                                                    std::memory_order_relaxed)) {
                continue;
            }
            auto& event = *reinterpret_cast<Event*>(buffer.events + bytesTaken(seen));
            // The consumer's core has the lines of the next events. The nearest ones belong to the
            // calls of other threads.
            for (size_t line = 6; line <= 8; ++line) {
                __builtin_prefetch(reinterpret_cast<char*>(&event) + bytes + line * kCacheLine, 1);
            }
            static thread_local const int32_t sTid = gettid();
            event.begin(bytes, sTid, nameBytes, textBytes);
            return {buffer, event};
        }
        replace(buffer);
    }
}

inline void BufferContender::publish(Place place) {
    std::atomic_thread_fence(std::memory_order_seq_cst);
    place.buffer.state.fetch_sub(kOneWriter, std::memory_order_release);
}

/// The thread that closes a buffer opens the next one; all others wait for that.
[[gnu::noinline]] void BufferContender::replace(Buffer& full) {
    if (full.state.fetch_or(kClosed, std::memory_order_acquire) >= kClosed) {
        spinUntil([&] {
            return mCurrent.load(std::memory_order_acquire) != &full ||
                   full.state.load(std::memory_order_relaxed) < kClosed;
        });
        return;
    }
    const uint32_t next = mFull.load(std::memory_order_relaxed) + 1;
    while (next - mWritten.load(std::memory_order_acquire) >= kBuffers) {
        std::this_thread::sleep_for(kConsumerInterval);
    }
    Buffer& buffer = mBuffers[next % kBuffers];
    mFull.store(next, std::memory_order_release);
    mCurrent.store(&buffer, std::memory_order_release);
    // Last: nobody closes it before it is current.
    buffer.state.store(0, std::memory_order_release);
    mFull.notify_one();
}

void BufferContender::drain() {
    Buffer& current = *mCurrent.load(std::memory_order_relaxed);
    if (bytesTaken(current.state.load(std::memory_order_relaxed)) > 0) {
        replace(current);
    }
    while (mWritten.load(std::memory_order_acquire) != mFull.load(std::memory_order_relaxed)) {
        std::this_thread::sleep_for(1ms);
    }
}

void BufferContender::consume() {
    uint32_t written = 0;
    do {
        mFull.wait(written, std::memory_order_acquire);
        const Buffer& buffer = mBuffers[written % kBuffers];
        spinUntil([&] { return pending(buffer.state.load(std::memory_order_acquire)) == 0; });
        const char* const end =
                buffer.events + bytesTaken(buffer.state.load(std::memory_order_relaxed));
        for (const char* at = buffer.events; at < end;) {
            const auto& event = *reinterpret_cast<const Event*>(at);
            mFile.add(event, [] {});
            at += event.bytes;
        }
        mFile.writeText();
        mWritten.store(++written, std::memory_order_release);
    } while (!mStop.load(std::memory_order_acquire) ||
             written != mFull.load(std::memory_order_acquire));
}

}  // namespace JCam::Bench
