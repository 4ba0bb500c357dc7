#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

#include "jlog/JLogger.h"

namespace CameraHost {

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
/// Only the thread that owns it writes; the progress line reads the counts meanwhile. A count is of
/// calls from which the logger has returned, and is stored with release order: mark() acquires it,
/// so that the records of all that it has counted are in memory before the signal is sent. All else
/// is relaxed: a reader needs each number alone, and the check runs after the join, or when the
/// process is dead. Aligned to a cache line, so that two threads never share one.
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
    void addContent(uint64_t hash) { add(mContentSum, hash); }
    /// Adds `calls` library calls that together took `ns`.
    void addTiming(uint64_t calls, uint64_t ns);

    /// N of "TN:" in the texts of this thread.
    [[nodiscard]] uint32_t number() const { return mNumber; }
    [[nodiscard]] int tid() const { return mTid.load(std::memory_order_relaxed); }
    [[nodiscard]] uint64_t enters() const { return mEnters.load(std::memory_order_relaxed); }
    [[nodiscard]] uint64_t exits() const { return mExits.load(std::memory_order_relaxed); }
    /// Also the running number of the latest details message: they count from 1.
    [[nodiscard]] uint64_t details() const { return mDetails.load(std::memory_order_relaxed); }
    [[nodiscard]] uint64_t events() const { return enters() + exits() + details(); }
    /// Remembers the counts as they are now. Any thread, once: just before the process is to crash.
    void mark() {
        mMarked.enters.store(mEnters.load(std::memory_order_acquire), std::memory_order_relaxed);
        mMarked.exits.store(mExits.load(std::memory_order_acquire), std::memory_order_relaxed);
        mMarked.details.store(mDetails.load(std::memory_order_acquire), std::memory_order_relaxed);
    }
    [[nodiscard]] uint64_t markedEnters() const {
        return mMarked.enters.load(std::memory_order_relaxed);
    }
    [[nodiscard]] uint64_t markedExits() const {
        return mMarked.exits.load(std::memory_order_relaxed);
    }
    [[nodiscard]] uint64_t markedDetails() const {
        return mMarked.details.load(std::memory_order_relaxed);
    }
    [[nodiscard]] uint64_t markedEvents() const {
        return markedEnters() + markedExits() + markedDetails();
    }
    /// The sum of the hashes of all events, which does not depend on their order.
    [[nodiscard]] uint64_t contentSum() const {
        return mContentSum.load(std::memory_order_relaxed);
    }
    [[nodiscard]] uint64_t timedCalls() const {
        return mTimedCalls.load(std::memory_order_relaxed);
    }
    [[nodiscard]] uint64_t timedNs() const { return mTimedNs.load(std::memory_order_relaxed); }

  private:
    // One writer: a load and a store do, and cost less than a read-modify-write.
    static void count(std::atomic<uint64_t>& events) {
        // Release: publishes the record that the call has made; meets the acquire in mark().
        events.store(events.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    }
    static void add(std::atomic<uint64_t>& sum, uint64_t n) {
        sum.store(sum.load(std::memory_order_relaxed) + n, std::memory_order_relaxed);
    }

    const uint32_t mNumber;
    std::atomic<int> mTid{0};
    std::atomic<uint64_t> mEnters{0};
    std::atomic<uint64_t> mExits{0};
    std::atomic<uint64_t> mDetails{0};
    std::atomic<uint64_t> mContentSum{0};
    std::atomic<uint64_t> mTimedCalls{0};
    std::atomic<uint64_t> mTimedNs{0};
    struct {
        std::atomic<uint64_t> enters{0};
        std::atomic<uint64_t> exits{0};
        std::atomic<uint64_t> details{0};
    } mMarked;
};

}  // namespace CameraHost
