#pragma once

// Version 1 of the stats service's interface, as far as the library and its tests use it.

#include <memory>

#include <aidl/android/frameworks/stats/VendorAtom.h>
#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>

#pragma GCC visibility push(default)

namespace aidl::android::frameworks::stats {

/// On a device, services derive from BnStats, which this host has no need for: what derives from
/// IStats itself is for hosts.
class IStats : public ::ndk::ICInterface {
  public:
    static const char* descriptor;

    IStats() = default;
    ~IStats() override;

    /// The service behind a binder object; empty for a null one and for another kind of service.
    static std::shared_ptr<IStats> fromBinder(const ::ndk::SpAIBinder& binder);

    /// Oneway on a device: an OK status says that the atom was sent, not that it was accepted.
    virtual ::ndk::ScopedAStatus reportVendorAtom(const VendorAtom& in_vendorAtom) = 0;
};

}  // namespace aidl::android::frameworks::stats

#pragma GCC visibility pop
