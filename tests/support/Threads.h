#pragma once

#include <barrier>
#include <functional>
#include <thread>
#include <vector>

namespace JCam::Support {

/// Runs `body` on `count` threads at once, each with its number.
inline void runThreads(int count, const std::function<void(int)>& body) {
    std::barrier gate(count);
    std::vector<std::thread> threads;
    for (int i = 0; i < count; i++) {
        threads.emplace_back([&, i] {
            gate.arrive_and_wait();
            body(i);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace JCam::Support
