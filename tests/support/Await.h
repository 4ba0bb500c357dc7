#pragma once

#include <chrono>
#include <thread>

namespace JCam::Support {

/// Waits until `condition` holds; false when it does not within a bound that is generous even for a
/// loaded machine with sanitizers.
template <typename Condition>
[[nodiscard]] bool await(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace JCam::Support
