#include "RingContender.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <string>
#include <string_view>

#include "HandWritten.h"

namespace JCam::Bench {

namespace {

using namespace std::chrono_literals;

constexpr size_t kMaxNameChars = 128;
constexpr size_t kMaxTextChars = 1023;
/// Of the consumer after its last work, and the longest, to which each pause without work doubles.
constexpr std::chrono::microseconds kShortestPause(20);
constexpr std::chrono::microseconds kLongestPause(1000);
/// Of a caller whose ring is full. The consumer needs ten times as long to empty it.
constexpr auto kRoomInterval = 50us;

enum class EventKind : uint8_t { ENTER, DETAILS };

/// One event. Name and text run on behind it.
struct Event {
    uint32_t bytes;  // of all, a multiple of 8
    int32_t tid;
    timespec time;
    uint32_t module;
    uint32_t request;
    uint16_t nameBytes;
    uint16_t textBytes;
    EventKind kind;
    uint8_t level;

    char* texts() { return reinterpret_cast<char*>(this + 1); }
    [[nodiscard]] const char* texts() const { return reinterpret_cast<const char*>(this + 1); }
};
static_assert(sizeof(Event) == 40 && alignof(Event) == 8);

constexpr size_t align8(size_t bytes) {
    return (bytes + 7) & ~size_t{7};
}

}  // namespace

/// One producer, one consumer. Positions count bytes and never wrap. An event begins in the ring
/// and may end in the slack behind it, so each lies in one piece.
class RingContender::Ring {
  public:
    explicit Ring(Order* order) : mOrder(order), mTid(gettid()) {}

    /// Room for an event with texts of these lengths, which are set, as are thread and time. The
    /// caller fills the rest and calls publish().
    Event& reserve(size_t nameBytes, size_t textBytes) {
        const size_t bytes = align8(sizeof(Event) + nameBytes + textBytes);
        if (mWritten.load(std::memory_order_relaxed) + bytes - mReadSeen > kBytes) [[unlikely]] {
            awaitRoom(bytes);
        }
        if (mOrder != nullptr) {
            takePlace(mOrder->word);
        }
        auto& event = *reinterpret_cast<Event*>(at(mWritten.load(std::memory_order_relaxed)));
        // The consumer's core has the lines of the next events: asked for now, they are here in
        // time.
        for (size_t line = 1; line <= 3; ++line) {
            __builtin_prefetch(reinterpret_cast<char*>(&event) + bytes + line * kCacheLine, 1);
        }
        event.bytes = static_cast<uint32_t>(bytes);
        event.tid = mTid;
        clock_gettime(CLOCK_REALTIME, &event.time);
        event.nameBytes = static_cast<uint16_t>(nameBytes);
        event.textBytes = static_cast<uint16_t>(textBytes);
        return event;
    }
    void publish(const Event& event) {
        if (mOrder != nullptr) {
            std::atomic_thread_fence(std::memory_order_seq_cst);
        }
        mWritten.store(mWritten.load(std::memory_order_relaxed) + event.bytes,
                       std::memory_order_release);
        if (mOrder != nullptr) {
            mOrder->word.fetch_sub(kOneWriter, std::memory_order_release);
        }
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
    static constexpr size_t kSlack = align8(sizeof(Event) + kMaxNameChars + kMaxTextChars);
    static constexpr size_t kCacheLine = 64;

    static constexpr uint64_t kOneWriter = 1;
    static constexpr uint64_t kOnePlace = uint64_t{1} << 16;

    static void takePlace(std::atomic<uint64_t>& word) {
        __builtin_prefetch(&word, 1);
        uint64_t seen = word.load(std::memory_order_relaxed);
        while (!word.compare_exchange_weak(seen, seen + kOnePlace + kOneWriter,
                                           std::memory_order_acquire, std::memory_order_relaxed)) {
        }
    }
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
    Order* const mOrder;
    const int32_t mTid;
    // The consumer's line.
    alignas(kCacheLine) std::atomic<uint64_t> mRead{0};
    // Zeroed, so that the kernel has made all pages before the first event.
    alignas(kCacheLine) char mBytes[kBytes + kSlack] = {};
};

/// Renders events and writes the text, 24 KiB at a time.
class RingContender::Consumer {
  public:
    explicit Consumer(int fd) : mFd(fd) {}

    template <typename FreeRoom>
    void take(const Event& event, FreeRoom freeRoom) {
        if (static_cast<size_t>(mText + sizeof(mText) - mEnd) < HandWrittenLines::kLongestLine) {
            writeText();
            freeRoom();
        }
        mEnd = putLine(mEnd, event);
    }

