#pragma once

#include <filesystem>
#include <vector>

#include "tools/jlog/Options.h"
#include "tools/jlog/Output.h"

namespace JCam::Tool {

/// An object for each scope, when it is closed, or, with `options.recordsOnly`, for each record.
/// One series after the other, in memory that does not depend on their size.
void writeNdjson(const Options& options, const Selection& selection, Output& out);

}  // namespace JCam::Tool
