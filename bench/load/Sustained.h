#pragma once

#include <barrier>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "Files.h"
#include "Workload.h"

namespace JCam::Bench {

/// Measures how many lines reach the file. `threads` threads together log `lines` events as fast as
/// they can. The clock stops when the logger is destroyed and so the last line is in the file.
template <typename Logger>
nlohmann::json measureSustained(const Workload& work, unsigned int threads, unsigned int lines) {
    using Clock = std::chrono::steady_clock;
    const unsigned int share = lines / threads;
    auto logger = std::make_unique<Logger>(work);
    std::barrier gate(static_cast<std::ptrdiff_t>(threads + 1));
    std::vector<std::thread> callers;
    for (unsigned int t = 0; t < threads; ++t) {
        callers.emplace_back([&] {
            gate.arrive_and_wait();
            for (unsigned int i = 0; i < share; ++i) {
                logEvent(*logger, work, i);
            }
        });
    }
    gate.arrive_and_wait();
    const Clock::time_point begin = Clock::now();
    for (std::thread& caller : callers) {
        caller.join();
    }
    const std::chrono::duration<double> logged = Clock::now() - begin;
    logger.reset();
    const std::chrono::duration<double> written = Clock::now() - begin;
    const FileCount found = countLines(work.folder);
    const uint64_t expected = uint64_t{share} * threads;
    const uint64_t present = found.lines - Logger::foreignLines(found.files);
    return {{"lines", expected},
            {"lines_lost", static_cast<int64_t>(expected) - static_cast<int64_t>(present)},
            {"bytes", found.bytes},
            {"seconds", written.count()},
            {"logging_seconds", logged.count()},
            {"lines_per_s", static_cast<double>(expected) / written.count()}};
}

}  // namespace JCam::Bench
