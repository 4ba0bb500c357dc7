#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

#include "reader/LogFile.h"
#include "tools/jlog/commands/Commands.h"
#include "tools/jlog/export/ChromeTrace.h"
#include "tools/jlog/export/Html.h"
#include "tools/jlog/export/Ndjson.h"
#include "tools/jlog/export/Perfetto.h"
#include "tools/jlog/export/UtcClock.h"

namespace JCam::Tool {

namespace {

/// A pattern of the shell behind -o may have become the first of the logs. They are not replaced.
std::unique_ptr<Output> openOutput(const Options& options) {
    if (Reader::parseName(options.outputFile)) {
        throw std::invalid_argument("--output: " + options.outputFile.string() +
                                    " has the name of a log file");
    }
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
