// Any expression will do: each node logs under its own name.
#define JLOG_TAG mName
#include "Node.h"

#include <thread>

#include "jlog/JLogMacros.h"

namespace CameraHost {

using namespace JCam::Utils::JLog;

namespace {

// How often, in requests, the rarer messages come: often enough to be seen in a short run.
constexpr uint32_t kInfoEvery = 30;
constexpr uint32_t kWarnEvery = 45;
constexpr uint32_t kErrorEvery = 60;
/// One request in so many takes a node much longer.
constexpr uint32_t kSlowEvery = 100;
constexpr int kSlowFactor = 10;

}  // namespace

void Node::process(const Request& request) const {
    JLOG_SCOPE(mModuleId, mName, request.number);
    JLOGV(mModuleId, "request %u: input is here", request.number);
    if (request.burst > 1) {
        JLOG_DETAILS(mModuleId, LEVEL_DEBUG_HIGH, "request %u: one of a burst of %u",
                     request.number, request.burst);
        JLOGD(mModuleId, "request %u: full-size buffer taken from the pool", request.number);
    }
    if (request.isPaced) {
        std::this_thread::sleep_for(request.number % kSlowEvery == 0 ? mWork * kSlowFactor : mWork);
    }
    if (request.number % kErrorEvery == 0) {
        JLOGE(mModuleId, "request %u: statistics are damaged, those of request %u are used",
              request.number, request.number - 1);
    } else if (request.number % kWarnEvery == 0) {
        JLOGW(mModuleId, "request %u: statistics are late", request.number);
    } else if (request.number % kInfoEvery == 0) {
        JLOGI(mModuleId, "%s stream at request %u", request.stream, request.number);
    }
    JLOGD(mModuleId, "request %u: done", request.number);
}

}  // namespace CameraHost
