#pragma once

// The Android log: the part of liblog's interface that the library and its tests use. A C header,
// as on a device.
//
// Threads: any function on any thread, also before main and during static destruction. None changes
// errno. A filtered message takes no lock and is not formatted.

// NOLINTBEGIN(modernize-*): C declarations
// NOLINTBEGIN(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp): Android's names
#include <stddef.h>
#include <stdint.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

typedef enum android_LogPriority {
    ANDROID_LOG_UNKNOWN = 0,
    ANDROID_LOG_DEFAULT,
    ANDROID_LOG_VERBOSE,
    ANDROID_LOG_DEBUG,
    ANDROID_LOG_INFO,
    ANDROID_LOG_WARN,
    ANDROID_LOG_ERROR,
    ANDROID_LOG_FATAL,
    ANDROID_LOG_SILENT,
} android_LogPriority;

/// Logs `text`, of any length, under `tag`. Returns 1 if it was logged, -EPERM if it was filtered.
int __android_log_write(int prio, const char* tag, const char* text);

/// The same for a formatted text, which is cut to 1023 bytes.
int __android_log_print(int prio, const char* tag, const char* fmt, ...)
        __attribute__((__format__(printf, 3, 4)));

/// What a logger function receives. It owns none of the strings.
struct __android_log_message {
    size_t struct_size;
    int32_t buffer_id;
    int32_t priority;
    const char* tag;
    const char* file;
    uint32_t line;
    const char* message;
};

typedef void (*__android_logger_function)(const struct __android_log_message* log_message);

/// Sends later messages to `logger`; null restores the stderr logger. Another thread may still be
/// in a call of the previous one.
void __android_log_set_logger(__android_logger_function logger);

/// The initial logger: writes each line of the text as one line, with one write, to stderr.
void __android_log_stderr_logger(const struct __android_log_message* log_message);

/// Passes a message to the logger unfiltered. A null tag becomes "" and a null text "(null)", so no
/// logger function gets a null.
void __android_log_write_log_message(struct __android_log_message* log_message);

/// Sets the minimum priority and returns the previous one. ANDROID_LOG_DEFAULT means none.
int32_t __android_log_set_minimum_priority(int32_t priority);
int32_t __android_log_get_minimum_priority(void);

/// Whether a message would be logged. The lowest priority that passes is the lower of the tag's
/// (from ANDROID_LOG_TAGS) and the minimum, or whichever of them is set, or else `default_prio`.
int __android_log_is_loggable(int prio, const char* tag, int default_prio);

#ifdef __cplusplus
}  // extern "C"
#endif
#pragma GCC visibility pop
// NOLINTEND(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp)
// NOLINTEND(modernize-*)
