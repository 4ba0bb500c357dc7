#pragma once

#include <memory>

#include "jlog/JLogExport.h"

namespace JCam::Utils::JLog {

class JLogInitializerImpl;

/// Bits of the enable mask that a host gives to JLogInitializer.
enum JLogEnableMask : int {
    ENABLE_JLOG = 0x1,         // the mode property defaults to the ULog merge back end
    ENABLE_ULOG_MARKET = 0x2,  // on market builds any mode but 1 becomes ULog merge, not 1
    ENABLE_ULOG_PRE = 0x4,     // the same on pre-release builds
};

/// Starts logging for the process while at least one of them lives.
///
/// The first one reads the properties, chooses level, mode, filter and back end, installs the back
/// end and starts it; further ones only count. When the last one goes, in whatever order, the back
/// end is stopped (everything buffered is written first) and the Android log is installed again.
///
/// Threads: create and destroy initializers on one thread; the static functions run on any thread.
/// Destruction may block while the file logger drains and closes its file.
class JLOG_EXPORT JLogInitializer {
  public:
    /// `mask` is a combination of JLogEnableMask.
    explicit JLogInitializer(int mask);
    ~JLogInitializer();
    JLogInitializer(const JLogInitializer&) = delete;
    JLogInitializer& operator=(const JLogInitializer&) = delete;

    /// Decides the details level again from the properties, while the camera runs.
    static void updateLogLevel();
    /// Pairs the Android log with the trace back end in default mode. Effective before the first
    /// initializer, on builds that are not release builds (those decide it themselves).
    static void setCamLaoEnable(bool enable);
    /// Records that this is a release build.
    static void setIsReleaseVer(bool release);

  private:
    std::unique_ptr<JLogInitializerImpl> mImpl;
};

}  // namespace JCam::Utils::JLog
