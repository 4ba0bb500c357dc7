#include <algorithm>
#include <string>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/jlog/commands/Commands.h"
#include "tools/jlog/commands/Describe.h"
#include "tools/jlog/commands/Exceptions.h"
#include "tools/jlog/Text.h"

namespace JCam::Tool {

int showCrash(const Logs& logs, const Logcat* logcat, const Options& options, Output& out) {
    const Analysis* newest = nullptr;
    for (const auto& log : logs) {
        const auto startOf = [](const Analysis& crashed) {
            return crashed.files.files[crashed.crashes.back().file].start;
        };
        if (!log->crashes.empty() && (newest == nullptr || startOf(*newest) <= startOf(*log))) {
            newest = log.get();
        }
    }
    if (newest == nullptr) {
        fmt::print(stderr, "jlog: no crash file\n");
        return EXIT_FOUND;
    }
    const Crash& crash = newest->crashes.back();
    const std::string cause = crash.cause.empty() ? "unknown cause" : crash.cause;
    const std::string time =
            crash.time == kNoTime ? "" : formatDateTime(newest->wallOf(crash.time, crash.ordinal));
    if (options.json) {
        nlohmann::ordered_json document = {
                {"pid", newest->files.pid},
                {"file", toUtf8(newest->files.files[crash.file].path.string())},
                {"cause", toUtf8(cause)},
                {"last_record", time},
                {"in_flight", inFlightToJson(*newest, crash.ordinal, crash.time)}};
        if (logcat != nullptr) {
            document["exceptions"] = exceptionsToJson(*logcat, logs);
        }
        out.write(document.dump(2) + "\n");
        return EXIT_FINE;
    }
    Page page(out);
    printSeries(*newest, page);
    page.add("crash    ", Colour::BOLD)
            .addLogged(cause, Colour::RED)
            .add(fmt::format("   last record {}\n", time));
    page.add("file     ", Colour::BOLD)
            .addLogged(newest->files.files[crash.file].path.string())
            .endLine();
    if (crash.time != kNoTime) {
        page.add("in flight\n", Colour::BOLD);
        printInFlight(*newest, crash.ordinal, crash.time, page);
    }
    if (logcat != nullptr) {
        page.endLine();
        printExceptions(*logcat, logs, page);
    }
    return EXIT_FINE;
}

}  // namespace JCam::Tool
