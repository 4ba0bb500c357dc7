#pragma once

#include <cstddef>
#include <cstdint>

namespace JCam::Soak {

/// What the process holds.
struct Resources {
    size_t descriptors{0};
    size_t threads{0};
    uint64_t residentKib{0};
    /// Of malloc, handed out; 0 with a sanitizer's.
    uint64_t heapBytes{0};

    /// After malloc has given back what it can. The host thread's.
    static Resources read();
};

}  // namespace JCam::Soak
