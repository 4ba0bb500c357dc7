#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace JCam::Support {

/// Open file descriptors of this process, one that the look itself takes included.
inline size_t openDescriptors() {
    const std::filesystem::directory_iterator folder("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(folder), end(folder)));
}

}  // namespace JCam::Support
