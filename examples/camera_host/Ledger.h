#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

#include "jlog/JLogger.h"

namespace CameraHost {

struct EventCounts {
    uint64_t enters = 0;
    uint64_t exits = 0;
    uint64_t details = 0;

    [[nodiscard]] uint64_t events() const { return enters + exits + details; }
    EventCounts& operator+=(const EventCounts& other) {
        enters += other.enters;
        exits += other.exits;
        details += other.details;
        return *this;
    }
};

/// The letter of a details level in the log files.
[[nodiscard]] char levelLetter(JCam::Utils::JLog::JLogLevel level);

/// A hash of what the file keeps of a details message: the level letter, the tag cut to 128 bytes
/// without trailing blanks (short tags are padded with them) and the text cut to 1023 bytes.
[[nodiscard]] uint64_t detailsHash(char letter, std::string_view tag, std::string_view text);

/// A hash of an enter ('+') or exit ('-') line without its serial.
[[nodiscard]] uint64_t scopeHash(char sign, uint32_t moduleId, std::string_view name,
                                 uint32_t requestNo);

/// What one thread has logged: the truth that the files are checked against.
///
/// Only the thread that owns it writes. Counts are of calls from which the logger has returned, and
/// are all that others read while it logs: the progress line, and mark(). The rest is read after
/// the join, or when the process is dead. Aligned to a cache line, so that two threads never share
/// one.
class alignas(64) Ledger {
  public:
    explicit Ledger(uint32_t number) : mNumber(number) {}

    /// Makes the calling thread the owner. The ledger must outlive what the thread logs.
    void adoptThread();
    /// The ledger that the calling thread owns; null if there is none.
    [[nodiscard]] static Ledger* ofThisThread();

    /// To be called right after the logging call...
    void countEnter() { count(mEnters); }
    void countExit() { count(mExits); }
    void countDetails() { count(mDetails); }
    /// ... and then, with the hash of what was logged, at leisure.
    void addContent(uint64_t hash) { mContentSum += hash; }
    /// Adds `calls` library calls that together took `ns`.
    void addTiming(uint64_t calls, uint64_t ns);
    /// Remembers the counts as they are now. Any thread, once.
    void mark() { mMarked = counts(); }

    /// N of "TN:" in the texts of this thread.
    [[nodiscard]] uint32_t number() const { return mNumber; }
    /// 0 before a thread adopts it.
    [[nodiscard]] int tid() const { return mTid.load(std::memory_order_relaxed); }
    /// Details messages are numbered by their count, from 1.
    [[nodiscard]] EventCounts counts() const {
        // Acquire: the records of all that was counted are in memory.
        return {mEnters.load(std::memory_order_acquire), mExits.load(std::memory_order_acquire),
                mDetails.load(std::memory_order_acquire)};
    }
    [[nodiscard]] const EventCounts& marked() const { return mMarked; }
    /// The sum of the hashes of all events, which does not depend on their order.
    [[nodiscard]] uint64_t contentSum() const { return mContentSum; }
    [[nodiscard]] uint64_t timedCalls() const { return mTimedCalls; }
    [[nodiscard]] uint64_t timedNs() const { return mTimedNs; }

  private:
    static void count(std::atomic<uint64_t>& events) {
        // One writer: a load and a store do, and cost less than a read-modify-write. Release:
        // publishes the record that the call has made; meets the acquire in counts().
        events.store(events.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    }

    const uint32_t mNumber;
    std::atomic<int> mTid{0};  // relaxed: wanted for itself
    std::atomic<uint64_t> mEnters{0};
    std::atomic<uint64_t> mExits{0};
    std::atomic<uint64_t> mDetails{0};
    uint64_t mContentSum = 0;
    uint64_t mTimedCalls = 0;
    uint64_t mTimedNs = 0;
    EventCounts mMarked;
};

}  // namespace CameraHost
