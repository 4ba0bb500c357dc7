#include "RingContender.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <ctime>

#include "Event.h"

namespace JCam::Bench {

namespace {

using namespace std::chrono_literals;

/// Of the consumer after its last work, and the longest, to which each pause without work doubles.
constexpr std::chrono::microseconds kShortestPause(20);
constexpr std::chrono::microseconds kLongestPause(1000);
/// Of a caller whose ring is full. The consumer needs ten times as long to empty it.
constexpr auto kRoomInterval = 50us;

}  // namespace

/// One producer, one consumer. Positions count bytes and never wrap. An event begins in the ring
/// and may end in the slack behind it, so each lies in one piece.
class RingContender::Ring {
  public:
    Ring() : mTid(gettid()) {}

    /// Room for an event with texts of these lengths, which are set, as are thread and time. The
    /// caller fills the rest and calls publish().
    Event& reserve(size_t nameBytes, size_t textBytes) {
        const size_t bytes = Event::bytesFor(nameBytes, textBytes);
        if (mWritten.load(std::memory_order_relaxed) + bytes - mReadSeen > kBytes) [[unlikely]] {
            awaitRoom(bytes);
        }
        auto& event = *reinterpret_cast<Event*>(at(mWritten.load(std::memory_order_relaxed)));
        // The consumer's core has the lines of the next events: asked for now, they are here in
        // time.
        for (size_t line = 1; line <= 3; ++line) {
            __builtin_prefetch(reinterpret_cast<char*>(&event) + bytes + line * kCacheLine, 1);
        }
        event.begin(bytes, mTid, nameBytes, textBytes);
        return event;
    }
    void publish(const Event& event) {
        mWritten.store(mWritten.load(std::memory_order_relaxed) + event.bytes,
                       std::memory_order_release);
    }

    /// Hands all events to `take`, which gets a second argument: a function that frees the room of
    /// all events before this one. Returns whether there were any.
    template <typename Take>
    bool takeAll(Take take) {
        uint64_t read = mRead.load(std::memory_order_relaxed);
        const uint64_t written = mWritten.load(std::memory_order_acquire);
        if (read == written) {
            return false;
        }
        while (read != written) {
            const auto& event = *reinterpret_cast<const Event*>(at(read));
            take(event, [&] { mRead.store(read, std::memory_order_release); });
            read += event.bytes;
        }
        mRead.store(read, std::memory_order_release);
        return true;
    }

    Ring* older{nullptr};

  private:
    /// A burst of some thousand calls fits.
    static constexpr size_t kBytes = size_t{1} << 20;
    static constexpr size_t kSlack = Event::bytesFor(Event::kMaxNameChars, Event::kMaxTextChars);
    static constexpr size_t kCacheLine = 64;

    [[gnu::noinline, gnu::cold]] void awaitRoom(size_t bytes) {
        const uint64_t end = mWritten.load(std::memory_order_relaxed) + bytes;
        for (mReadSeen = mRead.load(std::memory_order_acquire); end - mReadSeen > kBytes;
             mReadSeen = mRead.load(std::memory_order_acquire)) {
            std::this_thread::sleep_for(kRoomInterval);
        }
    }
    char* at(uint64_t position) { return mBytes + position % kBytes; }

    // The producer's line. mReadSeen spares it the consumer's line until the ring seems full.
    alignas(kCacheLine) std::atomic<uint64_t> mWritten{0};
    uint64_t mReadSeen{0};
    const int32_t mTid;
    // The consumer's line.
    alignas(kCacheLine) std::atomic<uint64_t> mRead{0};
    // Zeroed, so that the kernel has made all pages before the first event.
    alignas(kCacheLine) char mBytes[kBytes + kSlack] = {};
};

RingContender::RingContender(const Workload& work) : EventCalls(work), mFile(work, "ring.txt") {
    mConsumer = std::thread([this] { consume(); });
}

RingContender::~RingContender() {
    mStop.store(true, std::memory_order_release);
    mConsumer.join();
    for (Ring* ring = mNewest.load(std::memory_order_acquire); ring != nullptr;) {
        const std::unique_ptr<Ring> last(ring);
        ring = ring->older;
    }
}

void RingContender::enter(unsigned int module, const char* name, unsigned int request) {
    Ring& own = ring();
    const size_t nameBytes = strnlen(name, Event::kMaxNameChars);
    Event& event = own.reserve(nameBytes, 0);
    event.fillEnter(module, name, request);
    own.publish(event);
}

void RingContender::details(unsigned int module, const char* tag, uint8_t level, const char* text,
                            size_t bytes) {
    Ring& own = ring();
    const size_t tagBytes = strnlen(tag, Event::kMaxNameChars);
    Event& event = own.reserve(tagBytes, bytes);
    event.fillDetails(module, level, tag, text, bytes);
    own.publish(event);
}

void RingContender::drain() {
    // The look after the next one begins after this call.
    const uint64_t enough = mIdleLooks.load(std::memory_order_acquire) + 2;
    while (mIdleLooks.load(std::memory_order_acquire) < enough) {
        std::this_thread::sleep_for(kLongestPause);
    }
}

inline RingContender::Ring& RingContender::ring() {
    static thread_local Ring* sRing = nullptr;
    if (sRing == nullptr) [[unlikely]] {
        sRing = &makeRing();
    }
    return *sRing;
}

RingContender::Ring& RingContender::makeRing() {
    auto* ring = new Ring;
    ring->older = mNewest.load(std::memory_order_relaxed);
    while (!mNewest.compare_exchange_weak(ring->older, ring, std::memory_order_release,
                                          std::memory_order_relaxed)) {
    }
    return *ring;
}

void RingContender::consume() {
    bool stop = false;
    bool busy = false;
    std::chrono::microseconds pause = kShortestPause;
    do {
        stop = mStop.load(std::memory_order_acquire);
        busy = false;
        for (Ring* ring = mNewest.load(std::memory_order_acquire); ring != nullptr;
             ring = ring->older) {
            busy |= ring->takeAll(
                    [&](const Event& event, auto freeRoom) { mFile.add(event, freeRoom); });
        }
        if (busy) {
            pause = kShortestPause;
        } else {
            mFile.writeText();
            mIdleLooks.fetch_add(1, std::memory_order_release);
            std::this_thread::sleep_for(pause);
            pause = std::min(2 * pause, kLongestPause);
        }
    } while (busy || !stop);
}

}  // namespace JCam::Bench
