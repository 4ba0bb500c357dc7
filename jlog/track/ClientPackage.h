#pragma once

#include <cutils/properties.h>

namespace JCam::Utils::JLog::Track {

/// Name of the application package that has the camera open, as it is known at construction. Empty
/// when unknown, which is told to the Android log.
class ClientPackage {
  public:
    ClientPackage();
    [[nodiscard]] const char* name() const { return mName; }

  private:
    char mName[128]{};
    static_assert(sizeof(mName) >= PROPERTY_VALUE_MAX);
};

}  // namespace JCam::Utils::JLog::Track
