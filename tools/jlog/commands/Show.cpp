#include <algorithm>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "tools/jlog/analysis/Statistics.h"
#include "tools/jlog/commands/Commands.h"
#include "tools/jlog/commands/Describe.h"
#include "tools/jlog/commands/MergedRecords.h"
#include "tools/jlog/export/Json.h"
#include "tools/jlog/Text.h"

namespace JCam::Tool {

namespace {

/// Prints the records of one request: scopes indented by their depth on their thread, details below
/// the scope that they are taken to belong to.
class RequestPrinter {
  public:
    RequestPrinter(const Analysis& log, const Request& request, Page& page)
            : mLog(log), mRequest(request), mPage(page), mDepths(log.threads.size(), 0) {}

    void printHeader() {
        std::string modules;
        for (const uint32_t name : mRequest.names) {
            modules += (modules.empty() ? "" : ", ") + moduleOf(mLog.names[name]);
        }
        const Scope& first = mLog.scopes[mRequest.first];
        mPage.add(fmt::format("request {}", mRequest.number), Colour::BOLD)
                .add(fmt::format(
                        "   {}   {}   {}   {}   {}\n",
                        formatDateTime(mLog.wallOf(
                                mRequest.begin, first.enter == kNone ? first.exit : first.enter)),
                        mRequest.isOpen ? "still open after " + formatDuration(mRequest.duration())
                                        : formatDuration(mRequest.duration()),
                        formatCount(mRequest.scopes, "scope"),
                        formatCount(mRequest.threads.size(), "thread"), modules));
    }

    void print(const Entry& entry, const Scope& scope) {
        uint32_t& depth = mDepths[entry.thread];
        if (entry.kind == Kind::EXIT) {
            depth -= depth > 0 ? 1 : 0;
            if (scope.enter != kNone && !scope.crossedThreads()) {
                return;  // its duration stands where it begins
            }
        }
        const std::string indent(std::min<size_t>(depth * size_t{2}, 40), ' ');
        mPage.add(fmt::format("{:>+11.3f} ms  {:<6} ",
                              static_cast<double>(entry.time - mRequest.begin) / 1000,
                              mLog.threads[entry.thread].tid),
                  Colour::DIM);
        if (entry.kind == Kind::DETAILS) {
            mPage.add(indent + "  ")
                    .addLogged(fmt::format("{} {}: {}", entry.level, mLog.tags[entry.name],
                                           entry.text),
                               colourOf(entry.level));
        } else {
            mPage.addLogged(indent + nameOf(mLog, scope.name), Colour::CYAN).add("  ");
            describe(entry, scope);
        }
        mPage.endLine();
        depth += entry.kind == Kind::ENTER ? 1 : 0;
    }

  private:
    void describe(const Entry& entry, const Scope& scope) {
        const Fate fate = mLog.fateOf(scope);
        if (entry.kind == Kind::EXIT) {
            mPage.add(fate == Fate::CLOSED ? fmt::format("ends, {} after its begin on tid {}",
                                                         formatDuration(scope.end - scope.begin),
                                                         mLog.threads[scope.thread].tid)
                                           : std::string(nameOf(fate)),
                      fate == Fate::CLOSED ? Colour::PLAIN : Colour::YELLOW);
        } else if (fate == Fate::CLOSED) {
            mPage.add(formatDuration(scope.end - scope.begin), Colour::BOLD);
            if (scope.crossedThreads()) {
                mPage.add(fmt::format(", ends on tid {}", mLog.threads[scope.exitThread].tid));
            }
        } else {
            mPage.add(std::string(nameOf(fate)), Colour::YELLOW);
        }
    }

    const Analysis& mLog;
    const Request& mRequest;
    Page& mPage;
    std::vector<uint32_t> mDepths;  // of each thread, within the request
};

/// The times that are shown, none of which overlap.
class Windows {
  public:
    void add(int64_t begin, int64_t end) { mWindows.emplace_back(begin, end); }
    void finish() {
        std::sort(mWindows.begin(), mWindows.end());
        std::vector<std::pair<int64_t, int64_t>> merged;
        for (const auto& [begin, end] : mWindows) {
            if (!merged.empty() && begin <= merged.back().second) {
                merged.back().second = std::max(merged.back().second, end);
            } else {
                merged.emplace_back(begin, end);
            }
        }
        mWindows = std::move(merged);
    }
    /// The number of the window that holds `wall`; -1 if none does.
    [[nodiscard]] std::ptrdiff_t find(int64_t wall) const {
        const auto behind =
                std::upper_bound(mWindows.begin(), mWindows.end(), std::pair(wall, INT64_MAX));
        const bool isIn = behind != mWindows.begin() && wall <= behind[-1].second;
        return isIn ? behind - mWindows.begin() - 1 : -1;
    }
    [[nodiscard]] bool empty() const { return mWindows.empty(); }

