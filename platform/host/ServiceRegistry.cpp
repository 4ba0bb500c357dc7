#include <host/ServiceRegistry.h>

#include <map>
#include <mutex>
#include <set>
#include <utility>

#include <android/binder_manager.h>

#include "Binder.h"

namespace JCam::Platform {

namespace {

struct Services {
    std::mutex mutex;  // guards what follows
    std::set<std::string, std::less<>> declared;
    std::map<std::string, std::shared_ptr<ndk::ICInterface>, std::less<>> running;
};

/// Never destroyed: destructors may look for services.
Services& services() {
    static auto* const sServices = new Services;
    return *sServices;
}

}  // namespace

void ServiceRegistry::setDeclared(const std::string& instance, bool declared) {
    Services& all = services();
    const std::lock_guard lock(all.mutex);
    if (declared) {
        all.declared.insert(instance);
    } else {
        all.declared.erase(instance);
    }
}

void ServiceRegistry::setRunning(const std::string& instance,
                                 std::shared_ptr<ndk::ICInterface> service) {
    Services& all = services();
    const std::lock_guard lock(all.mutex);
    // The argument takes the previous service, which is thus destroyed after the unlock.
    all.running[instance].swap(service);
}

}  // namespace JCam::Platform

using JCam::Platform::services;

bool AServiceManager_isDeclared(const char* instance) {
    const std::lock_guard lock(services().mutex);
    return services().declared.contains(instance);
}

AIBinder* AServiceManager_checkService(const char* instance) {
    const std::lock_guard lock(services().mutex);
    const auto service = services().running.find(instance);
    if (service == services().running.end() || service->second == nullptr) {
        return nullptr;
    }
    return new AIBinder{service->second};
}
