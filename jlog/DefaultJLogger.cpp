#include "jlog/DefaultJLogger.h"

#include <android/log.h>

#include "jlog/LogTag.h"
#include "jlog/ModuleTable.h"

namespace JCam::Utils::JLog {

namespace {

/// ANDROID_LOG_UNKNOWN for a level that is not printed.
constexpr android_LogPriority toPriority(JLogLevel level) {
    switch (level) {
        case LEVEL_ERROR:
            return ANDROID_LOG_ERROR;
        case LEVEL_WARN:
            return ANDROID_LOG_WARN;
        case LEVEL_INFO:
            return ANDROID_LOG_INFO;
        case LEVEL_DEBUG_HIGH:
        case LEVEL_DEBUG:
            return ANDROID_LOG_DEBUG;
        case LEVEL_VERBOSE:
            return ANDROID_LOG_VERBOSE;
    }
    return ANDROID_LOG_UNKNOWN;
}

/// "(null)" is what Android's formatter prints for null, which %s leaves undefined elsewhere.
const char* nameOf(unsigned int moduleId) {
    const char* name = getModuleName(moduleId);
    return name != nullptr ? name : "(null)";
}

}  // namespace

DefaultJLogger::~DefaultJLogger() = default;

void DefaultJLogger::onLogEnter(unsigned int moduleId, const char* name, unsigned int requestNo) {
    __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "%s R[%u] M[%s : %x] +", name, requestNo,
                        nameOf(moduleId), moduleId);
}

void DefaultJLogger::onLogExit(unsigned int moduleId, const char* name, unsigned int requestNo) {
    __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "%s R[%u] M[%s : %x] -", name, requestNo,
                        nameOf(moduleId), moduleId);
}

void DefaultJLogger::onLogDetails(unsigned int /*moduleId*/, const char* tag, JLogLevel level,
                                  const char* text, unsigned long /*length*/) {
    const android_LogPriority priority = toPriority(level);
    if (priority == ANDROID_LOG_UNKNOWN) {
        return;
    }
    __android_log_print(priority, tag, "%s", text != nullptr ? text : "");
}

}  // namespace JCam::Utils::JLog
