#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "tools/jlog/commands/Commands.h"
#include "tools/jlog/Text.h"

namespace JCam::Tool {

/// Calls `visit` for the records of all series in one stream in time. Records of a series keep
/// their order: those of different threads may cross by microseconds. `scope`: as for
/// Analysis::forEachRecord, nullptr if there is none.
using VisitMerged =
        std::function<void(const Analysis& log, const Entry& entry, const Scope* scope)>;
void forEachMerged(const Logs& logs, const VisitMerged& visit);

/// A record as a line with its year: "2026-11-26 14:51:01.152846  1689  1692 D JLog    : ...". Of
/// monotonic stamps the time that they stand for. What has no time as it is.
void printRecord(const Analysis& log, const Entry& entry, Page& page);

}  // namespace JCam::Tool
