#pragma once

/// \file
/// What a call site writes. A source file names itself once and then logs:
///
///     #define JLOG_TAG "IspNode"
///     #include "jlog/JLogMacros.h"
///
///     using namespace JCam::Utils::JLog;
///
///     void IspNode::process(const Request& request) {
///         JLOG_FUNCTION_SCOPE(MODULE_PREVIEW, request.number);
///         JLOGD(MODULE_PREVIEW, "gain %.2f", request.gain);
///         if (request.isLate()) {
///             JLOGW_EVERY_MS(MODULE_PREVIEW, 1000, "late by %d ms", request.lateMs);
///         }
///     }
///
/// `module` is a ModuleId or any other id of 32 bits. A larger constant does not compile; only the
/// low 32 bits of a larger variable count. The message macros take a printf format and its
/// arguments, which the compiler checks. JLOG_TAG, the tag of their lines, is an expression of type
/// const char*.
///
/// A message whose level or module is off costs only its test: its arguments are not evaluated.
/// (Name and request number of a scope always are.) Module and level are evaluated once. The
/// library formats the text on the stack and cuts it after 1023 bytes. The macros work on any
/// thread, but not in a signal handler, because they format like printf: there, call JLogger with a
/// finished text. Use them in sources only: in an inline function of a header, the tag would be
/// that of whichever source includes it.

#include <cstdint>
#include <type_traits>
#include <utility>

#include "jlog/JLogger.h"
#include "jlog/JLogRateLimit.h"
#include "jlog/JLogScope.h"

/// The most verbose level that is compiled in: a number from 0 (none) to 6 (all, the default).
/// Messages above it compile to nothing, whatever the properties say; so do scopes if it is below
/// LEVEL_DEBUG. Define it on the command line or before including this file; each source may have
/// its own.
#ifndef JLOG_MAX_LEVEL
#define JLOG_MAX_LEVEL 6
#endif
static_assert(static_cast<unsigned int>(JLOG_MAX_LEVEL) <= ::JCam::Utils::JLog::LEVEL_VERBOSE,
              "JLOG_MAX_LEVEL is a number from 0 to 6");

/// Logs a formatted text at level error: something is broken.
#define JLOGE(module, ...) JLOG_DETAILS(module, ::JCam::Utils::JLog::LEVEL_ERROR, __VA_ARGS__)
/// At level warn: something is wrong, but the camera goes on.
#define JLOGW(module, ...) JLOG_DETAILS(module, ::JCam::Utils::JLog::LEVEL_WARN, __VA_ARGS__)
/// At level info: a few times a session.
#define JLOGI(module, ...) JLOG_DETAILS(module, ::JCam::Utils::JLog::LEVEL_INFO, __VA_ARGS__)
/// At level debug high, between info and debug; printed like debug.
#define JLOG_DEBUG_HIGH(module, ...) \
    JLOG_DETAILS(module, ::JCam::Utils::JLog::LEVEL_DEBUG_HIGH, __VA_ARGS__)
/// At level debug: a few times a request.
#define JLOGD(module, ...) JLOG_DETAILS(module, ::JCam::Utils::JLog::LEVEL_DEBUG, __VA_ARGS__)
/// At level verbose: everything else.
#define JLOGV(module, ...) JLOG_DETAILS(module, ::JCam::Utils::JLog::LEVEL_VERBOSE, __VA_ARGS__)

/// At any JLogLevel, which need not be a constant.
#define JLOG_DETAILS(module, level, ...) \
    JLOG_DETAILS_COUNTED(__COUNTER__, module, level, __VA_ARGS__)
/// Not for call sites: the second step of JLOG_DETAILS, which expands `number`.
#define JLOG_DETAILS_COUNTED(number, module, level, ...) \
    JLOG_DETAILS_NAMED(number, module, level, __VA_ARGS__)
