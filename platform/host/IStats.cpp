#include <aidl/android/frameworks/stats/IStats.h>

#include "Binder.h"

namespace aidl::android::frameworks::stats {

const char* IStats::descriptor = "android.frameworks.stats.IStats";

IStats::~IStats() = default;

std::shared_ptr<IStats> IStats::fromBinder(const ::ndk::SpAIBinder& binder) {
    return binder.get() == nullptr ? nullptr
                                   : std::dynamic_pointer_cast<IStats>(binder.get()->service);
}

}  // namespace aidl::android::frameworks::stats
