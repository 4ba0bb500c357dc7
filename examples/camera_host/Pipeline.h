#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <span>
#include <stop_token>
#include <thread>
#include <vector>

#include "LedgerBook.h"

namespace CameraHost {

/// One station of a stream. Its name is also its Android log tag.
struct Node {
    unsigned int moduleId;
    const char* name;
};

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
    /// `rate`: requests per second and thread; 0 is as fast as it can. `ledgers` is empty and has
    /// room for ledgersFor(threads): one for the host's own thread, then one per thread. It must
    /// outlive the pipeline.
    Pipeline(LedgerBook& ledgers, unsigned int threads, unsigned int rate);
    [[nodiscard]] static size_t ledgersFor(unsigned int threads) { return size_t{threads} + 1; }
    /// Stops the threads: a pipeline must be gone before logging is shut down.
    ~Pipeline() { stop(); }
    Pipeline(const Pipeline&) = delete;
    Pipeline& operator=(const Pipeline&) = delete;

    void start();
    /// What the host does every second while the camera runs: a status message, the level decided
    /// anew, the buffered log pushed out. Call it on the thread that called start().
    void tick(unsigned int second);
    /// Blocks until every thread has ended.
    void stop();

  private:
    void runStream(const std::stop_token& stop, Ledger& ledger, const Stream& stream);
    void runRequest(Ledger& ledger, const Stream& stream);

    const unsigned int mRate;
    const unsigned int mThreadCount;
    std::atomic<uint32_t> mRequests{0};
    LedgerBook& mLedgers;
    Ledger& mHostLedger;
    std::mutex mMutex;  // for the timed wait alone
    std::condition_variable_any mStopped;
    std::vector<std::jthread> mThreads;  // last: they use everything above
};

}  // namespace CameraHost
