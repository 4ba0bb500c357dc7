#pragma once

// Version 1 of the stats service's interface: the part that the library and its tests use.

#include <memory>

#include <aidl/android/frameworks/stats/VendorAtom.h>
#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>

#pragma GCC visibility push(default)

namespace aidl::android::frameworks::stats {

/// Services on a host derive from this class; on a device they derive from BnStats.
class IStats : public ::ndk::ICInterface {
  public:
    static const char* descriptor;

    IStats() = default;
    ~IStats() override;

    /// The service of a binder object; empty for a null one and for another kind of service.
    static std::shared_ptr<IStats> fromBinder(const ::ndk::SpAIBinder& binder);

    /// Oneway on a device: OK means that the atom was sent, not that it was accepted.
    virtual ::ndk::ScopedAStatus reportVendorAtom(const VendorAtom& in_vendorAtom) = 0;
};

}  // namespace aidl::android::frameworks::stats

#pragma GCC visibility pop
