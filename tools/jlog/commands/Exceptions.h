#pragma once

#include <memory>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "tools/jlog/analysis/Analysis.h"
#include "tools/jlog/analysis/Logcat.h"
#include "tools/jlog/Text.h"

namespace JCam::Tool {

/// A table of the camera exceptions of the Android log, one row for each process, kind and code,
/// and under it what was in flight in the log files of that process when the first of them
/// happened: at most 16 scopes of the thread that reports it, and 16 of the others. 100 columns.
void printExceptions(const Logcat& logcat, const std::vector<std::unique_ptr<Analysis>>& logs,
                     Page& page);

/// The same with each single exception. What is not known is left out.
[[nodiscard]] nlohmann::ordered_json exceptionsToJson(
        const Logcat& logcat, const std::vector<std::unique_ptr<Analysis>>& logs);

}  // namespace JCam::Tool
