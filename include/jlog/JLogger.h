#pragma once

#include <atomic>
#include <cstdint>

#include "jlog/JLogExport.h"

/// The front end of logging, the start-up policy, and the back ends that write no files.
namespace JCam::Utils::JLog {

/// Level of a details message; larger is more verbose. A message passes if its level is at most the
/// threshold JLogger::sLevel, so 0 (no level) always passes. The Android log prints neither 0 nor a
/// value above 6.
enum JLogLevel : uint32_t {
    LEVEL_ERROR = 1,       ///< printed as E
    LEVEL_WARN = 2,        ///< printed as W
    LEVEL_INFO = 3,        ///< printed as I
    LEVEL_DEBUG_HIGH = 4,  ///< printed like LEVEL_DEBUG
    LEVEL_DEBUG = 5,       ///< printed as D
    LEVEL_VERBOSE = 6,     ///< printed as V
};

/// One bit per calling module. Bits 6 to 31 are free for modules without a name.
enum ModuleId : uint64_t {
    MODULE_INVALID = 0x0,             ///< no module: never passes the filter
    MODULE_DEFAULT = 0x1,             ///< printed as "DEFAULT"
    MODULE_COMMON = 0x2,              ///< "Common"
    MODULE_PREVIEW = 0x4,             ///< "Preview"
    MODULE_CAPTURE = 0x8,             ///< "Capture"
    MODULE_VIDEO = 0x10,              ///< "Video"
    MODULE_FEATURE_SAT = 0x20,        ///< "FeatureSAT"
    MODULE_MAX = 0x8000000000000000,  ///< end of the ids; no caller's 32-bit id equals it
};

/// Bits of JLogger::sMode: the back ends that the installed logger drives.
enum JLogMode : uint32_t {
    MODE_DEFAULT = 0x01,     ///< Android log
    MODE_FILE_MERGE = 0x02,  ///< the vendor's ULog file logger
    MODE_FILE_ALONE = 0x04,  ///< own file logger with its flush thread
    MODE_TRACE = 0x10,       ///< trace back end
};

/// The front end of the process, and the interface of every back end.
///
/// A call site asks a test (isLogDetailsEnabled, isModeEnabled ...), then calls an entry point.
/// Entry points filter nothing: they pass the event to the one installed logger. JLogInitializer
/// installs that logger and sets level, mode and filter. Before that, every test of a mode, a
/// module or a named level returns false, and entry points reach the Android log.
///
/// Threads: any thread may call the static functions at any time, also before initialisation, after
/// shut-down and during static destruction. The functions themselves take no lock and allocate
/// nothing. In a signal handler the entry points for enter, exit and details are as safe as the
/// back end: the file logger is made for it (FileJLoggerBase), trace and the others are not. The
/// installed logger must outlive the calls that use it: stop logging before the last
/// JLogInitializer is destroyed.
class JLOG_EXPORT JLogger {
  public:
    /// The longest text that logFormatted() makes, in bytes. No back end of the library keeps more.
    static constexpr unsigned long kMaxTextChars = 1023;

    JLogger(const JLogger&) = delete;
    JLogger& operator=(const JLogger&) = delete;

    // What a back end implements. Strings are NUL-terminated and belong to the caller: a back end
    // copies what it keeps. All functions but onInit and onUninit may run on several threads at
    // once.

    /// A request enters a scope. `name` is never null; `requestNo` is printed as it is.
    virtual void onLogEnter(unsigned int moduleId, const char* name, unsigned int requestNo) = 0;
    /// The request leaves the scope.
    virtual void onLogExit(unsigned int moduleId, const char* name, unsigned int requestNo) = 0;
    /// A message. `tag` is never null; a null `text` is an empty one; `length` counts the bytes of
    /// `text` without its NUL.
    virtual void onLogDetails(unsigned int moduleId, const char* tag, JLogLevel level,
                              const char* text, unsigned long length) = 0;
    /// The logger has been installed. The default does nothing.
    virtual void onInit();
    /// The logger is about to be removed. The default does nothing.
    virtual void onUninit();
    /// Writes what is buffered; the file logger waits up to `timeoutSec` seconds for it. The
    /// default does nothing.
    virtual void onFlush(int timeoutSec);

    /// Must not run while the logger is installed.
    virtual ~JLogger();

    /// The installed logger; never null.
    static JLogger* getLogger();

    /// Sets the details threshold; 0 restores the level chosen at initialisation.
    static void setLevel(unsigned int level);
    /// Stores the mode bits. Does not change the installed logger.
    static void setMode(unsigned int mode);
    /// Stores the module filter: a set bit enables the module.
    static void setFilter(unsigned long filter);

