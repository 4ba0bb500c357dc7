#pragma once

#include <memory>

#include "jlog/JLogExport.h"

namespace JCam::Utils::JLog {

class JLogInitializerImpl;

/// Bits of the enable mask that a host gives to JLogInitializer. Others have no effect.
enum JLogEnableMask : int {
    ENABLE_JLOG = 0x1,         ///< the mode property defaults to the ULog merge back end
    ENABLE_ULOG_MARKET = 0x2,  ///< on market builds any mode but 1 becomes ULog merge, not 1
    ENABLE_ULOG_PRE = 0x4,     ///< the same on pre-release builds
};

/// Starts logging for the process while at least one of them lives.
///
/// The first one reads the properties, chooses level, mode, filter and back end, installs the back
/// end and starts it; further ones only count. When the last one goes, in whatever order, the back
/// end is stopped (everything buffered is written first) and the Android log is installed again;
/// level, mode and filter stay as they are.
///
/// Failures: a property that is missing has its default, a mode that is none means the Android log,
/// and so does a back end for which there is no memory. The file logger says what becomes of its
/// own (FileAloneJLogger). The Android log has a line about each step under "JLOG" and "JLogInit".
///
/// Threads: create and destroy initializers on one thread; the static functions run on any thread,
/// and neither lock nor allocate by themselves. Nothing here is signal-safe.
class JLOG_EXPORT JLogInitializer {
  public:
    /// `mask` is a combination of JLogEnableMask, of which only the first initializer's counts.
    /// Allocates, and blocks while the file logger makes room for its first file and creates it.
    /// Without memory for the initializer itself nothing is initialised, and it does not count.
    [[nodiscard]] explicit JLogInitializer(int mask);
    /// The last one waits, without a bound, until the file logger has written everything and closed
    /// its file. Whoever logs has stopped before.
    ~JLogInitializer();
    JLogInitializer(const JLogInitializer&) = delete;
    JLogInitializer& operator=(const JLogInitializer&) = delete;

    /// Decides the details level again from the properties, while the camera runs: debug if they
    /// ask for it, otherwise the default level on market and pre-release builds, and on the others
    /// the one chosen at initialisation. Nothing but the level changes.
    static void updateLogLevel();
    /// Pairs the Android log with the trace back end in default mode. Effective before the first
    /// initializer, on builds that are not release builds (those decide it themselves).
    static void setCamLaoEnable(bool enable);
    /// Records whether this is a release build. The policy asks the properties itself, so nothing
    /// depends on it.
    static void setIsReleaseVer(bool release);

  private:
    std::unique_ptr<JLogInitializerImpl> mImpl;
};

}  // namespace JCam::Utils::JLog
