#pragma once

#include "jlog/JLogger.h"

namespace JCam::Utils::JLog {

/// Logs that a request enters a scope and, in the destructor, that it leaves it. Only the
/// constructor asks JLogger::wantsScope(), so that an enter has its exit whatever changes
/// meanwhile. JLOG_SCOPE in JLogMacros.h makes one.
///
/// Threads: one object belongs to one thread. It takes no lock and allocates nothing beyond what
/// the entry points of JLogger do. Not signal-safe.
class JLogScope {
  public:
    /// Logs nothing.
    JLogScope() = default;
    /// Logs that request `requestNo` enters. `name` must outlive the scope; null becomes "".
    [[nodiscard]] JLogScope(unsigned int moduleId, const char* name, unsigned int requestNo)
            : mName(name),
              mModuleId(moduleId),
              mRequestNo(requestNo),
              mEntered(JLogger::wantsScope(moduleId)) {
        if (mEntered) {
            JLogger::logEnter(mModuleId, mName, mRequestNo);
        }
    }
    /// Logs that it leaves, if the enter was logged.
    ~JLogScope() {
        if (mEntered) {
            JLogger::logExit(mModuleId, mName, mRequestNo);
        }
    }
    JLogScope(const JLogScope&) = delete;
    JLogScope& operator=(const JLogScope&) = delete;

  private:
    const char* mName{nullptr};
    unsigned int mModuleId{0};
    unsigned int mRequestNo{0};
    bool mEntered{false};
};

}  // namespace JCam::Utils::JLog
