#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <thread>

#include "Event.h"
#include "Workload.h"

namespace JCam::Bench {

/// What a good engineer writes by hand for this one job: each thread packs its events into a ring
/// of its own, and one thread polls all rings, renders lines of our layout and writes them.
/// Bounded: a caller whose ring is full waits. There are no settings, no tests, no order between
/// threads and no crash hook, and the polling goes on for as long as the logger is there.
///
/// One object in a process. A thread's ring stays until the object goes.
class RingContender : public EventCalls<RingContender> {
  public:
    explicit RingContender(const Workload& work);
    /// Writes the rest. No thread may log any more.
    ~RingContender();
    RingContender(const RingContender&) = delete;
    RingContender& operator=(const RingContender&) = delete;

    /// Returns when everything logged is in the file.
    void drain();

  private:
    friend class EventCalls<RingContender>;
    class Ring;

    // As callers of our interface, the compiler does not see through these.
    void enter(unsigned int module, const char* name, unsigned int request);
    void details(unsigned int module, const char* tag, uint8_t level, const char* text,
                 size_t bytes);
    /// The ring of this thread.
    Ring& ring();
    Ring& makeRing();
    void consume();

    EventFile mFile;                      // the consumer's
    std::atomic<Ring*> mNewest{nullptr};  // the others behind it
    /// Looks of the consumer that have found all rings empty and all text written.
    std::atomic<uint64_t> mIdleLooks{0};
    std::atomic<bool> mStop{false};
    std::thread mConsumer;
};

}  // namespace JCam::Bench
