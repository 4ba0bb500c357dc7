#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "jlog/JLogExport.h"
#include "jlog/JLogger.h"

namespace JCam::Utils::JLog {

/// Placeholder for parameters of a later stage of the initialisation; nothing reads it.
struct JLogInitParam {
    /// Unused.
    bool enabled{false};
};

/// The start-up policy behind JLogInitializer. It chooses level, mode, filter and back end from the
/// properties, the kind of build and the host's enable mask, then installs and starts the back end.
///
/// Kinds of build: a release build is a pre-release build, a market (end-user) build or neither.
/// All others are engineering builds. A property of its own marks aging builds, which run for days
/// under heat.
///
/// A host holds a JLogInitializer. From this class it reads the flags and the kind of build.
///
/// Threads: create and destroy instances on one thread. The static functions run on any thread.
class JLOG_EXPORT JLogInitializerImpl {
  public:
    /// Increments sInited. The first one chooses, installs and starts the back end; with own files
    /// that creates folder, file and thread. `mask` combines JLogEnableMask bits.
    explicit JLogInitializerImpl(int mask);
    /// Destroys the logger that it created, or leaves it to the initializers that still live.
    ~JLogInitializerImpl();
    JLogInitializerImpl(const JLogInitializerImpl&) = delete;
    JLogInitializerImpl& operator=(const JLogInitializerImpl&) = delete;

    /// Classifies the build; on release builds sets sLaoEnable and may set the default level. Logs
    /// a line.
    static void camLogPolicy();
    /// The default level: the cached one, or else that of the user's level property, which it
    /// caches for the life of the process.
    static uint32_t getDefaultJLogLevel();
    /// Whether a property says that this is an aging build. Logs a line.
    static bool isAgingVer();
    /// Whether the log-capture tool runs in USB mode: panic is true and the user's log property is
    /// 0. Logs a line.
    static bool isCapsuleInUsbMode();
    /// See JLogInitializer.
    static void updateLogLevel();
    /// See JLogInitializer.
    static void setCamLaoEnable(bool enable);
    /// See JLogInitializer.
    static void setIsReleaseVer(bool release);
    /// Does nothing: reserved for a stage after the start.
    static void initForJLogInit(const JLogInitParam& param);

    /// Decrements sInited. At 0 it stops the logger, waits without a limit until that has written
    /// everything, and installs the Android log.
    static void release();

    /// Live initializers. Not atomic: see Threads.
    static int32_t sInited;

    // What the properties said. Atomic because updateLogLevel() runs on any thread; relaxed because
    // no reader relates one to another.

    /// Cached default level; 0 until it is chosen.
    static std::atomic<uint32_t> sDefaultLogLevel;
    /// A release build.
    static std::atomic<bool> sReleaseVer;
    /// A pre-release build.
    static std::atomic<bool> sPreVer;
    /// A market build.
    static std::atomic<bool> sMarketVer;
    /// Pair the Android log with the trace back end in mode 1.
    static std::atomic<bool> sLaoEnable;
    /// Whether the mask has ENABLE_ULOG_MARKET; set only on market builds in a mode other than 1.
    static std::atomic<bool> sJlogEnable4Market;
    /// The same for ENABLE_ULOG_PRE on pre-release builds.
    static std::atomic<bool> sJlogEnable4Pre;
    /// Always false; isAgingVer() reads the property each time.
    static std::atomic<bool> sAgingVer;

  private:
    JLOG_INTERNAL static uint32_t requestedMode(int mask);
    JLOG_INTERNAL static uint32_t adjustModeToBuild(uint32_t mode, int mask);
    JLOG_INTERNAL static uint32_t chooseLevel(uint32_t mode);
    JLOG_INTERNAL void install(uint32_t mode, uint32_t level);

    /// The logger that this instance created, or null.
    std::unique_ptr<JLogger> mLogger;
};

}  // namespace JCam::Utils::JLog
