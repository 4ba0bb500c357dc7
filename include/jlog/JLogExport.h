#pragma once

/// \file
/// The mark of what libjcam_jlog.so exports.

/// Marks what libjcam_jlog.so exports; everything else has hidden visibility.
#define JLOG_EXPORT __attribute__((visibility("default")))
