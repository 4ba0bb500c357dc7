#pragma once

#include "jlog/JLogger.h"

namespace CameraHost {

/// A back end that stands in front of the installed logger and keeps the ledgers, so that the call
/// sites of this program are those of any camera module, and it can still prove that no event was
/// lost.
///
/// It ends the text of each message with " seq=T<thread>:<number>", by which the check finds it
/// again, hands the event on, and counts it in the calling thread's ledger when that call has
/// returned: whatever a ledger has counted, the logger had taken, wherever the process died. What
/// threads without a ledger log is handed on as it is.
///
/// The proof begins here, behind the macros and the entry points. That these lose nothing the
/// pipeline and the replay see for themselves, by what they find in the ledgers.
///
/// Threads: make it when the JLogInitializer is there, destroy it before that, and on both
/// occasions let no thread log. It neither locks nor allocates by itself.
class Witness final : public JCam::Utils::JLog::JLogger {
  public:
    Witness();
    /// Installs again what it has found.
    ~Witness() override;
    Witness(const Witness&) = delete;
    Witness& operator=(const Witness&) = delete;

    void onLogEnter(unsigned int moduleId, const char* name, unsigned int requestNo) override;
    void onLogExit(unsigned int moduleId, const char* name, unsigned int requestNo) override;
    void onLogDetails(unsigned int moduleId, const char* tag, JCam::Utils::JLog::JLogLevel level,
                      const char* text, unsigned long length) override;
    void onFlush(int timeoutSec) override;

  private:
    JLogger& mLogger;
};

}  // namespace CameraHost
