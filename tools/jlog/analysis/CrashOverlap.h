#pragma once

#include <cstdint>

#include "tools/jlog/analysis/SeriesFiles.h"

namespace JCam::Tool {

/// Adds the records of a crash file to the pieces of its series: its first line, and those records
/// that no log file has, each at its place.
///
/// The dump holds the buffers that the flush thread had not recycled, so it begins with records
/// that the log files end with. They are the same bytes, in the same order; a dump lacks records
/// that were being made when it was written. The place where the two meet is found by the first
/// serial of the dump, or, without one, as the longest end of the log that the dump begins with.
/// Never by the bytes of single lines: a thread may log the same text twice within a microsecond.
///
/// The file of a black box is a dump, too. It also has what the crash files before it lack, and
/// may lack whole buffers that they have.
void joinCrashFile(SeriesFiles& series, uint32_t crashFile);

}  // namespace JCam::Tool
