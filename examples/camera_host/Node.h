#pragma once

#include <chrono>

#include "Request.h"

namespace CameraHost {

/// One station of a stream, and an example of a camera module: it logs a request's way through it,
/// and now and then that something is odd.
class Node {
  public:
    /// `name` must outlive the node. It is also its log tag. `work`: what a request takes.
    constexpr Node(unsigned int moduleId, const char* name, std::chrono::microseconds work)
            : mModuleId(moduleId), mName(name), mWork(work) {}

    void process(const Request& request) const;

    [[nodiscard]] unsigned int moduleId() const { return mModuleId; }

  private:
    unsigned int mModuleId;
    const char* mName;
    std::chrono::microseconds mWork;
};

}  // namespace CameraHost
