#pragma once

#include <memory>
#include <string>

#include <android/binder_interface_utils.h>

#pragma GCC visibility push(default)

namespace JCam::Platform {

/// The services of this process's device: with it a program on a host plays what is otherwise done
/// by the device's manifest and by the processes of the services. At first there are none.
///
/// Any thread, also before main and during static destruction.
class ServiceRegistry {
  public:
    /// Whether the manifest names `instance` ("INTERFACE/NAME").
    static void setDeclared(const std::string& instance, bool declared);
    /// What answers calls to `instance` from now on; null for a service that does not run. Whoever
    /// has found the previous one keeps it.
    static void setRunning(const std::string& instance, std::shared_ptr<ndk::ICInterface> service);
};

}  // namespace JCam::Platform

#pragma GCC visibility pop
