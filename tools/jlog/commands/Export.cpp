#include <memory>
#include <string>

#include <fmt/format.h>

#include "tools/jlog/commands/Commands.h"
#include "tools/jlog/export/ChromeTrace.h"
#include "tools/jlog/export/Perfetto.h"

namespace JCam::Tool {

int exportTo(const Logs& logs, const Selection& selection, const Options& options) {
    const std::unique_ptr<Output> out = options.outputFile == "-"
                                                ? std::make_unique<Output>()
                                                : std::make_unique<Output>(options.outputFile);
    const TraceOptions trace{options.scopesOnly, options.timeZone};
    if (options.format == "perfetto") {
        writePerfetto(logs, selection, trace, *out);
    } else if (options.format == "json") {
        writeChromeTrace(logs, selection, trace, *out);
    }
    out->close();
    return EXIT_FINE;
}

}  // namespace JCam::Tool
