#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/jlog/analysis/WallClock.h"
#include "tools/jlog/commands/Commands.h"
#include "tools/jlog/commands/Describe.h"
#include "tools/jlog/commands/Exceptions.h"
#include "tools/jlog/Text.h"

namespace JCam::Tool {

namespace {

/// Entry::wall of the end of a process. The file of a black box has the name of a later time.
int64_t endOf(const Analysis& log) {
    const Crash& crash = log.crashes.back();
    const std::optional<int64_t> stamp =
            log.isBlackBox(crash) ? std::nullopt : parseStart(log.files.files[crash.file].start);
    return stamp                   ? *stamp
           : crash.time == kNoTime ? log.start.value_or(kNoTime)
                                   : log.wallOf(crash.time, crash.ordinal);
}

}  // namespace

int showCrash(const Logs& logs, const Logcat* logcat, const Options& options, Output& out) {
    const Analysis* newest = nullptr;
    for (const auto& log : logs) {
        if (!log->crashes.empty() && (newest == nullptr || endOf(*newest) <= endOf(*log))) {
            newest = log.get();
        }
    }
    if (newest == nullptr) {
        fmt::print(stderr, "jlog: no crash file and no black box\n");
        return EXIT_FOUND;
    }
    const Crash& crash = newest->crashes.back();
    const std::string cause = describeCause(*newest, crash);
    const std::string time =
            crash.time == kNoTime ? "" : formatDateTime(newest->wallOf(crash.time, crash.ordinal));
    if (options.json) {
        nlohmann::ordered_json document = {
                {"pid", newest->files.pid},
                {"file", toUtf8(newest->files.files[crash.file].path.string())},
                {"black_box", newest->isBlackBox(crash)},
                {"cause", toUtf8(cause)},
                {"last_record", time},
                {"in_flight", inFlightToJson(*newest, crash.ordinal, crash.time, crash.threads)}};
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
            .add(time.empty() ? "\n" : fmt::format("   last record {}\n", time));
    page.add("file     ", Colour::BOLD)
            .addLogged(newest->files.files[crash.file].path.string())
            .endLine();
    if (crash.time != kNoTime) {
        page.add("in flight\n", Colour::BOLD);
        printInFlight(*newest, crash.ordinal, crash.time, crash.threads, page);
    }
    if (logcat != nullptr) {
        page.endLine();
        printExceptions(*logcat, logs, page);
    }
    return EXIT_FINE;
}

}  // namespace JCam::Tool
