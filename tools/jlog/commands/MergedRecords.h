#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "tools/jlog/commands/Commands.h"
#include "tools/jlog/Text.h"

namespace JCam::Tool {

/// Calls `onRecord` for the records of all series, and `onLine` for those of the Android log, if
/// there is one, in one stream in time. Records of a series keep their order: those of different
/// threads may cross by microseconds. `scope`: as for Analysis::forEachRecord, nullptr if there is
/// none.
using OnRecord = std::function<void(const Analysis& log, const Entry& entry, const Scope* scope)>;
using OnLine = std::function<void(const LogcatLine& line)>;
void forEachMerged(const Logs& logs, const Logcat* logcat, const OnRecord& onRecord,
                   const OnLine& onLine);

/// Whether a line of the Android log is wanted. It has no module.
[[nodiscard]] bool takesLine(const Selection& selection, const LogcatLine& line);

/// A record as a line with its year: "2026-11-26 14:51:01.152846  1689  1692 D JLog    : ...". Of
/// monotonic stamps the time that they stand for. What has no time as it is.
void printRecord(const Analysis& log, const Entry& entry, Page& page);
void printLine(const LogcatLine& line, Page& page);

}  // namespace JCam::Tool
