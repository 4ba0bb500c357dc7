#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <span>
#include <stop_token>
#include <thread>
#include <vector>

#include "LedgerBook.h"
#include "Node.h"

namespace CameraHost {

/// A kind of camera work: the nodes that each request passes, and how many requests come at once.
struct Stream {
    const char* name;
    unsigned int moduleId;
    unsigned int burst;
    std::span<const Node> nodes;
};

/// Threads that take requests through the nodes of a stream, logging as a HAL does. The thread that
/// starts it logs too, once a second, through tick().
class Pipeline {
  public:
    /// `rate`: requests per second and thread; 0 is as fast as it can. `maxAhead`: the records that
    /// all threads together may be ahead of the last flush by flushFor(), or so; 0: any number. The
    /// first of the ledgers is for the host's own thread, each other one stands for a thread. They
    /// must outlive the pipeline.
    Pipeline(const LedgerBook& ledgers, unsigned int rate, uint64_t maxAhead = 0)
            : mRate(rate), mMaxAhead(maxAhead), mLedgers(ledgers) {}
    /// Stops the threads: a pipeline must be gone before logging is shut down.
    ~Pipeline() { stop(); }
    Pipeline(const Pipeline&) = delete;
    Pipeline& operator=(const Pipeline&) = delete;

    void start();
    /// What the host does every second while the camera runs: a status message, the level decided
    /// anew, the buffered log pushed out. Call it on the thread that called start().
    void tick(unsigned int second);
    /// Flushes over and over, for so long at least.
    void flushFor(std::chrono::microseconds time);
    /// A preview request on the thread that called start(): its sensor node does `work`.
    void runRequestAround(const std::function<void()>& work);
    /// Blocks until every thread has ended.
    void stop();
    /// Requests so far of which less has reached the back end than their call sites have logged.
    [[nodiscard]] uint32_t unheard() const { return mUnheard.load(std::memory_order_relaxed); }

  private:
    /// Its number.
    uint32_t beginRequest() {
        // Relaxed: the number is only a name, nothing is published with it.
        return mRequests.fetch_add(1, std::memory_order_relaxed) + 1;
    }
    void runStream(const std::stop_token& stop, Ledger& ledger, const Stream& stream);
    void awaitFlush(const std::stop_token& stop) const;
    /// Also looks whether the ledger, which is kept behind the front end, has heard of it.
    void runRequest(Ledger& ledger, const Stream& stream);
    static void takeThrough(Ledger& ledger, const Stream& stream, const Request& request);

    const unsigned int mRate;
    const uint64_t mMaxAhead;
    std::atomic<uint32_t> mRequests{0};
    std::atomic<uint32_t> mUnheard{0};
    std::atomic<uint64_t> mFlushed{0};  // events before the last flush
    const LedgerBook& mLedgers;
    std::mutex mMutex;  // for the timed wait alone
    std::condition_variable_any mStopped;
    std::vector<std::jthread> mThreads;  // last: they use everything above
};

}  // namespace CameraHost
