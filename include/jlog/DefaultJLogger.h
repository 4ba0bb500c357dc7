#pragma once

#include "jlog/JLogger.h"

namespace JCam::Utils::JLog {

/// Prints every event to the Android log: enter and exit at debug priority under the tag "JLOG",
/// details at the priority of their level under the caller's tag. Stateless; any thread.
class JLOG_EXPORT DefaultJLogger : public JLogger {
  public:
    constexpr DefaultJLogger() = default;
    ~DefaultJLogger() override;

    void onLogEnter(unsigned int moduleId, const char* name, unsigned int requestNo) override;
    void onLogExit(unsigned int moduleId, const char* name, unsigned int requestNo) override;
    void onLogDetails(unsigned int moduleId, const char* tag, JLogLevel level, const char* text,
                      unsigned long length) override;
};

/// The logger that is installed whenever no other is. It is usable from before the first static
/// constructor until after the last static destructor, so it is a reference to an object that is
/// never destroyed.
JLOG_EXPORT extern DefaultJLogger& sDefaultJLogger;

/// The address of sDefaultJLogger.
JLOG_EXPORT JLogger* getDefaultJLogger();

}  // namespace JCam::Utils::JLog
