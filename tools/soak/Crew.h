#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "Call.h"
#include "Ledger.h"
#include "Random.h"

namespace JCam::Soak {

/// The threads that log. kThreads live at a time, each for a random number of calls; then another
/// one takes its place. All functions are the host thread's, which waits for nothing else.
class Crew {
  public:
    static constexpr size_t kThreads = 16;

    /// `material` must outlive it.
    Crew(const Material& material, uint64_t seed);
    /// stop().
    ~Crew();
    Crew(const Crew&) = delete;
    Crew& operator=(const Crew&) = delete;

    /// From now on so many of the threads log; the others wait. None do at first.
    void setActive(size_t threads);
    /// Replaces threads that end, for so long.
    void tend(std::chrono::milliseconds duration);
    /// Lets each thread finish its call, and joins them all.
    void stop();

    /// Of all threads so far; after stop().
    [[nodiscard]] const LedgerBook& ledgers() const { return mLedgers; }

  private:
    void startThread(size_t slot);
    void log(size_t slot, ThreadLedger& ledger, uint64_t calls);
    void awaitTurn(size_t slot);
    [[nodiscard]] bool mayLog(size_t slot) const;

    const Material& mMaterial;
    Random mRandom;
    LedgerBook mLedgers;
    std::array<std::thread, kThreads> mThreads;
    // Relaxed: they tell a thread when to go on, and publish nothing.
    std::atomic<size_t> mActive{0};
    std::atomic<bool> mStopping{false};

    std::mutex mMutex;
    std::condition_variable mTurnChanged;
    std::condition_variable mThreadEnded;
    std::vector<size_t> mEnded;  // slots whose threads end; guarded by mMutex
};

}  // namespace JCam::Soak
