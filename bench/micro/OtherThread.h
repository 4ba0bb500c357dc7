#pragma once

#include <barrier>
#include <functional>
#include <thread>
#include <utility>

namespace JCam::Bench {

/// A thread that does the same work each time it is asked, while the asking thread waits. So
/// memory that both use has to move between their cores.
class OtherThread {
  public:
    explicit OtherThread(std::function<void()> work) : mWork(std::move(work)) {}
    ~OtherThread() {
        mStop = true;
        mGate.arrive_and_wait();
        mThread.join();
    }
    OtherThread(const OtherThread&) = delete;
    OtherThread& operator=(const OtherThread&) = delete;

    /// Returns when the work is done.
    void run() {
        mGate.arrive_and_wait();  // go
        mGate.arrive_and_wait();  // done
    }

  private:
    void loop() {
        for (mGate.arrive_and_wait(); !mStop; mGate.arrive_and_wait()) {
            mWork();
            mGate.arrive_and_wait();
        }
    }

    const std::function<void()> mWork;
    std::barrier<> mGate{2};
    bool mStop{false};                        // ordered by the gate
    std::thread mThread{[this] { loop(); }};  // last: it uses everything above
};

}  // namespace JCam::Bench
