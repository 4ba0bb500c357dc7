#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <aidl/android/frameworks/stats/VendorAtomValue.h>

namespace aidl::android::frameworks::stats {

/// One event that a vendor reports to the stats service.
class VendorAtom {
  public:
    /// Who reports; the service requires fewer than 50 characters.
    std::string reverseDomainName;
    /// The kind of event; the service requires 100000 to 199999.
    int32_t atomId = 0;
    std::vector<VendorAtomValue> values;
};

}  // namespace aidl::android::frameworks::stats
