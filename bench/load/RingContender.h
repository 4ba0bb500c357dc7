#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <thread>

#include "Workload.h"

namespace JCam::Bench {

/// What a good engineer writes by hand for this one job: each thread packs its events into a ring
/// of its own, and one thread polls all rings, renders lines of our layout and writes them.
/// Bounded: a caller whose ring is full waits. There are no settings, no tests, no order between
/// threads and no crash hook, and the polling goes on for as long as the logger is there.
///
/// One object in a process. A thread's ring stays until the object goes.
class RingContender {
  public:
    explicit RingContender(const Workload& work) : RingContender(work, nullptr) {}
    /// Writes the rest. No thread may log any more.
    ~RingContender();
    RingContender(const RingContender&) = delete;
    RingContender& operator=(const RingContender&) = delete;

    void logEnter(unsigned int request) { enter(kPreview, Workload::kName, request); }
    void logMessage() {
        constexpr uint8_t kInfo = 3;
        details(kPreview, Workload::kTag, kInfo, mWork.text.c_str(), mWork.text.size());
    }
    /// Returns when everything logged is in the file.
    void drain();

    /// Lines that are no event.
    static uint64_t foreignLines(uint64_t /*files*/) { return 0; }

  protected:
    /// What the threads share for one order of their events.
    struct Order {
        /// Places taken, and writers pending below them.
        alignas(64) std::atomic<uint64_t> word{0};
    };
    /// With an `order`, which may be null, every call takes its place there.
    RingContender(const Workload& work, Order* order);

  private:
    class Ring;
    class Consumer;
    static constexpr unsigned int kPreview = 4;

    // As callers of our interface, the compiler does not see through these.
    void enter(unsigned int module, const char* name, unsigned int request);
    void details(unsigned int module, const char* tag, uint8_t level, const char* text,
                 size_t bytes);
    /// The ring of this thread.
    Ring& ring();
    Ring& makeRing();
    void consume(int fd);

    const Workload& mWork;
    Order* const mOrder;
    std::atomic<Ring*> mNewest{nullptr};  // the others behind it
    /// Looks of the consumer that have found all rings empty and all text written.
    std::atomic<uint64_t> mIdleLooks{0};
    std::atomic<bool> mStop{false};
    std::thread mConsumer;
};

/// The same with the three atomic operations that a logger cannot do without whose lines are in one
/// order, and whose records a crash handler reads: a compare-exchange on a word that all threads
/// share, a full fence, a subtraction. The floor for such a call: the events themselves still share
/// no cache line.
class OrderedRingContender : public RingContender {
  public:
    explicit OrderedRingContender(const Workload& work) : RingContender(work, &mOrder) {}

  private:
    Order mOrder;
};

}  // namespace JCam::Bench
