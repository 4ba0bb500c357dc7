#pragma once

/// \file
/// The mark of what libjcam_jlog.so exports.

/// Marks what libjcam_jlog.so exports; everything else has hidden visibility.
#define JLOG_EXPORT __attribute__((visibility("default")))

/// Marks a member of an exported class that the library alone calls.
#define JLOG_INTERNAL __attribute__((visibility("hidden")))
