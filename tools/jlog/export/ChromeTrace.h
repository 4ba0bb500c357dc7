#pragma once

#include <memory>
#include <vector>

#include "tools/jlog/analysis/Analysis.h"
#include "tools/jlog/analysis/Selection.h"
#include "tools/jlog/export/TraceOptions.h"
#include "tools/jlog/Output.h"

namespace JCam::Tool {

/// Writes the selected scopes as trace events in JSON, and the details as instants. Times count
/// from the first record: viewers take them for floating-point numbers, in which those since 1970
/// would lose the fractions of a microsecond. A time zone that nobody knows throws
/// std::runtime_error.
void writeChromeTrace(const std::vector<std::unique_ptr<Analysis>>& logs,
                      const Selection& selection, const TraceOptions& options, Output& out);

}  // namespace JCam::Tool
