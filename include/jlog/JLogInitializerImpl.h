#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "jlog/JLogExport.h"
#include "jlog/JLogger.h"

namespace JCam::Utils::JLog {

/// Placeholder for parameters of a later stage of the initialisation; nothing reads it.
struct JLogInitParam {
    /// Without meaning yet.
    bool enabled{false};
};

/// The start-up policy behind JLogInitializer: decides level, mode, filter and back end from the
/// properties, the kind of build and the host's enable mask, installs the back end and starts it.
///
/// Kinds of build: a release build is a pre-release, a market (end-user) build or neither; every
/// other build is an engineering build. Aging builds, which run for days under heat, are told by a
/// property of their own.
///
/// A host holds a JLogInitializer; of this class it reads the flags, and asks for the kind of
/// build.
///
/// Threads: instances are created and destroyed on one thread; the static functions run on any.
class JLOG_EXPORT JLogInitializerImpl {
  public:
    /// Adds to the count. The first one decides, installs the back end and starts it, which for own
    /// files makes folder, file and thread. `mask` is a combination of JLogEnableMask.
    explicit JLogInitializerImpl(int mask);
    /// Destroys the logger when no initializer is left; while others live it is handed on to them.
    ~JLogInitializerImpl();
    JLogInitializerImpl(const JLogInitializerImpl&) = delete;
    JLogInitializerImpl& operator=(const JLogInitializerImpl&) = delete;

    /// Classifies the build; may decide the default level and sLaoEnable. Logs a line.
    static void camLogPolicy();
    /// The default level: the cached one, or else that of the user's level property, which it then
    /// keeps for the life of the process.
    static uint32_t getDefaultJLogLevel();
    /// Whether a property says that this is an aging build. Logs a line.
    static bool isAgingVer();
    /// Whether the log-capture tool runs in USB mode: panic is true and the user's log property is
    /// 0. Logs a line.
    static bool isCapsuleInUsbMode();
    /// As JLogInitializer has it.
    static void updateLogLevel();
    /// As JLogInitializer has it.
    static void setCamLaoEnable(bool enable);
    /// As JLogInitializer has it.
    static void setIsReleaseVer(bool release);
    /// Does nothing: a place for what is to come after the start.
    static void initForJLogInit(const JLogInitParam& param);

    /// Takes one initializer off the count. The last one stops the logger and puts the Android log
    /// back in its place. Waits, without a bound, for what that logger has to write.
    static void release();

    /// Live initializers. Not atomic: see Threads.
    static int32_t sInited;

    // What the properties said. Atomic because updateLogLevel() runs on any thread; relaxed because
    // each is a word of its own, from which nobody concludes about another.

    /// Cached default level; 0 while undecided.
    static std::atomic<uint32_t> sDefaultLogLevel;
    /// A release build.
    static std::atomic<bool> sReleaseVer;
    /// A pre-release build.
    static std::atomic<bool> sPreVer;
    /// A market build.
    static std::atomic<bool> sMarketVer;
    /// Pair the Android log with the trace back end in default mode.
    static std::atomic<bool> sLaoEnable;
    /// What the mask said about file logging when it was asked, on a market build.
    static std::atomic<bool> sJlogEnable4Market;
    /// The same on a pre-release build.
    static std::atomic<bool> sJlogEnable4Pre;
    /// Always false; isAgingVer() asks anew.
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
