#pragma once

#include <cstdint>

namespace CameraHost {

/// What travels through the nodes of a stream.
struct Request {
    uint32_t number;
    unsigned int burst;  // how many came at once, this one included
    const char* stream;
    bool isPaced;  // nodes take their time over it
};

}  // namespace CameraHost
