#pragma once

#include "jlog/JLogger.h"

namespace JCam::Utils::JLog {

/// Passes every event to two loggers that it owns: `mFirst`, then `mSecond`. Stops and destroys
/// them in the opposite order, so that the primary back end goes last. It adds no state, lock or
/// test; its thread safety is that of its members. `A` and `B` are back ends with a default
/// constructor. The library instantiates the pairs that JLogInitializer installs.
template <typename A, typename B>
class JLOG_EXPORT MultiJLogger : public JLogger {
  public:
    /// Starts neither.
    MultiJLogger();
    /// Does not stop them first.
    ~MultiJLogger() override;

    void onLogEnter(unsigned int moduleId, const char* name, unsigned int requestNo) override;
    void onLogExit(unsigned int moduleId, const char* name, unsigned int requestNo) override;
    void onLogDetails(unsigned int moduleId, const char* tag, JLogLevel level, const char* text,
                      unsigned long length) override;
    void onInit() override;
    /// Stops the second, then the first.
    void onUninit() override;
    /// Flushes one after the other: each may take up to `timeoutSec` seconds.
    void onFlush(int timeoutSec) override;

  private:
    A mFirst;
    B mSecond;
};

// Defined outside the class, so not inline: a build that hides inline functions still exports the
// pairs. The calls name the member's class, so none of them is virtual.

template <typename A, typename B>
MultiJLogger<A, B>::MultiJLogger() = default;

template <typename A, typename B>
MultiJLogger<A, B>::~MultiJLogger() = default;

template <typename A, typename B>
void MultiJLogger<A, B>::onLogEnter(unsigned int moduleId, const char* name,
                                    unsigned int requestNo) {
    mFirst.A::onLogEnter(moduleId, name, requestNo);
    mSecond.B::onLogEnter(moduleId, name, requestNo);
}

template <typename A, typename B>
void MultiJLogger<A, B>::onLogExit(unsigned int moduleId, const char* name,
                                   unsigned int requestNo) {
    mFirst.A::onLogExit(moduleId, name, requestNo);
    mSecond.B::onLogExit(moduleId, name, requestNo);
}

template <typename A, typename B>
void MultiJLogger<A, B>::onLogDetails(unsigned int moduleId, const char* tag, JLogLevel level,
                                      const char* text, unsigned long length) {
    mFirst.A::onLogDetails(moduleId, tag, level, text, length);
    mSecond.B::onLogDetails(moduleId, tag, level, text, length);
}

template <typename A, typename B>
void MultiJLogger<A, B>::onInit() {
    mFirst.A::onInit();
    mSecond.B::onInit();
}

template <typename A, typename B>
void MultiJLogger<A, B>::onUninit() {
    mSecond.B::onUninit();
    mFirst.A::onUninit();
}

template <typename A, typename B>
void MultiJLogger<A, B>::onFlush(int timeoutSec) {
    mFirst.A::onFlush(timeoutSec);
    mSecond.B::onFlush(timeoutSec);
}

}  // namespace JCam::Utils::JLog