    /// The details threshold.
    static uint32_t getDetailsLevel();
    /// Whether the mode has any bit of `mode`.
    static bool isModeEnabled(unsigned int mode);
    /// Whether a message of `level` passes the threshold.
    static bool isLevelEnabled(JLogLevel level);
    /// Whether the mode is MODE_DEFAULT and nothing else.
    static bool isDefaultModeOnly();
    /// Whether the Android log is among the back ends.
    static bool isDefaultModeEnabled();
    /// Whether a file logger is among the back ends.
    static bool isFileModeEnabled();
    /// Whether `level` and a bit of `moduleId` pass. MODULE_INVALID has no bit and never passes.
    static bool isLogDetailsEnabled(unsigned int moduleId, JLogLevel level);

    /// The same, inlined: two loads and two comparisons (in a shared library also the loads of the
    /// two addresses). It prints no diagnostic line for sDebugLevel. The level comes first: it is
    /// usually a constant, and rejects most messages.
    static bool wantsDetails(unsigned int moduleId, JLogLevel level) {
        return sLevel.load(std::memory_order_relaxed) >= level && isModuleEnabled(moduleId);
    }
    /// Whether the filter has any bit of `moduleId`. Inlined.
    static bool isModuleEnabled(unsigned int moduleId) {
        return (sFilter.load(std::memory_order_relaxed) & moduleId) != 0;
    }

    /// Whether enter and exit of a scope are wanted, for JLogScope. A bit of `moduleId` must pass.
    /// If the Android log is a back end (the mode has MODE_DEFAULT, or no other logger is
    /// installed), LEVEL_DEBUG must pass too, because it prints them at that priority. Inlined, but
    /// for the last test.
    static bool wantsScope(unsigned int moduleId) {
        return isModuleEnabled(moduleId) &&
               (sLevel.load(std::memory_order_relaxed) >= LEVEL_DEBUG ||
                ((sMode.load(std::memory_order_relaxed) & MODE_DEFAULT) == 0 &&
                 !isDefaultJLoggerInstalled()));
    }

    // The entry points. Back ends must not throw: the library is built without exceptions, and
    // noexcept makes call sites smaller.

    /// Passes an enter event to onLogEnter() of the installed logger. A null `name` becomes "".
    /// Blocks or allocates only if that logger does.
    static void logEnter(unsigned int moduleId, const char* name, unsigned int requestNo) noexcept;
    /// The same for an exit event and onLogExit().
    static void logExit(unsigned int moduleId, const char* name, unsigned int requestNo) noexcept;
    /// The same for a message and onLogDetails(); a null `tag` becomes "".
    static void logNormalDetails(unsigned int moduleId, const char* tag, JLogLevel level,
                                 const char* text, unsigned long length) noexcept;
    /// Formats like printf, on the stack, and logs the first kMaxTextChars bytes as details. If
    /// formatting fails, logs `format` itself, which must not be null. Preserves errno, which "%m"
    /// may print. The macros of JLogMacros.h call it.
    static void logFormatted(unsigned int moduleId, const char* tag, JLogLevel level,
                             const char* format, ...) noexcept
            __attribute__((format(printf, 4, 5), cold));
    /// The same for a call site that has held back `heldBack` calls. Unless that is 0, the text
    /// ends in " (N held back)", and is cut before it if both would be too long.
    static void logRateLimited(unsigned int moduleId, const char* tag, JLogLevel level,
                               unsigned int heldBack, const char* format, ...) noexcept
            __attribute__((format(printf, 5, 6), cold));
    /// Calls onFlush() of the installed logger.
    static void flush(int timeoutSec);

    // The logging state of the process. No reader relates one word to another, so all but sJLogger
    // are loaded and stored relaxed. The release store of sJLogger publishes the logger's
    // construction to the acquire load of every entry point.

    /// The installed logger, not owned.
    static std::atomic<JLogger*> sJLogger;
    /// Self-diagnostics, from "vendor.debug.camera.jlog.level" at load: 0 silent, non-zero prints
    /// the initializer's level message, 4 and above (as unsigned) also every details and file test.
    static std::atomic<int32_t> sDebugLevel;
    /// Details threshold.
    static std::atomic<uint32_t> sLevel;
    /// The level chosen at initialisation.
    static std::atomic<uint32_t> sInitJlogLevel;
    /// Mode bits (JLogMode).
    static std::atomic<uint32_t> sMode;
    /// Module filter.
    static std::atomic<uint64_t> sFilter;

  protected:
    /// Constant initialisation, for back ends that exist before any code runs.
    constexpr JLogger() = default;

  private:
    /// Does not ask the mode, which stays as it is when the last initializer goes.
    static bool isDefaultJLoggerInstalled();
};

}  // namespace JCam::Utils::JLog
