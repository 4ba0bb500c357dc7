#pragma once

#include <string>
#include <vector>

#include "tools/jlog/analysis/Analysis.h"
#include "tools/jlog/analysis/Selection.h"
#include "tools/jlog/Output.h"

namespace JCam::Tool {

struct NdjsonOptions {
    bool records = false;  // an object for each record, not scope
    std::string label;     // the text of its column
};

/// An object for each scope, when it is closed, or for each record. One series after the other, in
/// memory that does not depend on their size.
void writeNdjson(std::vector<SeriesFiles> series, const Selection& selection,
                 const NdjsonOptions& options, const Analysis::Progress& progress, Output& out);

}  // namespace JCam::Tool
