#pragma once

#include <algorithm>
#include <barrier>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "CycleClock.h"
#include "Workload.h"

namespace JCam::Bench {

struct BurstOptions {
    unsigned int threads{1};
    /// Per thread and burst.
    unsigned int calls{20000};
    /// Bursts that are timed as a whole, and as many whose calls are timed one by one.
    unsigned int bursts{5};
};

/// Measures what a call costs its caller. Threads log in bursts that begin together; between bursts
/// the logger writes everything out. Bursts timed as a whole give the mean, bursts in which every
/// call is timed the percentiles.
template <typename Logger>
class Bursts {
  public:
    Bursts(Logger& logger, const BurstOptions& options) : mLogger(logger), mOptions(options) {}

    nlohmann::json run() {
        const size_t threadCount = mOptions.threads;
        std::vector<std::vector<uint32_t>> ticks(threadCount);
        std::vector<double> meanNs(threadCount);
        std::barrier gate(static_cast<std::ptrdiff_t>(threadCount + 1));
        std::vector<std::thread> threads;
        for (size_t i = 0; i < threadCount; ++i) {
            threads.emplace_back([&, i] { logBursts(gate, ticks[i], meanNs[i]); });
        }
        for (unsigned int burst = 0; burst < 1 + 2 * mOptions.bursts; ++burst) {
            gate.arrive_and_wait();  // go
            gate.arrive_and_wait();  // done
            mLogger.drain();
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        std::vector<uint32_t> all;
        for (const std::vector<uint32_t>& some : ticks) {
            all.insert(all.end(), some.begin(), some.end());
        }
        std::sort(all.begin(), all.end());
        const auto at = [&](double share) {
            return mClock.toNs(
                    all[static_cast<size_t>(share * static_cast<double>(all.size() - 1))]);
        };
        return {{"mean_ns", std::accumulate(meanNs.begin(), meanNs.end(), 0.0) /
                                    static_cast<double>(threadCount)},
                {"p50_ns", at(0.5)},
                {"p99_ns", at(0.99)},
                {"p999_ns", at(0.999)},
                {"max_ns", at(1.0)},
                {"calls_timed", all.size()}};
    }

  private:
    void logBursts(std::barrier<>& gate, std::vector<uint32_t>& ticks, double& meanNs) {
        // Writes to all memory of the measurement before it begins, so that no page fault is timed.
        ticks.assign(size_t{mOptions.bursts} * mOptions.calls, 0);
        size_t timed = 0;
        uint64_t wholeTicks = 0;
        for (unsigned int burst = 0; burst < 1 + 2 * mOptions.bursts; ++burst) {
            gate.arrive_and_wait();
            if (burst % 2 == 0) {
                const uint64_t begin = CycleClock::now();
                for (unsigned int i = 0; i < mOptions.calls; ++i) {
                    logEvent(mLogger, i);
                }
                // The first burst warms up.
                wholeTicks += burst == 0 ? 0 : CycleClock::now() - begin;
            } else {
                for (unsigned int i = 0; i < mOptions.calls; ++i) {
                    const uint64_t begin = CycleClock::now();
                    logEvent(mLogger, i);
                    const uint64_t spent = CycleClock::now() - begin;
                    ticks[timed++] = static_cast<uint32_t>(std::min<uint64_t>(spent, UINT32_MAX));
                }
            }
            gate.arrive_and_wait();
        }
        meanNs = mClock.toNs(wholeTicks) / mOptions.bursts / mOptions.calls;
    }

    Logger& mLogger;
    const BurstOptions mOptions;
    const CycleClock mClock;
};

}  // namespace JCam::Bench
