#include "jlog/JLogger.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <algorithm>

#include <android/log.h>
#include <cutils/properties.h>

#include "jlog/DefaultJLogger.h"
#include "jlog/LogTag.h"

namespace JCam::Utils::JLog {

namespace {

/// From this value of sDebugLevel on (as unsigned), tests print their result.
constexpr uint32_t kDebugLevelTests = 4;

/// Holds the default logger and never destroys it: threads may log until the process has ended.
union ImmortalLogger {
    constexpr ImmortalLogger() : logger() {}
    // Not defaulted: that would be deleted, because the member has a destructor of its own.
    ~ImmortalLogger() {}  // NOLINT(modernize-use-equals-default)
    ImmortalLogger(const ImmortalLogger&) = delete;
    ImmortalLogger& operator=(const ImmortalLogger&) = delete;

    DefaultJLogger logger;
};

constinit ImmortalLogger sImmortalLogger;

bool testsArePrinted() {
    return static_cast<uint32_t>(JLogger::sDebugLevel.load(std::memory_order_relaxed)) >=
           kDebugLevelTests;
}

/// The details test that prints its result. A separate function, so that the usual test needs no
/// stack frame.
[[gnu::noinline, gnu::cold]] bool printDetailsTest(unsigned int moduleId, JLogLevel level) {
    const uint64_t filter = JLogger::sFilter.load(std::memory_order_relaxed);
    const bool enable = JLogger::isLevelEnabled(level) && (filter & moduleId) != 0;
    __android_log_print(ANDROID_LOG_DEBUG, kLogTag,
                        "[isLogDetailsEnabled] enable:%d, level:%d, moduleId:0x%x, "
                        "sFilter:0x%lX 0x%lX",
                        enable, static_cast<int>(level), moduleId,
                        static_cast<unsigned long>(filter),
                        static_cast<unsigned long>(filter & moduleId));
    return enable;
}

const char* orEmpty(const char* text) {
    return text != nullptr ? text : "";
}

using Text = char[JLogger::kMaxTextChars + 1];

/// Formats like vsnprintf, but returns how many characters `text` keeps.
__attribute__((format(printf, 2, 0))) size_t formatText(Text& text, const char* format,
                                                        va_list arguments) {
    const int chars = vsnprintf(text, sizeof(text), format, arguments);
    if (chars >= 0) {
        return std::min<size_t>(static_cast<size_t>(chars), sizeof(text) - 1);
    }
    // An argument cannot be converted, like a wide character without a multibyte form. The format
    // still tells which message it was.
    const size_t kept = strnlen(format, sizeof(text) - 1);
    memcpy(text, format, kept);
    text[kept] = '\0';
    return kept;
}

}  // namespace

// Load order: all but sDebugLevel are initialised before any code runs. The property is read when
// the library is initialised, after the property library.
constinit std::atomic<JLogger*> JLogger::sJLogger{&sImmortalLogger.logger};
constinit DefaultJLogger& sDefaultJLogger = sImmortalLogger.logger;
std::atomic<int32_t> JLogger::sDebugLevel{property_get_int32("vendor.debug.camera.jlog.level", 0)};
constinit std::atomic<uint32_t> JLogger::sLevel{0};
constinit std::atomic<uint32_t> JLogger::sInitJlogLevel{0};
constinit std::atomic<uint32_t> JLogger::sMode{0};
constinit std::atomic<uint64_t> JLogger::sFilter{0};

JLogger* getDefaultJLogger() {
    return &sDefaultJLogger;
}

JLogger::~JLogger() = default;
void JLogger::onInit() {}
void JLogger::onUninit() {}
void JLogger::onFlush(int /*timeoutSec*/) {}

JLogger* JLogger::getLogger() {
    // Acquire: pairs with the release store of the pointer, which publishes the logger's
    // construction.
    return sJLogger.load(std::memory_order_acquire);
}

void JLogger::setLevel(unsigned int level) {
    if (level == 0) {
        level = sInitJlogLevel.load(std::memory_order_relaxed);
    }
    sLevel.store(level, std::memory_order_relaxed);
}

void JLogger::setMode(unsigned int mode) {
    sMode.store(mode, std::memory_order_relaxed);
}

void JLogger::setFilter(unsigned long filter) {
    sFilter.store(filter, std::memory_order_relaxed);
}

uint32_t JLogger::getDetailsLevel() {
    return sLevel.load(std::memory_order_relaxed);
}

bool JLogger::isModeEnabled(unsigned int mode) {
    return (sMode.load(std::memory_order_relaxed) & mode) != 0;
}

bool JLogger::isLevelEnabled(JLogLevel level) {
    return sLevel.load(std::memory_order_relaxed) >= level;
}

bool JLogger::isDefaultModeOnly() {
    return sMode.load(std::memory_order_relaxed) == MODE_DEFAULT;
}

bool JLogger::isDefaultModeEnabled() {
    return isModeEnabled(MODE_DEFAULT);
}

bool JLogger::isDefaultJLoggerInstalled() {
    return getLogger() == getDefaultJLogger();
}

bool JLogger::isFileModeEnabled() {
    const uint32_t mode = sMode.load(std::memory_order_relaxed);
    const bool enable = (mode & (MODE_FILE_MERGE | MODE_FILE_ALONE)) != 0;
    if (testsArePrinted()) [[unlikely]] {
        __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "[isFileModeEnabled] enable:%d, sMode:0x%x",
                            enable, mode);
    }
    return enable;
}

