#pragma once

#include <memory>
#include <vector>

#include "tools/jlog/analysis/Analysis.h"
#include "tools/jlog/analysis/Selection.h"
#include "tools/jlog/export/TraceOptions.h"
#include "tools/jlog/Output.h"

namespace JCam::Tool {

/// Writes the selected scopes as slices of a Perfetto trace, and the details as Android log events.
/// A time zone that nobody knows throws std::runtime_error.
void writePerfetto(const std::vector<std::unique_ptr<Analysis>>& logs, const Selection& selection,
                   const TraceOptions& options, Output& out);

}  // namespace JCam::Tool
