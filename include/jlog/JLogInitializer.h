#pragma once

#include <memory>

#include "jlog/JLogExport.h"

namespace JCam::Utils::JLog {

class JLogInitializerImpl;

/// Bits of the enable mask that a host gives to JLogInitializer. Other bits have no effect.
enum JLogEnableMask : int {
    ENABLE_JLOG = 0x1,         ///< the mode property defaults to 2 (ULog) instead of 1
    ENABLE_ULOG_MARKET = 0x2,  ///< on market builds any mode but 1 becomes 2 (ULog), not 1
    ENABLE_ULOG_PRE = 0x4,     ///< the same on pre-release builds
};

/// Keeps a back end installed and running for the process while at least one instance lives.
///
/// The first one reads the properties, chooses level, mode, filter and back end, then installs and
/// starts the back end. Further ones only count. The last one to be destroyed, whichever it is,
/// stops the back end, which first writes all that it has buffered, and installs the Android log
/// again. Level, mode and filter stay as they are.
///
/// Failures: a missing property has its default. An unknown mode means the Android log, and so does
/// a back end for which there is no memory. FileAloneJLogger documents the failures of its files.
/// Each step logs a line to the Android log under "JLOG" or "JLogInit".
///
/// Threads: create and destroy initializers on one thread. The static functions run on any thread;
/// they take no lock and allocate nothing by themselves. Nothing here is signal-safe.
class JLOG_EXPORT JLogInitializer {
  public:
    /// `mask` combines JLogEnableMask bits; only the first initializer's counts. Allocates, and
    /// blocks while the file logger frees space for its first file and creates it. Without memory
    /// for the initializer itself, nothing is initialised and it does not count.
    [[nodiscard]] explicit JLogInitializer(int mask);
    /// The last one waits, without a limit, until the file logger has written everything and closed
    /// its file. No thread may log any more.
    ~JLogInitializer();
    JLogInitializer(const JLogInitializer&) = delete;
    JLogInitializer& operator=(const JLogInitializer&) = delete;

    /// Chooses the details level again from the properties, while the camera runs: debug if they
    /// ask for it, otherwise the default level on market and pre-release builds, and the level
    /// chosen at initialisation on the others. Changes nothing else.
    static void updateLogLevel();
    /// Pairs the Android log with the trace back end in mode 1. Call it before the first
    /// initializer. Has no effect on release builds, where properties decide.
    static void setCamLaoEnable(bool enable);
    /// Records whether this is a release build. Nothing depends on it: the policy reads the
    /// properties.
    static void setIsReleaseVer(bool release);

  private:
    std::unique_ptr<JLogInitializerImpl> mImpl;
};

}  // namespace JCam::Utils::JLog
