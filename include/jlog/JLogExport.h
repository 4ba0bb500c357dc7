#pragma once

/// \file
/// Visibility of the symbols of libjcam_jlog.so.

/// Marks what the library exports; everything else is hidden.
#define JLOG_EXPORT __attribute__((visibility("default")))

/// Marks a member of an exported class that only the library uses.
#define JLOG_INTERNAL __attribute__((visibility("hidden")))
