#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "Options.h"

namespace CameraHost {

/// A recovery takes milliseconds of the lowest priority, and a disk. One that takes so long never
/// ends.
inline constexpr std::chrono::seconds kRecoveryBound(60);

/// What became of a recovery.
struct Recovery {
    bool isDone = false;  // no box is left
    bool hung = false;    // and was killed
    int64_t ns = 0;       // from its start until no box was left
};

/// The black boxes in a folder, but for those of this process.
[[nodiscard]] std::vector<std::filesystem::path> listBoxes(const std::string& folder);

/// Does what the next start of a host does: lets a child process log until no other's box is left.
/// Removes the child's log files. Must be called while this process has one thread.
[[nodiscard]] Recovery recoverBoxes(const Options& options, std::chrono::microseconds bound);

}  // namespace CameraHost
