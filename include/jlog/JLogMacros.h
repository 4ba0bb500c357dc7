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
///         JLOG_SCOPE(MODULE_PREVIEW, "process", request.number);
///         JLOGD(MODULE_PREVIEW, "gain %.2f", request.gain);
///     }
///
/// `module` is a ModuleId or any other id of 32 bits; the macros JLOGE to JLOGV and JLOG_DETAILS
/// take printf's format and arguments behind it, which the compiler holds against each other. The
/// tag of their lines is JLOG_TAG, which each source defines for itself: an expression of type
/// const char*.
///
/// A call whose level or module is off costs the test alone: its arguments are not evaluated. A
/// text is formatted in the library, into memory on the stack, and cut after 1023 bytes. Module and
/// level are evaluated once. Any thread; not in a signal handler. For sources: in an inline
/// function of a header, each source that includes it would have another tag.

#include "jlog/JLogger.h"
#include "jlog/JLogScope.h"

/// The most verbose level that is compiled in, a number of JLogLevel: 6, all that there are, unless
/// set; 0 for none. Calls above it leave no code behind, whatever the properties say. Set it on the
/// command line or before this file is included; each source may have its own.
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
/// At level debug: a few times a request.
#define JLOGD(module, ...) JLOG_DETAILS(module, ::JCam::Utils::JLog::LEVEL_DEBUG, __VA_ARGS__)
/// At level verbose: everything else.
#define JLOGV(module, ...) JLOG_DETAILS(module, ::JCam::Utils::JLog::LEVEL_VERBOSE, __VA_ARGS__)

/// The same at any JLogLevel: LEVEL_DEBUG_HIGH, or one that is known at run time only.
#define JLOG_DETAILS(module, level, ...) \
    JLOG_DETAILS_COUNTED(__COUNTER__, module, level, __VA_ARGS__)
/// Not for call sites: the second step of JLOG_DETAILS, in which `number` is expanded.
#define JLOG_DETAILS_COUNTED(number, module, level, ...) \
    JLOG_DETAILS_NAMED(number, module, level, __VA_ARGS__)
/// Not for call sites: the third step. The variables have names of this call's own, so that its
/// arguments may have a call in them.
#define JLOG_DETAILS_NAMED(number, module, level, ...)                                           \
    do {                                                                                         \
        const auto jlogModule##number = static_cast<unsigned int>(module);                       \
        const ::JCam::Utils::JLog::JLogLevel jlogLevel##number = (level);                        \
        if (jlogLevel##number <= JLOG_MAX_LEVEL &&                                               \
            ::JCam::Utils::JLog::JLogger::wantsDetails(jlogModule##number, jlogLevel##number)) { \
            ::JCam::Utils::JLog::JLogger::logFormatted(jlogModule##number, JLOG_TAG,             \
                                                       jlogLevel##number, __VA_ARGS__);          \
        }                                                                                        \
    } while (false)

/// Logs that request `requestNo` enters a scope here and, at the end of the block, that it leaves
/// it, if the module is wanted. `name` must outlive the block. `requestNo` is an integer, of which
/// the low 32 bits are logged. JLOG_MAX_LEVEL has no bearing on it.
#define JLOG_SCOPE(module, name, requestNo)                                           \
    const ::JCam::Utils::JLog::JLogScope JLOG_SCOPE_NAME(__COUNTER__) {               \
        static_cast<unsigned int>(module), name, static_cast<unsigned int>(requestNo) \
    }
/// Not for call sites: a name for the object of a JLOG_SCOPE, however many stand in one block.
#define JLOG_SCOPE_NAME(number) JLOG_SCOPE_PASTE(number)
/// Not for call sites: the second step of JLOG_SCOPE_NAME, in which `number` is expanded.
#define JLOG_SCOPE_PASTE(number) jlogScope##number