bool JLogger::isLogDetailsEnabled(unsigned int moduleId, JLogLevel level) {
    if (testsArePrinted()) [[unlikely]] {
        return printDetailsTest(moduleId, level);
    }
    return wantsDetails(moduleId, level);
}

void JLogger::logEnter(unsigned int moduleId, const char* name, unsigned int requestNo) noexcept {
    getLogger()->onLogEnter(moduleId, orEmpty(name), requestNo);
}

void JLogger::logExit(unsigned int moduleId, const char* name, unsigned int requestNo) noexcept {
    getLogger()->onLogExit(moduleId, orEmpty(name), requestNo);
}

void JLogger::logNormalDetails(unsigned int moduleId, const char* tag, JLogLevel level,
                               const char* text, unsigned long length) noexcept {
    getLogger()->onLogDetails(moduleId, orEmpty(tag), level, text, length);
}

void JLogger::logFormatted(unsigned int moduleId, const char* tag, JLogLevel level,
                           const char* format, ...) noexcept {
    const int callersErrno = errno;
    Text text;
    va_list arguments;
    va_start(arguments, format);
    const size_t chars = formatText(text, format, arguments);
    va_end(arguments);
    logNormalDetails(moduleId, tag, level, text, chars);
    errno = callersErrno;
}

void JLogger::logRateLimited(unsigned int moduleId, const char* tag, JLogLevel level,
                             unsigned int heldBack, const char* format, ...) noexcept {
    const int callersErrno = errno;
    Text text;
    va_list arguments;
    va_start(arguments, format);
    size_t chars = formatText(text, format, arguments);
    va_end(arguments);
    if (heldBack > 0) {
        char suffix[sizeof(" (4294967295 held back)")];
        const auto suffixChars =
                static_cast<size_t>(snprintf(suffix, sizeof(suffix), " (%u held back)", heldBack));
        chars = std::min(chars, sizeof(text) - 1 - suffixChars);
        memcpy(text + chars, suffix, suffixChars + 1);
        chars += suffixChars;
    }
    logNormalDetails(moduleId, tag, level, text, chars);
    errno = callersErrno;
}

void JLogger::flush(int timeoutSec) {
    getLogger()->onFlush(timeoutSec);
}

}  // namespace JCam::Utils::JLog
