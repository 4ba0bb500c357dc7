#pragma once

#include <algorithm>
#include <barrier>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "CallTimes.h"
#include "CycleClock.h"
#include "Waits.h"
#include "Workload.h"

namespace JCam::Bench {

struct BurstOptions {
    unsigned int threads{1};
    /// Per thread and burst.
    unsigned int calls{20000};
    /// Bursts that are timed as a whole, and as many whose calls are timed one by one.
    unsigned int bursts{5};
    /// Between bursts. 0 waits until the logger has written everything instead.
    unsigned int pauseMs{0};
};

/// Measures what a call costs its caller. Threads log in bursts that begin together; between bursts
/// the logger writes everything out, or is left alone for a fixed time. Bursts timed as a whole
/// give the mean, bursts in which every call is timed the percentiles and the waits.
template <typename Logger>
class Bursts {
  public:
    Bursts(Logger& logger, const Workload& work, const BurstOptions& options)
            : mLogger(logger), mWork(work), mOptions(options), mThreads(options.threads) {}

    nlohmann::json run() {
        std::barrier gate(static_cast<std::ptrdiff_t>(mThreads.size() + 1));
        std::vector<std::thread> threads;
        for (Thread& thread : mThreads) {
            threads.emplace_back([&] { logBursts(gate, thread); });
        }
        for (unsigned int burst = 0; burst < 1 + 2 * mOptions.bursts; ++burst) {
            gate.arrive_and_wait();  // go
            gate.arrive_and_wait();  // done
            if (mOptions.pauseMs > 0) {
                std::this_thread::sleep_for(std::chrono::milliseconds(mOptions.pauseMs));
            } else {
                mLogger.drain();
            }
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        return summary();
    }

  private:
    struct alignas(64) Thread {
        uint64_t wholeTicks{0};
        CallTimes times;
        Waits waits;
    };

    void logBursts(std::barrier<>& gate, Thread& result) {
        constexpr double kShortestSwitchNs = 1000;
        const auto shortestSwitch = static_cast<uint64_t>(kShortestSwitchNs / mClock.toNs(1));
        CallTimes times;  // of this thread's own memory
        Waits waits;
        times.expect(size_t{mOptions.bursts} * mOptions.calls);
        for (unsigned int burst = 0; burst < 1 + 2 * mOptions.bursts; ++burst) {
            gate.arrive_and_wait();
            if (burst % 2 == 0) {
                const uint64_t begin = CycleClock::now();
                for (unsigned int i = 0; i < mOptions.calls; ++i) {
                    logEvent(mLogger, mWork, i);
                }
                // The first burst warms up.
                result.wholeTicks += burst == 0 ? 0 : CycleClock::now() - begin;
            } else {
                waits.begin();
                for (unsigned int i = 0; i < mOptions.calls; ++i) {
                    const uint64_t spent = times.time([&] { logEvent(mLogger, mWork, i); });
                    if (spent >= shortestSwitch) {
                        waits.look(spent);
                    }
                }
            }
            gate.arrive_and_wait();
        }
        result.times = std::move(times);
        result.waits = waits;
    }

    [[nodiscard]] nlohmann::json summary() const {
        std::vector<CallTimes> times;
        uint64_t wholeTicks = 0;
        int64_t waits = 0;
        uint64_t longestWait = 0;
        for (const Thread& thread : mThreads) {
            times.push_back(thread.times);
            wholeTicks += thread.wholeTicks;
            waits += thread.waits.count();
            longestWait = std::max(longestWait, thread.waits.longest());
        }
        nlohmann::json outcome = CallTimes::summary(times, mClock);
        // The mean of bursts as a whole has no clock readings in it.
        outcome["mean_ns"] = mClock.toNs(wholeTicks) / mOptions.bursts / mOptions.calls /
                             static_cast<double>(mThreads.size());
        outcome["waits"] = waits;
        outcome["longest_wait_ns"] = mClock.toNs(longestWait);
        return outcome;
    }

    Logger& mLogger;
    const Workload& mWork;
    const BurstOptions mOptions;
    const CycleClock mClock;
    std::vector<Thread> mThreads;
};

}  // namespace JCam::Bench
