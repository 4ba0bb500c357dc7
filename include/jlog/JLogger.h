#pragma once

#include <atomic>
#include <cstdint>

#include "jlog/JLogExport.h"

/// The front end of logging, its back ends but those that write files, and the start-up policy.
namespace JCam::Utils::JLog {

/// Level of a details message; larger is more verbose. A message passes when the threshold
/// JLogger::sLevel is at least its level. 0 (no level) passes always; the Android log prints
/// neither 0 nor a value above 6.
enum JLogLevel : uint32_t {
    LEVEL_ERROR = 1,       ///< printed as E
    LEVEL_WARN = 2,        ///< printed as W
    LEVEL_INFO = 3,        ///< printed as I
    LEVEL_DEBUG_HIGH = 4,  ///< printed like LEVEL_DEBUG, passes already at threshold 4
    LEVEL_DEBUG = 5,       ///< printed as D
    LEVEL_VERBOSE = 6,     ///< printed as V
};

/// One bit per calling module. Bits 0x40 to bit 31 are free for modules without a name.
enum ModuleId : uint64_t {
    MODULE_INVALID = 0x0,             ///< no module: never passes the filter
    MODULE_DEFAULT = 0x1,             ///< printed as "DEFAULT"
    MODULE_COMMON = 0x2,              ///< "Common"
    MODULE_PREVIEW = 0x4,             ///< "Preview"
    MODULE_CAPTURE = 0x8,             ///< "Capture"
    MODULE_VIDEO = 0x10,              ///< "Video"
    MODULE_FEATURE_SAT = 0x20,        ///< "FeatureSAT"
    MODULE_MAX = 0x8000000000000000,  ///< closes the id space; no caller's 32-bit id equals it
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
/// A call site asks a test (isLogDetailsEnabled, isModeEnabled ...) and then calls an entry point;
/// the entry points filter nothing and hand the event to the one installed logger. JLogInitializer
/// installs that logger and sets level, mode and filter. Until it has run, every test of a mode, a
/// module or a level with a name answers false, and the entry points reach the Android log.
///
/// Threads: all static functions may be called on any thread at any time, also before
/// initialisation, after shut-down and during static destruction, but not in a signal handler: a
/// back end may lock. The functions themselves neither lock nor allocate. The installed logger must
/// outlive the calls that go through it: stop logging before the last JLogInitializer is destroyed.
class JLOG_EXPORT JLogger {
  public:
    /// The longest text that logFormatted() makes, in bytes: no back end of this library's own
    /// keeps more.
    static constexpr unsigned long kMaxTextChars = 1023;

    JLogger(const JLogger&) = delete;
    JLogger& operator=(const JLogger&) = delete;

    // What a back end implements. Strings are NUL-terminated and the caller's: a back end copies
    // what it keeps. Every function may run on several threads at once, onInit and onUninit apart.

    /// A request enters a scope. `name` is never null; any `requestNo` is printed as it is.
    virtual void onLogEnter(unsigned int moduleId, const char* name, unsigned int requestNo) = 0;
    /// The request leaves it again.
    virtual void onLogExit(unsigned int moduleId, const char* name, unsigned int requestNo) = 0;
    /// A message. `tag` is never null; a null `text` means an empty one; `length` is the bytes of
    /// `text` without its NUL.
    virtual void onLogDetails(unsigned int moduleId, const char* tag, JLogLevel level,
                              const char* text, unsigned long length) = 0;
    /// The logger has been installed. The default does nothing.
    virtual void onInit();
    /// The logger is about to be removed. The default does nothing.
    virtual void onUninit();
    /// Push out what is buffered; the file logger waits up to `timeoutSec` seconds for it. The
    /// default does nothing.
    virtual void onFlush(int timeoutSec);

    /// Not while the logger is installed.
    virtual ~JLogger();

    /// The installed logger; never null.
    static JLogger* getLogger();

