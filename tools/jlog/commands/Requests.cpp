#include <algorithm>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "tools/jlog/analysis/Statistics.h"
#include "tools/jlog/commands/Commands.h"
#include "tools/jlog/commands/Describe.h"
#include "tools/jlog/export/Json.h"
#include "tools/jlog/Text.h"

namespace JCam::Tool {

namespace {

using Align = Table::Align;

std::string modulesOf(const Analysis& log, const Request& request) {
    std::string text;
    for (const uint32_t name : request.names) {
        text += (text.empty() ? "" : ", ") + moduleOf(log.names[name]);
    }
    return text;
}

int64_t wallOf(const Analysis& log, const Request& request) {
    const Scope& first = log.scopes[request.first];
    return log.wallOf(request.begin, first.enter == kNone ? first.exit : first.enter);
}

void printJson(const Analysis& log, const Request& request, Output& out) {
    const Scope& slowest = log.scopes[request.slowest];
    std::string modules = "[";
    for (const uint32_t name : request.names) {
        modules += modules.size() > 1 ? "," : "";
        appendQuoted(modules, log.names[name].module);
    }
    std::string name;
    appendQuoted(name, nameOf(log, slowest.name));
    out.write(fmt::format(
            "{{\"pid\":{},\"start\":{},\"request\":{},\"begin\":\"{}\",\"duration_us\":{},"
            "\"open\":{},"
            "\"scopes\":{},\"threads\":{},\"modules\":{}],\"slowest\":{},\"slowest_us\":{}}}\n",
            log.files.pid, log.start ? '"' + formatDateTime(*log.start) + '"' : "null",
            request.number, formatDateTime(wallOf(log, request)), request.duration(),
            request.isOpen, request.scopes, request.threads.size(), modules, name,
            slowest.isClosed() ? std::to_string(slowest.end - slowest.begin) : "null"));
}

void printTable(const Analysis& log, const std::vector<Request>& requests, Page& page) {
    printSeries(log, page);
    Table table({Align::RIGHT, Align::LEFT, Align::RIGHT, Align::RIGHT, Align::RIGHT, Align::LEFT,
                 Align::LEFT});
    table.addRow({"request", "begin", "duration", "scopes", "threads", "slowest scope", "modules"});
    for (const Request& request : requests) {
        const Scope& slowest = log.scopes[request.slowest];
        table.addRow(
                {std::to_string(request.number), formatTime(wallOf(log, request)),
                 (request.isOpen ? "> " : "") + formatDuration(request.duration()),
                 formatCount(request.scopes), std::to_string(request.threads.size()),
                 nameOf(log, slowest.name) +
                         (slowest.isClosed() ? " " + formatDuration(slowest.end - slowest.begin)
                                             : ", " + std::string(nameOf(log.fateOf(slowest)))),
                 modulesOf(log, request)});
    }
    table.print(page, true);
}

}  // namespace

int listRequests(const Logs& logs, const Selection& selection, const Options& options,
                 Output& out) {
    Page page(out);
    for (size_t i = 0; i < logs.size(); i++) {
        std::vector<Request> requests = listRequests(*logs[i], selection);
        if (options.slow) {
            std::stable_sort(
                    requests.begin(), requests.end(),
                    [](const Request& a, const Request& b) { return a.duration() > b.duration(); });
            requests.resize(std::min<size_t>(*options.slow, requests.size()));
        }
        if (options.json) {
            for (const Request& request : requests) {
                printJson(*logs[i], request, out);
            }
        } else {
            page.add(i == 0 ? "" : "\n");
            printTable(*logs[i], requests, page);
        }
    }
    return EXIT_FINE;
}

}  // namespace JCam::Tool
