// All that a host needs: two properties, an initializer, and call sites.

#define JLOG_TAG "IspNode"
#include "jlog/JLogMacros.h"

#include <cutils/properties.h>

#include "jlog/JLogInitializer.h"

using namespace JCam::Utils::JLog;

namespace {

void process(unsigned int request, double gain) {
    JLOG_SCOPE(MODULE_PREVIEW, "process", request);
    JLOGD(MODULE_PREVIEW, "gain %.2f", gain);
}

}  // namespace

int main() {
    // A device has them set. Mode 1 is the Android log; 0x14 would be files of our own.
    property_set("vendor.debug.camera.jlog.mode", "1");
    property_set("persist.vendor.jovix.camera.log_level", "3");
    const JLogInitializer initializer(ENABLE_JLOG);
    for (unsigned int request = 1; request <= 3; request++) {
        process(request, 1.0 + (0.5 * request));
    }
    return 0;
}