  private:
    std::vector<std::pair<int64_t, int64_t>> mWindows;
};

}  // namespace

int showRequest(const Logs& logs, const Selection& selection, const Options& options, Output& out) {
    Page page(out);
    size_t found = 0;
    for (const auto& log : logs) {
        for (const Request& request : listRequests(*log, selection)) {
            if (request.number != *options.request) {
                continue;
            }
            RequestPrinter printer(*log, request, page);
            if (!options.json) {
                page.add(found == 0 ? "" : "\n");
                printSeries(*log, page);
                printer.printHeader();
            }
            found++;
            std::string json;
            log->forEachRecord([&](const Entry& entry, uint32_t index) {
                if (index == kNone || log->scopes[index].request != request.number ||
                    entry.time < request.begin || entry.time > request.end) {
                    return;
                }
                const Scope& scope = log->scopes[index];
                if (!selection.takes(*log, entry, &scope)) {
                    return;
                }
                if (options.json) {
                    json.clear();
                    appendRecord(json, *log, entry, &scope, options.label);
                    out.write(json);
                } else {
                    printer.print(entry, scope);
                }
            });
        }
    }
    if (found == 0) {
        fmt::print(stderr, "jlog: no request {}\n", *options.request);
    }
    return found == 0 ? EXIT_FOUND : EXIT_FINE;
}

int showAround(const Logs& logs, const Logcat* logcat, const Selection& selection,
               const Options& options, Output& out) {
    const auto before = static_cast<int64_t>(options.before * 1e6);
    const auto after = static_cast<int64_t>(options.after * 1e6);
    const std::optional<int64_t> time = parseTime(options.around, firstTimeOf(logs));
    const auto hasText = [&](std::string_view bytes) {
        return !time && bytes.find(options.around) != std::string_view::npos;
    };
    // As the file has it, or as jlog prints it: without the blanks behind a short tag.
    std::string shown;
    const auto recordHasText = [&](const Analysis& log, const Entry& entry) {
        if (time || entry.kind != Kind::DETAILS || hasText(entry.bytes)) {
            return hasText(entry.bytes);
        }
        shown.assign(1, entry.level).append(" ").append(log.tags[entry.name]).append(": ");
        return hasText(shown.append(entry.text));
    };
    Windows windows;
    const auto addHit = [&](int64_t wall) { windows.add(wall - before, wall + after); };
    if (time) {
        addHit(*time);
    } else {
        for (const auto& log : logs) {
            log->forEachRecord([&](const Entry& entry, uint32_t scope) {
                if (entry.wall != kNoTime && recordHasText(*log, entry) &&
                    selection.takes(*log, entry, scope)) {
                    addHit(entry.wall);
                }
            });
        }
        if (logcat != nullptr) {
            logcat->forEachLine([&](const LogcatLine& line) {
                if (hasText(line.bytes) && takesLine(selection, line)) {
                    addHit(line.wall);
                }
            });
        }
    }
    windows.finish();
    Page page(out);
    std::string json;
    std::ptrdiff_t last = -1;
    /// Whether something of that time is shown. Then what separates it from the line before is.
    const auto begin = [&](int64_t wall, const auto& isHit) {
        const std::ptrdiff_t window = wall == kNoTime ? -1 : windows.find(wall);
        if (window < 0) {
            return false;
        }
        if (!options.json) {
            page.add(last >= 0 && window != last ? "--\n" : "", Colour::DIM);
            page.add(isHit() ? "> " : "  ", Colour::BOLD);
        }
        json.clear();
        last = window;
        return true;
    };
    const auto onRecord = [&](const Analysis& log, const Entry& entry, const Scope* scope) {
        if (!selection.takes(log, entry, scope) ||
            !begin(entry.wall, [&] { return recordHasText(log, entry); })) {
            return;
        }
        if (options.json) {
            appendRecord(json, log, entry, scope, options.label);
            out.write(json);
        } else {
            printRecord(log, entry, page);
        }
    };
    const auto onLine = [&](const LogcatLine& line) {
        if (!takesLine(selection, line) || !begin(line.wall, [&] { return hasText(line.bytes); })) {
            return;
        }
        if (options.json) {
            appendLine(json, line, options.label);
            out.write(json);
        } else {
            printLine(line, page);
        }
    };
    forEachMerged(logs, logcat, onRecord, onLine);
    if (last < 0) {
        fmt::print(stderr, "jlog: nothing {} '{}'\n", time ? "was logged around" : "has the text",
                   options.around);
    }
    return last < 0 ? EXIT_FOUND : EXIT_FINE;
}

}  // namespace JCam::Tool
