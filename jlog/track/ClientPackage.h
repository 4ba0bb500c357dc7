#pragma once

#include <cutils/properties.h>

namespace JCam::Utils::JLog::Track {

/// Name of the application package that has the camera open, read at construction. Empty if
/// unknown, which logs an error.
class ClientPackage {
  public:
    ClientPackage();
    [[nodiscard]] const char* name() const { return mName; }

  private:
    char mName[128]{};
    static_assert(sizeof(mName) >= PROPERTY_VALUE_MAX);
};

}  // namespace JCam::Utils::JLog::Track