/// Not for call sites: the third step.
#define JLOG_DETAILS_NAMED(number, module, level, ...)                                  \
    do {                                                                                \
        JLOG_IF_WANTED(number, module, level) {                                         \
            ::JCam::Utils::JLog::JLogger::logFormatted(jlogModule##number, JLOG_TAG,    \
                                                       jlogLevel##number, __VA_ARGS__); \
        }                                                                               \
    } while (false)

/// Logs like JLOGE, but this call site logs at most once in `ms` milliseconds over all threads. If
/// calls were held back since its last line, the text ends in " (N held back)". Takes no lock.
#define JLOGE_EVERY_MS(module, ms, ...) \
    JLOG_DETAILS_EVERY_MS(module, ::JCam::Utils::JLog::LEVEL_ERROR, ms, __VA_ARGS__)
/// The same at level warn.
#define JLOGW_EVERY_MS(module, ms, ...) \
    JLOG_DETAILS_EVERY_MS(module, ::JCam::Utils::JLog::LEVEL_WARN, ms, __VA_ARGS__)
/// The same at level info.
#define JLOGI_EVERY_MS(module, ms, ...) \
    JLOG_DETAILS_EVERY_MS(module, ::JCam::Utils::JLog::LEVEL_INFO, ms, __VA_ARGS__)
/// The same at level debug.
#define JLOGD_EVERY_MS(module, ms, ...) \
    JLOG_DETAILS_EVERY_MS(module, ::JCam::Utils::JLog::LEVEL_DEBUG, ms, __VA_ARGS__)
/// The same at level verbose.
#define JLOGV_EVERY_MS(module, ms, ...) \
    JLOG_DETAILS_EVERY_MS(module, ::JCam::Utils::JLog::LEVEL_VERBOSE, ms, __VA_ARGS__)
/// The same at any JLogLevel.
#define JLOG_DETAILS_EVERY_MS(module, level, ms, ...) \
    JLOG_EVERY_MS_COUNTED(__COUNTER__, module, level, ms, __VA_ARGS__)
/// Not for call sites: the second step, which expands `number`.
#define JLOG_EVERY_MS_COUNTED(number, module, level, ms, ...) \
    JLOG_EVERY_MS_NAMED(number, module, level, ms, __VA_ARGS__)
/// Not for call sites: the third step.
#define JLOG_EVERY_MS_NAMED(number, module, level, ms, ...)                                      \
    do {                                                                                         \
        JLOG_IF_WANTED(number, module, level) {                                                  \
            static ::JCam::Utils::JLog::JLogRateLimit jlogLimit##number;                         \
            unsigned int jlogHeldBack##number = 0;                                               \
            if (jlogLimit##number.admit(::JCam::Utils::JLog::intervalOf(ms),                     \
                                        jlogHeldBack##number)) {                                 \
                ::JCam::Utils::JLog::JLogger::logRateLimited(jlogModule##number, JLOG_TAG,       \
                                                             jlogLevel##number,                  \
                                                             jlogHeldBack##number, __VA_ARGS__); \
            }                                                                                    \
        }                                                                                        \
    } while (false)

/// Logs that request `requestNo` enters a scope here and, at the end of the block, that it leaves
/// it. The module filter must have a bit of `module` and, if the Android log is the back end, the
/// level must be debug or above. `name` must outlive the block. `requestNo` is an integer; its low
/// 32 bits are logged. Both are evaluated unless JLOG_MAX_LEVEL compiles the scope out.
#define JLOG_SCOPE(module, name, requestNo) JLOG_SCOPE_COUNTED(__COUNTER__, module, name, requestNo)
/// The same, named after the enclosing function; in a lambda that is "operator()".
#define JLOG_FUNCTION_SCOPE(module, requestNo) JLOG_SCOPE(module, __func__, requestNo)
/// Not for call sites: the second step of JLOG_SCOPE, which expands `number`.
#define JLOG_SCOPE_COUNTED(number, module, name, requestNo) \
    JLOG_SCOPE_NAMED(number, module, name, requestNo)
/// Not for call sites: the third step.
#define JLOG_SCOPE_NAMED(number, module, name, requestNo)                                  \
    const ::JCam::Utils::JLog::JLogScope jlogScope##number =                               \
            JLOG_MAX_LEVEL >= ::JCam::Utils::JLog::LEVEL_DEBUG                             \
                    ? ::JCam::Utils::JLog::JLogScope(JLOG_MODULE(module), name,            \
                                                     static_cast<unsigned int>(requestNo)) \
                    : ::JCam::Utils::JLog::JLogScope()

/// Not for call sites: tests whether a message is wanted. `number` makes the variables unique, so
/// that an argument may contain another call.
#define JLOG_IF_WANTED(number, module, level)                                               \
    static_assert(__builtin_strcmp(JLOG_STRING(JLOG_TAG), "JLOG_TAG") != 0,                 \
                  "JLOG_TAG is missing: #define JLOG_TAG \"Name\" gives the lines of this " \
                  "source their tag");                                                      \
    const unsigned int jlogModule##number = JLOG_MODULE(module);                            \
    const ::JCam::Utils::JLog::JLogLevel jlogLevel##number = (level);                       \
    if (jlogLevel##number <= JLOG_MAX_LEVEL &&                                              \
        ::JCam::Utils::JLog::JLogger::wantsDetails(jlogModule##number, jlogLevel##number))

/// Not for call sites: what the argument expands to, as a string literal.
#define JLOG_STRING(...) JLOG_STRINGIFY(__VA_ARGS__)
/// Not for call sites: the second step of JLOG_STRING.
#define JLOG_STRINGIFY(...) #__VA_ARGS__

/// Not for call sites: the 32 bits of a module. Checks the value only if it is constant; otherwise
/// __builtin_constant_p is 0 and the check evaluates nothing. A conditional, because clang folds no
/// other expression with that test.
#define JLOG_MODULE(module)                                                                     \
    ::JCam::Utils::JLog::moduleBits<(__builtin_constant_p(module)                               \
                                             ? ::JCam::Utils::JLog::isTooLargeForModule(module) \
                                             : false)>(module)

namespace JCam::Utils::JLog {

/// Not for call sites: whether a constant of this type is checked. Such types are passed by value:
/// by reference, a lambda would have to capture the constant.
template <typename Value>
inline constexpr bool kIsPlain = std::is_integral_v<Value> || std::is_enum_v<Value>;

/// Not for call sites: whether an id has more than 32 bits.
template <typename Id, std::enable_if_t<kIsPlain<Id>, int> = 0>
constexpr bool isTooLargeForModule(Id id) {
    return sizeof(Id) > sizeof(uint32_t) && static_cast<uint64_t>(id) > UINT32_MAX;
}
/// The same for an object that converts to a number, or for no module at all.
template <typename Id, std::enable_if_t<!kIsPlain<std::decay_t<Id>>, int> = 0>
constexpr bool isTooLargeForModule(const Id& /*id*/) {
    return false;
}

/// Not for call sites: the bits of a module, or the message why it does not compile.
template <bool kIsTooLarge, typename Id, std::enable_if_t<kIsPlain<Id>, int> = 0>
constexpr unsigned int moduleBits(Id id) {
    static_assert(!std::is_same_v<Id, JLogLevel>,
                  "the module is missing: the first argument is a ModuleId, and this is a level");
    static_assert(!kIsTooLarge,
                  "a module id has at most 32 bits; MODULE_MAX is not for call sites");
    return static_cast<unsigned int>(id);
}
/// The same for an object that converts to a number, or for no module at all.
template <bool kIsTooLarge, typename Id, std::enable_if_t<!kIsPlain<std::decay_t<Id>>, int> = 0>
constexpr unsigned int moduleBits(Id&& id) {
    constexpr bool kIsNumber = std::is_constructible_v<unsigned int, Id&&>;
    static_assert(kIsNumber,
                  "the module is missing: the first argument is a ModuleId, as in "
                  "JLOGD(MODULE_PREVIEW, \"gain %d\", gain)");
    if constexpr (kIsNumber) {
        return static_cast<unsigned int>(std::forward<Id>(id));
    } else {
        return 0;
    }
}

/// Not for call sites: the interval of a rate limit, or the message why it does not compile.
template <typename Ms>
constexpr int64_t intervalOf(Ms ms) {
    constexpr bool kIsNumber = std::is_convertible_v<Ms, int64_t>;
    static_assert(kIsNumber,
                  "the module or the interval is missing: JLOGW_EVERY_MS(module, milliseconds, "
                  "format, ...)");
    if constexpr (kIsNumber) {
        return static_cast<int64_t>(ms);
    } else {
        return 0;
    }
}

}  // namespace JCam::Utils::JLog
