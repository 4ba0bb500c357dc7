#include "tools/jlog/commands/Describe.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "reader/Line.h"

namespace JCam::Tool {

namespace {

/// "request 116  Preview > IspNode": names of a module once.
std::string describeStack(const Analysis& log, const std::vector<uint32_t>& scopes) {
    std::string text;
    std::string_view module;
    uint32_t request = 0;
    for (size_t i = 0; i < scopes.size(); i++) {
        const Scope& scope = log.scopes[scopes[i]];
        const ScopeName& name = log.names[scope.name];
        if (i == 0 || scope.request != request) {
            text += fmt::format("{}request {}  ", i == 0 ? "" : "  ", scope.request);
            request = scope.request;
        } else {
            text += " > ";
        }
        if (name.module != module && name.module != name.name) {
            text += moduleOf(name) + "/";
        }
        module = name.module;
        text += name.name;
    }
    return text;
}

}  // namespace

std::string nameOf(const Analysis& log, uint32_t name) {
    return moduleOf(log.names[name]) + "/" + log.names[name].name;
}

std::string describeCause(const Analysis& log, const Crash& crash) {
    const std::string cause = crash.cause.empty() ? "unknown cause" : crash.cause;
    return cause + (log.isBlackBox(crash) ? " (black box)" : "");
}

void printSeries(const Analysis& log, Page& page) {
    std::string files;
    const auto add = [&](std::string_view what, const auto& isOne) {
        const auto count = std::count_if(log.files.files.begin(), log.files.files.end(), isOne);
        if (count > 0) {
            files += (files.empty() ? "" : " + ") + formatCount(static_cast<size_t>(count), what);
        }
    };
    using File = Reader::LogFile;
    add("file", [](const File& file) { return !file.isCrash; });
    add("crash file", [](const File& file) { return file.isCrash && !file.isBlackBox; });
    add("black box file", [](const File& file) { return file.isBlackBox; });
    page.add("series   ", Colour::BOLD)
            .add(fmt::format(
                         "{} {}", log.files.pid,
                         log.start ? formatDateTime(*log.start).substr(0, 19) : "of unknown begin"),
                 Colour::BOLD)
            .add(fmt::format("  {}  {}", files, formatCount(log.health.records, "record")));
    if (log.firstTime != kNoTime) {
        page.add(fmt::format("  {} to {}", formatTime(log.wallOf(log.firstTime, 0)),
                             formatTime(log.wallOf(log.lastTime, log.events))));
    }
    page.endLine();
}

std::string quote(const Analysis& log, const Place& place) {
    const std::string bytes = log.read(place);
    std::string_view reason;
    const std::string_view line = std::string_view(bytes).substr(0, bytes.find('\n'));
    const auto parsed = Reader::parseLine(line, reason);
    return parsed ? fmt::format("{} {}: {}", parsed->level, parsed->tag, parsed->text) : "";
}

void printInFlight(const Analysis& log, uint32_t ordinal, int64_t time,
                   const std::vector<Thread>& threads, Page& page) {
    size_t width = 0;
    const std::vector<InFlight> inFlight = findInFlight(log, ordinal);
    for (const InFlight& thread : inFlight) {
        width = std::max(width, describeStack(log, thread.scopes).size());
    }
    constexpr size_t kMaxWidth = 60;
    for (const InFlight& thread : inFlight) {
        const std::string stack = describeStack(log, thread.scopes);
        const int64_t open = time - log.scopes[thread.scopes.front()].begin;
        page.add(fmt::format("         tid {:<6}  ", threads[thread.thread].tid))
                .addLogged(fmt::format("{:<{}}", stack, std::min(width, kMaxWidth)), Colour::CYAN)
                .add(fmt::format("   open {}", formatDuration(open)));
        if (thread.scopes.size() > 1) {
            const Scope& innermost = log.scopes[thread.scopes.back()];
            page.add(fmt::format(", the last {}", formatDuration(time - innermost.begin)));
        }
        if (log.scopes[thread.scopes.front()].exit == kNone &&
            log.fateOf(log.scopes[thread.scopes.front()]) == Fate::EXIT_LOST) {
            page.add(", or its exit is lost", Colour::YELLOW);
        }
        page.endLine();
        const std::string last = quote(log, threads[thread.thread].lastRecord);
        if (!last.empty()) {
            page.add("                     last: ", Colour::DIM).addLogged(last).endLine();
        }
    }
}

nlohmann::ordered_json inFlightToJson(const Analysis& log, uint32_t ordinal, int64_t time,
                                      const std::vector<Thread>& threads) {
    auto list = nlohmann::ordered_json::array();
    for (const InFlight& thread : findInFlight(log, ordinal)) {
        auto scopes = nlohmann::ordered_json::array();
        for (const uint32_t index : thread.scopes) {
            const Scope& scope = log.scopes[index];
            scopes.push_back({{"request", scope.request},
                              {"module", toUtf8(log.names[scope.name].module)},
                              {"name", toUtf8(log.names[scope.name].name)},
                              {"open_us", time - scope.begin}});
        }
        list.push_back({{"tid", threads[thread.thread].tid},
                        {"scopes", std::move(scopes)},
                        {"last", toUtf8(quote(log, threads[thread.thread].lastRecord))}});
    }
    return list;
}

}  // namespace JCam::Tool
