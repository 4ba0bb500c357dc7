#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "LogcatFile.h"

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

/// What the session needs of the program around it.
struct SessionHost {
    LogcatFile& logcat;                            // the steps are read from it
    std::function<void(std::string_view)> onStep;  // is told of each step before it is done
    /// Does what it is given while a request is in flight on the calling thread.
    std::function<void(const std::function<void()>&)> inRequest;
};

/// Plays a camera session in which things go wrong, against the stand-ins for the log collector and
/// the stats service and against whatever node the kernel of this machine has. Takes about four
/// seconds. Files are made below the working directory. Call it on the thread that has made the
/// logcat file.
[[nodiscard]] std::vector<ExceptionStep> runExceptionSession(const SessionHost& host);

}  // namespace CameraHost
