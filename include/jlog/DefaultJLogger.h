#pragma once

#include "jlog/JLogger.h"

namespace JCam::Utils::JLog {

/// Prints every event to the Android log: enter and exit at debug priority under the tag "JLOG",
/// details at the priority of their level under the caller's tag. A module without a name reads
/// "(null)". Start, stop and flush do nothing.
///
/// Stateless; any thread. It neither locks nor allocates by itself, and takes as long as the
/// Android log does. Not signal-safe.
class JLOG_EXPORT DefaultJLogger : public JLogger {
  public:
    /// Constant, so that the installed one is there before any code runs.
    constexpr DefaultJLogger() = default;
    /// Does nothing; never runs for sDefaultJLogger.
    ~DefaultJLogger() override;

    void onLogEnter(unsigned int moduleId, const char* name, unsigned int requestNo) override;
    void onLogExit(unsigned int moduleId, const char* name, unsigned int requestNo) override;
    /// `text` is printed up to its NUL, whatever `length` says. Nothing is printed for a level
    /// without a name, which is 0 or above 6.
    void onLogDetails(unsigned int moduleId, const char* tag, JLogLevel level, const char* text,
                      unsigned long length) override;
};

/// The logger that is installed whenever no other is. It is usable from before the first static
/// constructor until after the last static destructor, so it is a reference to an object that is
/// never destroyed.
JLOG_EXPORT extern DefaultJLogger& sDefaultJLogger;

/// The address of sDefaultJLogger, which never changes. Any thread; signal-safe.
JLOG_EXPORT JLogger* getDefaultJLogger();

}  // namespace JCam::Utils::JLog
