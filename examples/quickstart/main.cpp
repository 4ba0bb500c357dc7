// The least a host needs: two properties, an initializer, and call sites.

#include <cstdio>
#include <cstring>

#include <cutils/properties.h>

#include "jlog/JLogger.h"
#include "jlog/JLogInitializer.h"

using namespace JCam::Utils::JLog;

namespace {

struct Request {
    unsigned int number;
    double gain;
};

void process(const Request& request) {
    JLogger::logEnter(MODULE_PREVIEW, "IspNode", request.number);
    if (JLogger::isLogDetailsEnabled(MODULE_PREVIEW, LEVEL_DEBUG)) {
        char text[64];
        snprintf(text, sizeof(text), "gain %.2f", request.gain);
        JLogger::logNormalDetails(MODULE_PREVIEW, "IspNode", LEVEL_DEBUG, text, strlen(text));
    }
    JLogger::logExit(MODULE_PREVIEW, "IspNode", request.number);
}

}  // namespace

int main() {
    // A device has them set. Mode 1 is the Android log; 0x14 would be files of our own.
    property_set("vendor.debug.camera.jlog.mode", "1");
    property_set("persist.vendor.jovix.camera.log_level", "3");
    const JLogInitializer initializer(ENABLE_JLOG);
    for (unsigned int number = 1; number <= 3; ++number) {
        process({number, 1.0 + (0.5 * number)});
    }
    return 0;
}
