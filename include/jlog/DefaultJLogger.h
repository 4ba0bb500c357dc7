#pragma once

#include "jlog/JLogger.h"

namespace JCam::Utils::JLog {

/// Prints every event to the Android log: enter and exit at debug priority under the tag "JLOG",
/// details at the priority of their level under the caller's tag. A module without a name is
/// printed as "(null)". Start, stop and flush do nothing.
///
/// Stateless; any thread. Takes no lock and allocates nothing by itself; takes as long as the
/// Android log does. Not signal-safe.
class JLOG_EXPORT DefaultJLogger : public JLogger {
  public:
    /// Constant initialisation: sDefaultJLogger exists before any code runs.
    constexpr DefaultJLogger() = default;
    /// Does nothing; never runs for sDefaultJLogger.
    ~DefaultJLogger() override;

    void onLogEnter(unsigned int moduleId, const char* name, unsigned int requestNo) override;
    void onLogExit(unsigned int moduleId, const char* name, unsigned int requestNo) override;
    /// Prints `text` up to its NUL and ignores `length`. Prints nothing if `level` is 0 or above 6.
    void onLogDetails(unsigned int moduleId, const char* tag, JLogLevel level, const char* text,
                      unsigned long length) override;
};

/// The logger that is installed whenever no other is. It is never destroyed, so it is usable from
/// before the first static constructor until after the last static destructor.
JLOG_EXPORT extern DefaultJLogger& sDefaultJLogger;

/// The address of sDefaultJLogger. Any thread; signal-safe.
JLOG_EXPORT JLogger* getDefaultJLogger();

}  // namespace JCam::Utils::JLog
