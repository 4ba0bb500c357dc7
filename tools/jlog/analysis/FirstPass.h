#pragma once

#include "tools/jlog/analysis/Analysis.h"
#include "tools/jlog/analysis/WallClock.h"

namespace JCam::Tool {

/// Reads all records of `log.files`, and fills what is said of them. With a `visitor`, scopes that
/// are closed are told and forgotten.
void readRecords(Analysis& log, const Analysis::Stream* visitor,
                 const Analysis::Progress& progress);

/// A clock for the stamps of a series, before its first record.
[[nodiscard]] WallClock makeClock(const Analysis& log);

}  // namespace JCam::Tool
