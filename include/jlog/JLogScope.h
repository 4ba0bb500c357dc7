#pragma once

#include "jlog/JLogger.h"

namespace JCam::Utils::JLog {

/// Logs that a request enters a scope and, at the end of the block, that it leaves it; both only if
/// the module filter has a bit of the module. The filter is asked once, so that an enter has its
/// exit even if the filter changes meanwhile. JLOG_SCOPE of JLogMacros.h makes one.
///
/// The level threshold is not asked: a request's way is wanted in the files at any level.
///
/// Threads: one object belongs to one thread. It neither locks nor allocates by itself; the entry
/// points of JLogger say what they do. Not signal-safe.
class JLogScope {
  public:
    /// Logs that request `requestNo` enters. `name` must outlive the scope; null becomes "".
    JLogScope(unsigned int moduleId, const char* name, unsigned int requestNo)
            : mName(name),
              mModuleId(moduleId),
              mRequestNo(requestNo),
              mEntered(JLogger::isModuleEnabled(moduleId)) {
        if (mEntered) {
            JLogger::logEnter(mModuleId, mName, mRequestNo);
        }
    }
    /// Logs that it leaves.
    ~JLogScope() {
        if (mEntered) {
            JLogger::logExit(mModuleId, mName, mRequestNo);
        }
    }
    JLogScope(const JLogScope&) = delete;
    JLogScope& operator=(const JLogScope&) = delete;

  private:
    const char* mName;
    unsigned int mModuleId;
    unsigned int mRequestNo;
    bool mEntered;
};

}  // namespace JCam::Utils::JLog
