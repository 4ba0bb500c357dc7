#include <android/log.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include <algorithm>
#include <atomic>

#include "ErrnoKeeper.h"
#include "LogFilter.h"

using JCam::Platform::ErrnoKeeper;
using JCam::Platform::LogFilter;

namespace {

constexpr size_t kPrintBytes = 1024;  // of a formatted text with its NUL, as on a device
constexpr int32_t kMainBuffer = 0;    // Android's LOG_ID_MAIN

// Initialised at compile time and never destroyed, so usable at any time.
constinit std::atomic<__android_logger_function> sLogger{__android_log_stderr_logger};
constinit std::atomic<int32_t> sMinimumPriority{ANDROID_LOG_DEFAULT};

const LogFilter* makeFilter() {
    const ErrnoKeeper errnoKeeper;
    const char* words = std::getenv("ANDROID_LOG_TAGS");
    return new LogFilter(words == nullptr ? "" : words);
}

/// Created on first use, because another library's constructor may log before those of this one
/// run. Never destroyed, because destructors log too.
const LogFilter& processFilter() {
    static const LogFilter* const sFilter = makeFilter();
    return *sFilter;
}

/// Reads the variable when the library is loaded, so that its errors show at once and a later
/// setenv has no effect.
__attribute__((constructor)) void loadFilter() {
    processFilter();
}

/// The lowest priority that is logged for a tag whose own priority is `tagPriority`.
int threshold(int tagPriority, int minimum, int defaultPriority) {
    const bool hasMinimum = minimum != ANDROID_LOG_DEFAULT;
    if (tagPriority == LogFilter::kUnset) {
        return hasMinimum ? minimum : defaultPriority;
    }
    return hasMinimum ? std::min(tagPriority, minimum) : tagPriority;
}

void send(int prio, const char* tag, const char* text) {
    __android_log_message message{};
    message.struct_size = sizeof(message);
    message.buffer_id = kMainBuffer;
    message.priority = prio;
    message.tag = tag;
    message.message = text;
    __android_log_write_log_message(&message);
}

}  // namespace

int __android_log_write(int prio, const char* tag, const char* text) {
    if (__android_log_is_loggable(prio, tag, ANDROID_LOG_VERBOSE) == 0) {
        return -EPERM;
    }
    send(prio, tag, text);
    return 1;
}

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    if (__android_log_is_loggable(prio, tag, ANDROID_LOG_VERBOSE) == 0) {
        return -EPERM;
    }
    const ErrnoKeeper errnoKeeper;
    char text[kPrintBytes];
    va_list arguments;
    va_start(arguments, fmt);
    const int length = std::vsnprintf(text, sizeof(text), fmt, arguments);
    va_end(arguments);
    // If an argument cannot be converted, `text` is unspecified; the format still tells which
    // message it was.
    send(prio, tag, length < 0 ? fmt : text);
    return 1;
}

void __android_log_write_log_message(__android_log_message* log_message) {
    const ErrnoKeeper errnoKeeper;
    if (log_message->tag == nullptr) {
        log_message->tag = "";
    }
    if (log_message->message == nullptr) {
        log_message->message = "(null)";
    }
    // Acquire: pairs with the release in __android_log_set_logger.
    sLogger.load(std::memory_order_acquire)(log_message);
}

void __android_log_set_logger(__android_logger_function logger) {
    // Release: publishes what the caller prepared for its logger function.
    sLogger.store(logger == nullptr ? __android_log_stderr_logger : logger,
                  std::memory_order_release);
}

int32_t __android_log_set_minimum_priority(int32_t priority) {
    // Relaxed, here and at the load: the number guards no other data.
    return sMinimumPriority.exchange(priority, std::memory_order_relaxed);
}

int32_t __android_log_get_minimum_priority() {
    return sMinimumPriority.load(std::memory_order_relaxed);
}

int __android_log_is_loggable(int prio, const char* tag, int default_prio) {
    const LogFilter& filter = processFilter();
    const int minimum = __android_log_get_minimum_priority();
    // Most filtered messages are too low for every tag: skip the comparison of tags.
    if (prio < threshold(filter.lowestPriority(), minimum, default_prio) &&
        prio < threshold(filter.defaultPriority(), minimum, default_prio)) {
        return 0;
    }
    const int tagPriority = filter.priorityOf(tag == nullptr ? "" : tag);
    return prio >= threshold(tagPriority, minimum, default_prio) ? 1 : 0;
}