    /// Sets the details threshold; 0 restores the level chosen at initialisation.
    static void setLevel(unsigned int level);
    /// Stores the mode bits. The installed logger does not change.
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
    /// Whether a message of `level` from `moduleId` is wanted: a filter bit and the level pass.
    /// Without a bit, as in MODULE_INVALID, none is.
    static bool isLogDetailsEnabled(unsigned int moduleId, JLogLevel level);

    /// The same for call sites that count instructions: inlined, two loads and two comparisons (in
    /// a shared library also the loads of the two addresses). It
    /// does without the diagnostic line that sDebugLevel asks for. The level comes first: it is
    /// known when the call site is compiled, and is what mostly says no.
    static bool wantsDetails(unsigned int moduleId, JLogLevel level) {
        return sLevel.load(std::memory_order_relaxed) >= level && isModuleEnabled(moduleId);
    }
    /// Whether the filter has any bit of `moduleId`. Inlined.
    static bool isModuleEnabled(unsigned int moduleId) {
        return (sFilter.load(std::memory_order_relaxed) & moduleId) != 0;
    }

    /// Whether enter and exit of a scope are wanted, for JLogScope. A filter bit has to pass. If
    /// the Android log is the installed back end, LEVEL_DEBUG has to pass, too, the priority that
    /// it prints them at: it is installed if the mode has MODE_DEFAULT, or if no other one is.
    /// Inlined, but for the last of these tests.
    static bool wantsScope(unsigned int moduleId) {
        return isModuleEnabled(moduleId) &&
               (sLevel.load(std::memory_order_relaxed) >= LEVEL_DEBUG ||
                ((sMode.load(std::memory_order_relaxed) & MODE_DEFAULT) == 0 &&
                 !isDefaultJLoggerInstalled()));
    }

    // The entry points. A back end must not throw: nothing here is built for it, and call sites are
    // smaller for knowing.

    /// Hands an enter event to the installed logger, as onLogEnter() has it. A null `name` becomes
    /// "". Whether it blocks or allocates is up to that logger.
    static void logEnter(unsigned int moduleId, const char* name, unsigned int requestNo) noexcept;
    /// The same for an exit event, as onLogExit() has it.
    static void logExit(unsigned int moduleId, const char* name, unsigned int requestNo) noexcept;
    /// The same for a message, as onLogDetails() has it; a null `tag` becomes "".
    static void logNormalDetails(unsigned int moduleId, const char* tag, JLogLevel level,
                                 const char* text, unsigned long length) noexcept;
    /// Formats a text like printf, on the stack, and hands it to the installed logger as details.
    /// Keeps the first kMaxTextChars bytes of it. A text that cannot be formatted becomes `format`
    /// itself; `format` is not null. Keeps errno, which "%m" may print. What the macros of
    /// JLogMacros.h call.
    static void logFormatted(unsigned int moduleId, const char* tag, JLogLevel level,
                             const char* format, ...) noexcept
            __attribute__((format(printf, 4, 5), cold));
    /// The same for a call site that has held `heldBack` calls back: unless that is 0, the text
    /// ends in " (N held back)", and what stands before is cut where both would be too long.
    static void logRateLimited(unsigned int moduleId, const char* tag, JLogLevel level,
                               unsigned int heldBack, const char* format, ...) noexcept
            __attribute__((format(printf, 5, 6), cold));
    /// Asks the installed logger to push out what it buffers, waiting up to `timeoutSec` seconds.
    static void flush(int timeoutSec);

    // The logging state of the process. Each is one word, and no reader draws a conclusion from two
    // of them, so all are loaded and stored relaxed but sJLogger: its store releases the logger's
    // construction, and the acquire load of every entry point meets it.

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
    /// For back ends. Constant, for those that are there before any code runs.
    constexpr JLogger() = default;

  private:
    /// Whatever the mode says: that stays as it is when the last initializer goes.
    static bool isDefaultJLoggerInstalled();
};

}  // namespace JCam::Utils::JLog
