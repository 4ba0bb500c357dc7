#include <filesystem>
#include <memory>
#include <string>

#include "tools/jlog/commands/Commands.h"
#include "tools/jlog/export/ChromeTrace.h"
#include "tools/jlog/export/Html.h"
#include "tools/jlog/export/Ndjson.h"
#include "tools/jlog/export/Perfetto.h"
#include "tools/jlog/export/UtcClock.h"

namespace JCam::Tool {

namespace {

std::unique_ptr<Output> openOutput(const Options& options) {
    return options.outputFile == "-" ? std::make_unique<Output>()
                                     : std::make_unique<Output>(options.outputFile);
}

/// The last part of the first path; a folder may have a slash behind it.
std::string titleOf(const Options& options) {
    const std::filesystem::path path = (options.paths.front() / "").parent_path().filename();
    return path.empty() || path == "." || path == ".." ? "Camera log" : path.string();
}

}  // namespace

int exportTo(const Logs& logs, const Selection& selection, const Options& options) {
    setTimeZone(options.timeZone);  // an unknown one is found out before a file is touched
    const std::unique_ptr<Output> out = openOutput(options);
    const TraceOptions trace{options.scopesOnly, options.timeZone};
    if (options.format == "perfetto") {
        writePerfetto(logs, selection, trace, *out);
    } else if (options.format == "json") {
        writeChromeTrace(logs, selection, trace, *out);
    } else if (options.format == "html") {
        writeHtml(logs, selection, titleOf(options), !options.scopesOnly, *out);
    }
    out->close();
    return EXIT_FINE;
}

int exportNdjson(std::vector<SeriesFiles> series, const Selection& selection,
                 const Options& options, const Analysis::Progress& progress) {
    const std::unique_ptr<Output> out = openOutput(options);
    writeNdjson(std::move(series), selection, {options.recordsOnly, options.label}, progress, *out);
    out->close();
    return EXIT_FINE;
}

}  // namespace JCam::Tool
