#define JLOG_TAG "Metadata"
#include "Metadata.h"

#include <array>

#include "jlog/JLogMacros.h"

namespace CameraHost {

using namespace JCam::Utils::JLog;

void dumpMetadata(unsigned int moduleId, const Request& request) {
    static constexpr std::array kEntries{
            "ae.state = converged",  "af.state = focused",  "awb.state = converged",
            "ae.antibanding = auto", "flash.state = ready", "lens.state = stationary",
            "tonemap.mode = fast",   "noise.mode = fast",
    };
    // One test ahead of the block: when it is not wanted, nothing is gathered, and no scope is left
    // empty in the files.
    if (!JLogger::wantsDetails(moduleId, LEVEL_VERBOSE)) {
        return;
    }
    JLOG_SCOPE(moduleId, "Metadata", request.number);
    for (const char* const entry : kEntries) {
        JLOGV(moduleId, "request %u: %s", request.number, entry);
    }
}

}  // namespace CameraHost