    void writeText() {
        const char* begin = mText;
        while (begin < mEnd) {
            const ssize_t written = ::write(mFd, begin, static_cast<size_t>(mEnd - begin));
            if (written <= 0) {
                break;  // the lines that are missing will be noticed
            }
            begin += written;
        }
        mEnd = mText;
    }

  private:
    char* putLine(char* out, const Event& event) {
        if (event.time.tv_sec != mSecond) [[unlikely]] {
            rememberDate(event.time.tv_sec);
        }
        if (event.tid != mTid) [[unlikely]] {
            rememberThread(event.tid);
        }
        out = put(out, mDate);
        out = mDigits.putMicroseconds(out, static_cast<uint32_t>(event.time.tv_nsec / 1000));
        out = put(out, mOrigin);
        const std::string_view name(event.texts(), event.nameBytes);
        if (event.kind == EventKind::ENTER) {
            out = put(out, "D JLog    : R AppRequest:");
            out = std::to_chars(out, out + 10, event.request).ptr;
            out = put(out, " M[Preview:4] +  :");
            out = put(out, name);
            out = put(out, " #");
            out = std::to_chars(out, out + 10, ++mSerial).ptr;
        } else {
            constexpr size_t kNameColumns = 8;
            *out++ = "VEWIDDV"[event.level];
            *out++ = ' ';
            char* const column = out + kNameColumns;
            out = put(out, name);
            while (out < column) {
                *out++ = ' ';
            }
            out = put(out, ": ");
            out = put(out, {event.texts() + event.nameBytes, event.textBytes});
        }
        *out++ = '\n';
        return out;
    }

    void rememberDate(time_t second) {
        tm local = {};
        localtime_r(&second, &local);
        char text[32];
        mDate.assign(text, strftime(text, sizeof(text), "%m-%d %H:%M:%S.", &local));
        mSecond = second;
    }
    void rememberThread(int32_t tid) {
        char text[32];
        mOrigin.assign(text, static_cast<size_t>(
                                     snprintf(text, sizeof(text), " %5d %5d ", getpid(), tid)));
        mTid = tid;
    }

    const int mFd;
    const DigitPairs mDigits;
    time_t mSecond{-1};
    std::string mDate;
    int32_t mTid{-1};
    std::string mOrigin;
    uint32_t mSerial{0};
    char mText[24576];
    char* mEnd{mText};
};

RingContender::RingContender(const Workload& work, Order* order) : mWork(work), mOrder(order) {
    const std::string path = (work.folder / "ring.txt").string();
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) {
        throw std::runtime_error("cannot create " + path);
    }
    mConsumer = std::thread([this, fd] { consume(fd); });
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
    const size_t nameBytes = strnlen(name, kMaxNameChars);
    Event& event = own.reserve(nameBytes, 0);
    event.kind = EventKind::ENTER;
    event.module = module;
    event.request = request;
    memcpy(event.texts(), name, nameBytes);
    own.publish(event);
}

void RingContender::details(unsigned int module, const char* tag, uint8_t level, const char* text,
                            size_t bytes) {
    Ring& own = ring();
    // The text is not cut. For a length that is bounded GCC copies by `rep movs`, which takes some
    // 10 ns to begin, in place of a call of memcpy.
    const size_t tagBytes = strnlen(tag, kMaxNameChars);
    Event& event = own.reserve(tagBytes, bytes);
    event.kind = EventKind::DETAILS;
    event.module = module;
    event.level = level;
    memcpy(event.texts(), tag, tagBytes);
    memcpy(event.texts() + tagBytes, text, bytes);
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
    auto* ring = new Ring(mOrder);
    ring->older = mNewest.load(std::memory_order_relaxed);
    while (!mNewest.compare_exchange_weak(ring->older, ring, std::memory_order_release,
                                          std::memory_order_relaxed)) {
    }
    return *ring;
}

void RingContender::consume(int fd) {
    Consumer consumer(fd);
    bool stop = false;
    bool busy = false;
    std::chrono::microseconds pause = kShortestPause;
    do {
        stop = mStop.load(std::memory_order_acquire);
        busy = false;
        for (Ring* ring = mNewest.load(std::memory_order_acquire); ring != nullptr;
             ring = ring->older) {
            busy |= ring->takeAll(
                    [&](const Event& event, auto freeRoom) { consumer.take(event, freeRoom); });
        }
        if (busy) {
            pause = kShortestPause;
        } else {
            consumer.writeText();
            mIdleLooks.fetch_add(1, std::memory_order_release);
            std::this_thread::sleep_for(pause);
            pause = std::min(2 * pause, kLongestPause);
        }
    } while (busy || !stop);
    ::close(fd);
}

}  // namespace JCam::Bench
