#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace CameraHost {

/// What a step does about the kernel's feedback node.
enum class NodeUse {
    NONE,
    ATTEMPTED,  // how far it comes depends on the machine, which may have no node
    HELD_BACK,  // by the rate limit
};

/// What a step of the session brings about.
struct Reached {
    std::vector<uint32_t> raised{};  // ids of exceptions, as the log collector tells them
    std::vector<int32_t> atoms{};    // ids of atoms, as the stats service got them
    int64_t result = 0;              // of an operation that has one
    NodeUse node = NodeUse::NONE;
    bool statsMissed = false;  // the stats service was looked for, and does not run

    bool operator==(const Reached&) const = default;
};

/// One step: a call or two of a camera HAL.
struct ExceptionStep {
    std::string what;
    Reached expected;
    Reached reached;
    std::string node;  // how far an attempt on the node came
};

/// Plays a camera session in which things go wrong, against the stand-ins for the log collector and
/// the stats service and against whatever node the kernel of this machine has. Takes about four
/// seconds. `onStep` is told of each step before it is done. Files are made below the working
/// directory.
[[nodiscard]] std::vector<ExceptionStep> runExceptionSession(
        const std::function<void(std::string_view)>& onStep);

}  // namespace CameraHost
