#pragma once

#include <stdexcept>

namespace JCam::Soak {

/// What the soak is there to find: the library has not done what it promises.
class Fault : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace JCam::Soak
