#pragma once

#include <memory>
#include <string>

#include <android/binder_interface_utils.h>

#pragma GCC visibility push(default)

namespace JCam::Platform {

/// The services of this process. With it a program on a host plays the device's manifest and the
/// processes of the services. Initially there are none.
///
/// Any thread, also before main and during static destruction.
class ServiceRegistry {
  public:
    /// Sets whether the manifest names `instance` ("INTERFACE/NAME").
    static void setDeclared(const std::string& instance, bool declared);
    /// Sets the service of `instance`; null if it does not run. Callers that have found the
    /// previous one keep it.
    static void setRunning(const std::string& instance, std::shared_ptr<ndk::ICInterface> service);
};

}  // namespace JCam::Platform

#pragma GCC visibility pop
