#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <variant>

namespace aidl::android::frameworks::stats {

/// One value of a vendor atom: a union of four types. Initially an int of 0.
class VendorAtomValue {
  public:
    enum Tag : int32_t {
        intValue = 0,
        longValue = 1,
        floatValue = 2,
        stringValue = 3,
    };

    VendorAtomValue() = default;

    template <Tag tag, typename... Args>
    static VendorAtomValue make(Args&&... args) {
        VendorAtomValue value;
        value.mValue.emplace<static_cast<size_t>(tag)>(std::forward<Args>(args)...);
        return value;
    }

    bool operator==(const VendorAtomValue& other) const { return mValue == other.mValue; }

  private:
    std::variant<int32_t, int64_t, float, std::string> mValue;
};

}  // namespace aidl::android::frameworks::stats
