#include "tools/jlog/export/Ndjson.h"

#include <string>
#include <utility>

#include <fmt/format.h>

#include "tools/jlog/analysis/Analysis.h"
#include "tools/jlog/export/Json.h"

namespace JCam::Tool {

void writeNdjson(const Options& options, const Selection& selection, Output& out) {
    std::string line;
    Analysis::Stream visitor;
    if (options.recordsOnly) {
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
    for (SeriesFiles& series : findSeries(options.paths)) {
        for (const std::string& problem : series.problems) {
            fmt::print(stderr, "jlog: {}\n", problem);
        }
        if (!options.pid || *options.pid == series.pid) {
            Analysis::stream(std::move(series), visitor);
        }
    }
}

}  // namespace JCam::Tool
