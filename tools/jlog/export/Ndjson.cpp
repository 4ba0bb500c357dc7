#include "tools/jlog/export/Ndjson.h"

#include <string>
#include <utility>

#include "tools/jlog/analysis/Analysis.h"
#include "tools/jlog/export/Json.h"

namespace JCam::Tool {

void writeNdjson(std::vector<SeriesFiles> series, const Selection& selection,
                 const NdjsonOptions& options, const Analysis::Progress& progress, Output& out) {
    std::string line;
    Analysis::Stream visitor;
    if (options.records) {
        visitor.onRecord = [&](const Analysis& log, const Entry& entry, const Scope* scope) {
            if (selection.takes(log, entry, scope)) {
                line.clear();
                appendRecord(line, log, entry, scope, options.label);
                out.write(line);
            }
        };
    } else {
        visitor.onScope = [&](const Analysis& log, const Scope& scope) {
            if (selection.takesScope(log, scope)) {
                line.clear();
                appendScope(line, log, scope, options.label);
                out.write(line);
            }
        };
    }
    for (SeriesFiles& files : series) {
        Analysis::stream(std::move(files), visitor, progress);
    }
}

}  // namespace JCam::Tool
