#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <vector>

#include <nlohmann/json.hpp>

#include "CycleClock.h"

namespace JCam::Bench {

/// The times of single calls of one thread.
class CallTimes {
  public:
    /// Writes to all memory of `calls` calls, so that no page fault is timed.
    void expect(size_t calls) {
        mTicks.assign(calls, 0);
        mTicks.clear();
    }

    /// Makes and times one call; returns its ticks.
    template <typename Call>
    uint64_t time(Call call) {
        const uint64_t begin = CycleClock::now();
        call();
        const uint64_t spent = CycleClock::now() - begin;
        mTicks.push_back(static_cast<uint32_t>(std::min<uint64_t>(spent, UINT32_MAX)));
        return spent;
    }

    /// Mean and percentiles of all threads together.
    static nlohmann::json summary(const std::vector<CallTimes>& threads, const CycleClock& clock) {
        std::vector<uint32_t> all;
        for (const CallTimes& thread : threads) {
            all.insert(all.end(), thread.mTicks.begin(), thread.mTicks.end());
        }
        std::sort(all.begin(), all.end());
        const auto count = static_cast<double>(all.size());
        const auto at = [&](double share) {
            return clock.toNs(all[static_cast<size_t>(share * (count - 1))]);
        };
        return {{"mean_ns",
                 clock.toNs(std::accumulate(all.begin(), all.end(), uint64_t{0})) / count},
                {"p50_ns", at(0.5)},
                {"p99_ns", at(0.99)},
                {"p999_ns", at(0.999)},
                {"p9999_ns", at(0.9999)},
                {"max_ns", at(1.0)},
                {"calls_timed", all.size()}};
    }

  private:
    std::vector<uint32_t> mTicks;
};

}  // namespace JCam::Bench
