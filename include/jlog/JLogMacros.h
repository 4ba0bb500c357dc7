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
/// `module` is a ModuleId or any other id of 32 bits. A larger constant does not compile; a larger
/// variable counts by its low 32 bits. The macros for messages take printf's format and its
/// arguments, which the compiler checks against each other. The tag of their lines is JLOG_TAG, a
/// macro that each source defines for itself: an expression of type const char*.
///
/// A message whose level or module is off costs its test alone: its arguments are not evaluated.
/// (Name and request number of a scope always are.) The library formats the text on the stack and
/// cuts it after 1023 bytes. Module and level are evaluated once. The macros work on any thread,
/// but not in a signal handler. Use them in sources: in an inline function of a header, each source
/// that includes it would have another tag.

#include <cstdint>
#include <type_traits>
#include <utility>

#include "jlog/JLogger.h"
#include "jlog/JLogRateLimit.h"
#include "jlog/JLogScope.h"

/// The most verbose level that is compiled in: a number from 0 (none) to 6 (all, the default).
/// Messages above it leave no code behind, whatever the properties say, and neither do scopes if it
/// is below LEVEL_DEBUG. Set it on the command line or before this file is included; each source
/// may have its own.
#ifndef JLOG_MAX_LEVEL
#define JLOG_MAX_LEVEL 6
#endif
static_assert(static_cast<unsigned int>(JLOG_MAX_LEVEL) <= ::JCam::Utils::JLog::LEVEL_VERBOSE,
              "JLOG_MAX_LEVEL is a number from 0 to 6");

/// Logs a formatted text at level error: something is broken.
#define JLOGE(module, ...) JLOG_DETAILS(module, ::JCam::Utils::JLog::LEVEL_ERROR, __VA_ARGS__)
/// At level warn: something is not as it should be, and the camera goes on.
#define JLOGW(module, ...) JLOG_DETAILS(module, ::JCam::Utils::JLog::LEVEL_WARN, __VA_ARGS__)
/// At level info: a few times a session.
#define JLOGI(module, ...) JLOG_DETAILS(module, ::JCam::Utils::JLog::LEVEL_INFO, __VA_ARGS__)
/// At level debug high, between info and debug: printed like debug.
#define JLOG_DEBUG_HIGH(module, ...) \
    JLOG_DETAILS(module, ::JCam::Utils::JLog::LEVEL_DEBUG_HIGH, __VA_ARGS__)
/// At level debug: a few times a request.
#define JLOGD(module, ...) JLOG_DETAILS(module, ::JCam::Utils::JLog::LEVEL_DEBUG, __VA_ARGS__)
/// At level verbose: everything else.
#define JLOGV(module, ...) JLOG_DETAILS(module, ::JCam::Utils::JLog::LEVEL_VERBOSE, __VA_ARGS__)

/// The same at any JLogLevel, also one that is known at run time only.
#define JLOG_DETAILS(module, level, ...) \
    JLOG_DETAILS_COUNTED(__COUNTER__, module, level, __VA_ARGS__)
/// Not for call sites: the second step of JLOG_DETAILS, in which `number` is expanded.
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

/// Logs like JLOGE, but at most once in `ms` milliseconds from this place in the source, over all
/// threads. If calls were held back since the last line, the text ends in " (N held back)". Takes
/// no lock.
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
/// Not for call sites: the second step, in which `number` is expanded.
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
/// it. That takes a bit in the module filter and, if the Android log is the back end, level debug.
/// `name` must outlive the block. `requestNo` is an integer; its low 32 bits are logged. Both are
/// always evaluated, unless JLOG_MAX_LEVEL compiles the scope out.
#define JLOG_SCOPE(module, name, requestNo) JLOG_SCOPE_COUNTED(__COUNTER__, module, name, requestNo)
/// The same with the name of the function that it stands in; in a lambda that is "operator()".
#define JLOG_FUNCTION_SCOPE(module, requestNo) JLOG_SCOPE(module, __func__, requestNo)
/// Not for call sites: the second step of JLOG_SCOPE, in which `number` is expanded.
#define JLOG_SCOPE_COUNTED(number, module, name, requestNo) \
    JLOG_SCOPE_NAMED(number, module, name, requestNo)
/// Not for call sites: the third step.
#define JLOG_SCOPE_NAMED(number, module, name, requestNo)                                  \
    const ::JCam::Utils::JLog::JLogScope jlogScope##number =                               \
            JLOG_MAX_LEVEL >= ::JCam::Utils::JLog::LEVEL_DEBUG                             \
                    ? ::JCam::Utils::JLog::JLogScope(JLOG_MODULE(module), name,            \
                                                     static_cast<unsigned int>(requestNo)) \
                    : ::JCam::Utils::JLog::JLogScope()

/// Not for call sites: tests whether a message is wanted. The variables are numbered, so that an
/// argument may contain another call.
#define JLOG_IF_WANTED(number, module, level)                                               \
    static_assert(__builtin_strcmp(JLOG_STRING(JLOG_TAG), "JLOG_TAG") != 0,                 \
                  "JLOG_TAG is missing: #define JLOG_TAG \"Name\" gives the lines of this " \
                  "source their tag");                                                      \
    const unsigned int jlogModule##number = JLOG_MODULE(module);                            \
    const ::JCam::Utils::JLog::JLogLevel jlogLevel##number = (level);                       \
    if (jlogLevel##number <= JLOG_MAX_LEVEL &&                                              \
        ::JCam::Utils::JLog::JLogger::wantsDetails(jlogModule##number, jlogLevel##number))

/// Not for call sites: the text of what the argument expands to.
#define JLOG_STRING(...) JLOG_STRINGIFY(__VA_ARGS__)
/// Not for call sites: the second step of JLOG_STRING.
#define JLOG_STRINGIFY(...) #__VA_ARGS__

/// Not for call sites: the 32 bits of a module. The compiler looks at the value only where it is
/// constant; elsewhere __builtin_constant_p is 0, and nothing is evaluated. clang folds a
/// conditional with that test, but no other expression.
#define JLOG_MODULE(module)                                                                     \
    ::JCam::Utils::JLog::moduleBits<(__builtin_constant_p(module)                               \
                                             ? ::JCam::Utils::JLog::isTooLargeForModule(module) \
                                             : false)>(module)

namespace JCam::Utils::JLog {

/// Not for call sites: whether a value of this type may be looked at when it is constant. Values of
/// such types are passed on as such, never by reference: a constant needs no capture then.
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

/// Not for call sites: what JLOG_MODULE makes of a module, or why it does not compile.
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

/// Not for call sites: the interval of a rate limit, or why it does not compile.
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
