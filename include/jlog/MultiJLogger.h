#pragma once

#include "jlog/JLogger.h"

namespace JCam::Utils::JLog {

/// Hands every event to two loggers that it owns: `mFirst`, then `mSecond`. They are stopped and
/// destroyed in the opposite order, so the primary back end is the last to go. It adds no state,
/// no lock and no test; its thread safety is that of its members. `A` and `B` are back ends with a
/// default constructor. The library instantiates the pairs that JLogInitializer installs.
template <typename A, typename B>
class JLOG_EXPORT MultiJLogger : public JLogger {
  public:
    /// Makes both; neither is started.
    MultiJLogger() = default;
    /// Destroys both, as above; what still runs in one is up to its destructor.
    ~MultiJLogger() override = default;

    // The calls name the member's class: the type is known here, so none of them is virtual.

    void onLogEnter(unsigned int moduleId, const char* name, unsigned int requestNo) override {
        mFirst.A::onLogEnter(moduleId, name, requestNo);
        mSecond.B::onLogEnter(moduleId, name, requestNo);
    }

    void onLogExit(unsigned int moduleId, const char* name, unsigned int requestNo) override {
        mFirst.A::onLogExit(moduleId, name, requestNo);
        mSecond.B::onLogExit(moduleId, name, requestNo);
    }

    void onLogDetails(unsigned int moduleId, const char* tag, JLogLevel level, const char* text,
                      unsigned long length) override {
        mFirst.A::onLogDetails(moduleId, tag, level, text, length);
        mSecond.B::onLogDetails(moduleId, tag, level, text, length);
    }

    void onInit() override {
        mFirst.A::onInit();
        mSecond.B::onInit();
    }

    /// Stops the second, then the first.
    void onUninit() override {
        mSecond.B::onUninit();
        mFirst.A::onUninit();
    }

    /// One after the other: each may take up to `timeoutSec` seconds.
    void onFlush(int timeoutSec) override {
        mFirst.A::onFlush(timeoutSec);
        mSecond.B::onFlush(timeoutSec);
    }

  private:
    A mFirst;
    B mSecond;
};

}  // namespace JCam::Utils::JLog
