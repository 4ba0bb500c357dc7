#include "jlog/TraceJLogger.h"

#include <cutils/trace.h>

#include "jlog/TraceSection.h"

namespace JCam::Utils::JLog {

namespace {

/// Enter and exit are alike up to the category test, which nothing passes while kTraceCategoryMask
/// is 0.
void traceEvent(unsigned int moduleId, const char* name) {
    [[maybe_unused]] char section[kTraceSectionBytes];
    formatTraceSection(section, moduleId, name);
    if ((atrace_get_enabled_tags() & TraceJLogger::kTraceCategoryMask) == 0) {
        return;
    }
    static_assert(TraceJLogger::kTraceCategoryMask == 0, "choose the marker before the category");
}

}  // namespace

TraceJLogger::~TraceJLogger() = default;

void TraceJLogger::onLogEnter(unsigned int moduleId, const char* name, unsigned int /*requestNo*/) {
    traceEvent(moduleId, name);
}

void TraceJLogger::onLogExit(unsigned int moduleId, const char* name, unsigned int /*requestNo*/) {
    traceEvent(moduleId, name);
}

void TraceJLogger::onLogDetails(unsigned int /*moduleId*/, const char* /*tag*/, JLogLevel /*level*/,
                                const char* /*text*/, unsigned long /*length*/) {}

}  // namespace JCam::Utils::JLog
