#pragma once

#include <chrono>
#include <cstdint>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "ProcessCounters.h"
#include "Workload.h"

namespace JCam::Bench {

/// Measures what the logger costs besides its callers' time: processor time and wake-ups while it
/// is idle, allocations on callers under a steady load, and memory during and after a burst.
template <typename Logger>
nlohmann::json measureResources(const Workload& work, unsigned int idleSeconds) {
    using namespace std::chrono_literals;
    constexpr unsigned int kBurstThreads = 4;
    constexpr unsigned int kBurstLines = 500000;
    constexpr unsigned int kSteadyRounds = 100;
    constexpr unsigned int kSteadyLines = 1000;
    Logger logger(work);
    std::this_thread::sleep_for(500ms);

    const ProcessCounters idleBegin = ProcessCounters::read();
    std::this_thread::sleep_for(std::chrono::seconds(idleSeconds));
    const ProcessCounters idleEnd = ProcessCounters::read();

    // 200,000 events a second. The first round is not counted: some memory is allocated only once.
    const auto logSome = [&](unsigned int rounds) {
        for (unsigned int round = 0; round < rounds; ++round) {
            for (unsigned int i = 0; i < kSteadyLines; ++i) {
                logEvent(logger, work, i);
            }
            std::this_thread::sleep_for(5ms);
        }
    };
    logSome(kSteadyRounds);
    const uint64_t allocationsBefore = allocationsOfThisThread();
    logSome(kSteadyRounds);
    const uint64_t allocations = allocationsOfThisThread() - allocationsBefore;
    logger.drain();
    const ProcessCounters steady = ProcessCounters::read();

    std::vector<std::thread> callers;
    for (unsigned int t = 0; t < kBurstThreads; ++t) {
        callers.emplace_back([&] {
            for (unsigned int i = 0; i < kBurstLines; ++i) {
                logEvent(logger, work, i);
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    const ProcessCounters burst = ProcessCounters::read();
    logger.drain();
    std::this_thread::sleep_for(1500ms);
    const ProcessCounters after = ProcessCounters::read();
    return {{"idle_seconds", idleSeconds},
            {"idle_cpu_percent", 100 * (idleEnd.cpuSeconds - idleBegin.cpuSeconds) / idleSeconds},
            {"idle_wakeups", idleEnd.wakeUps - idleBegin.wakeUps},
            {"steady_calls", kSteadyRounds * kSteadyLines},
            {"steady_allocations", allocations},
            {"start_kib", idleBegin.residentKib},
            {"steady_kib", steady.residentKib},
            {"burst_kib", burst.residentKib},
            {"after_burst_kib", after.residentKib}};
}

}  // namespace JCam::Bench
