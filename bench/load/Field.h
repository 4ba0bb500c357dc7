#pragma once

#include <sys/prctl.h>

#include <chrono>
#include <cstddef>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "CallTimes.h"
#include "CycleClock.h"
#include "Workload.h"

namespace JCam::Bench {

struct FieldOptions {
    unsigned int threads{16};
    /// Of all threads together.
    unsigned int callsPerSecond{100000};
    unsigned int seconds{2};
};

/// Measures what a call costs its caller under the load of a busy device: many threads, each of
/// which sleeps between its calls. The calls are spread evenly over time and threads. Every call is
/// timed, but for those of the first half second.
template <typename Logger>
nlohmann::json measureField(const Workload& work, const FieldOptions& options) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds kWarmUp(500);
    Logger logger(work);
    const CycleClock clock;
    const std::chrono::nanoseconds interval(1000000000 / options.callsPerSecond);
    const auto period = interval * options.threads;
    const auto warmUpCalls = static_cast<unsigned int>(kWarmUp / period);
    const auto calls = static_cast<unsigned int>(std::chrono::seconds(options.seconds) / period);
    std::vector<CallTimes> times(options.threads);
    // Late enough for all threads to be there.
    const Clock::time_point begin = Clock::now() + std::chrono::milliseconds(50);
    std::vector<std::thread> threads;
    for (unsigned int t = 0; t < options.threads; ++t) {
        threads.emplace_back([&, t] {
            prctl(PR_SET_TIMERSLACK, 1);  // otherwise the kernel rounds a sleep up to 50 us
            CallTimes own;
            own.expect(calls);
            Clock::time_point next = begin + interval * t;
            for (unsigned int i = 0; i < warmUpCalls + calls; ++i, next += period) {
                std::this_thread::sleep_until(next);
                if (i < warmUpCalls) {
                    logEvent(logger, work, i);
                } else {
                    own.time([&] { logEvent(logger, work, i); });
                }
            }
            times[t] = std::move(own);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::chrono::duration<double> spent = Clock::now() - begin;
    nlohmann::json outcome = CallTimes::summary(times, clock);
    outcome["calls_per_s"] = options.threads * (warmUpCalls + calls) / spent.count();
    return outcome;
}

}  // namespace JCam::Bench
