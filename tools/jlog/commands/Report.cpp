#include <algorithm>
#include <future>
#include <map>
#include <string>
#include <string_view>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/jlog/analysis/Statistics.h"
#include "tools/jlog/commands/Commands.h"
#include "tools/jlog/commands/Describe.h"
#include "tools/jlog/commands/Exceptions.h"
#include "tools/jlog/Text.h"

namespace JCam::Tool {

namespace {

constexpr size_t kMaxRows = 20;  // of a table: a report is read at a glance
constexpr size_t kMaxComplaints = 8;
constexpr size_t kMaxThreads = 12;
constexpr size_t kMaxRanges = 6;
constexpr size_t kMaxText = 61;  // characters of an error: 100 columns

using Json = nlohmann::ordered_json;
using Align = Table::Align;

/// Nine columns that the lines of a section begin with: its name, or blanks.
void beginLine(Page& page, std::string_view section) {
    page.add(fmt::format("{:<9}", section), Colour::BOLD);
}

std::string describeRanges(const std::vector<NumberRange>& ranges) {
    std::string text;
    for (size_t i = 0; i < std::min(ranges.size(), kMaxRanges); i++) {
        const NumberRange& range = ranges[i];
        text += i == 0 ? "" : ", ";
        text += range.first == range.last ? std::to_string(range.first)
                                          : fmt::format("{}-{}", range.first, range.last);
    }
    return text + (ranges.size() > kMaxRanges
                           ? fmt::format(" and {} more", ranges.size() - kMaxRanges)
                           : "");
}

/// What is said of a step of the clock, for example "set back by 1 h 00 min".
std::string describeStep(const Analysis& log, size_t index) {
    const int64_t before = index == 0 ? 0 : log.steps[index - 1].offset;
    const int64_t step = log.steps[index].offset - before;
    constexpr int64_t kHour = 3600000000;
    const bool isHour = std::llabs(std::llabs(step) - kHour) < 2000000;
    return fmt::format("the clock was set {} by {} at {}{}", step < 0 ? "back" : "forward",
                       formatDuration(std::llabs(step)),
                       formatTime(log.steps[index].time + log.steps[index].offset),
                       isHour ? " (summer time?)" : "");
}

std::map<Fate, size_t> countFates(const Analysis& log) {
    std::map<Fate, size_t> fates;
    for (const uint32_t scope : log.unclosed) {
        fates[log.fateOf(log.scopes[scope])]++;
    }
    return fates;
}

void printHealth(const Analysis& log, Page& page) {
    const Health& health = log.health;
    beginLine(page, "health");
    if (log.events == 0) {
        page.add("no scopes");
    } else if (health.lost == 0) {
        page.add(fmt::format("serials {}..{} ", log.serialOf(0), log.serialOf(log.events - 1)))
                .add("complete", Colour::GREEN);
    } else {
        page.add(fmt::format("serials {}..{}, ", log.serialOf(0), log.serialOf(log.events - 1)))
                .add(fmt::format("{} lost", formatCount(health.lost)), Colour::RED);
    }
    page.add("; ").add(fmt::format("{} torn", health.torn),
                       health.torn > 0 ? Colour::RED : Colour::PLAIN);
    page.add("; " + formatCount(health.continuations, "continuation line"));
    if (log.files.repeats > 0) {
        page.add("; " + formatCount(log.files.repeats, "record") + " in two files");
    }
    page.endLine();
    const auto warn = [&](const std::string& text) {
        beginLine(page, "");
        page.addLogged(text, Colour::YELLOW).endLine();
    };
    size_t shown = 0;
    for (const SerialRun& run : log.runs) {
        if (run.lost > 0 && ++shown <= kMaxRanges) {
            warn(run.lost == 1 ? fmt::format("serial {} is missing", run.serial - 1)
                               : fmt::format("serials {}..{} are missing", run.serial - run.lost,
                                             run.serial - 1));
        }
    }
    if (shown > kMaxRanges) {
        warn(fmt::format("and {} more gaps of serials", shown - kMaxRanges));
    }
    if (health.oddSerials > 0) {
        warn(formatCount(health.oddSerials, "serial") + " not above the one before");
    }
    if (health.skippedBytes > 0) {
        warn(formatCount(health.skippedBytes, "byte") + " that are no record");
    }
    if (health.cutTexts > 0) {
        warn(formatCount(health.cutTexts, "text") +
             " of 1,023 characters or more, where the logger cuts");
    }
    for (size_t i = 0; i < std::min(log.steps.size(), kMaxRanges); i++) {
        warn(describeStep(log, i));
    }
    for (size_t i = 0; i < std::min(log.silences.size(), kMaxRanges); i++) {
        const Silence& silence = log.silences[i];
        warn(fmt::format("nothing was logged for {} until {}, or the clock was set forward",
                         formatDuration(silence.duration), formatTime(silence.end)));
    }
    if (log.isMonotonic) {
        warn(log.bootTime ? "stamps of the monotonic clock, set right by the lines in logcat"
                          : "stamps of the monotonic clock, set right by the file's name: times "
                            "may be off by a second");
    }
    for (const std::string& problem : log.files.problems) {
        warn(problem);
    }
    const std::map<Fate, size_t> fates = countFates(log);
    const auto tell = [&](Fate fate, std::string_view noun, std::string_view what) {
        if (const auto found = fates.find(fate); found != fates.end()) {
            warn(fmt::format("{} {}", formatCount(found->second, noun), what));
        }
    };
    tell(Fate::BEFORE_LOG, "scope", "opened before this log");
    tell(Fate::NO_ENTER, "exit", "without enter");
    tell(Fate::ENTER_LOST, "exit", "whose enter is lost");
    tell(Fate::EXIT_LOST, "enter", "whose exit is lost or still to come");
}

void printScopes(const Analysis& log, const Selection& selection, Page& page) {
    const std::vector<ScopeStatistics> all = summariseScopes(log, selection);
    if (all.empty()) {
        return;
    }
    Table table({Align::LEFT, Align::RIGHT, Align::RIGHT, Align::RIGHT, Align::RIGHT, Align::LEFT});
    table.addRow({"scope", "count", "p50", "p99", "max", "slowest"});
    for (size_t i = 0; i < std::min(all.size(), kMaxRows); i++) {
        const ScopeStatistics& row = all[i];
        const Scope& slowest = log.scopes[row.slowest];
        table.addRow({nameOf(log, row.name), formatCount(row.count), formatDuration(row.p50),
                      formatDuration(row.p99), formatDuration(row.max),
                      fmt::format("request {}, tid {}", slowest.request,
                                  log.threads[slowest.thread].tid)});
    }
    table.print(page, true);
    if (all.size() > kMaxRows) {
        page.add(fmt::format("and {} more names\n", formatCount(all.size() - kMaxRows)),
                 Colour::DIM);
    }
}

void printGaps(const Analysis& log, const std::vector<Cadence>& cadences, Page& page) {
    Table table({Align::LEFT, Align::RIGHT, Align::RIGHT, Align::RIGHT, Align::RIGHT, Align::RIGHT,
                 Align::LEFT});
    table.addRow({"module", "requests", "median", "gaps", "above", "longest", "before"});
    std::string absent;
    for (const Cadence& cadence : cadences) {
        const bool isModule = !cadence.module.empty();
        if (!cadence.absent.empty()) {
            absent += fmt::format("requests absent{}{}: {}\n", isModule ? " from " : "",
                                  cadence.module, describeRanges(cadence.absent));
        }
        if (!isModule) {
            continue;
        }
        std::vector<std::string> row{cadence.module, formatCount(cadence.requests),
                                     cadence.requests > 1 ? formatDuration(cadence.median) : ""};
        if (!cadence.gaps.empty()) {
            const Gap& longest = *std::max_element(
                    cadence.gaps.begin(), cadence.gaps.end(),
                    [](const Gap& a, const Gap& b) { return a.interval < b.interval; });
            const Scope& behind = log.scopes[longest.scope];
            row.insert(row.end(),
                       {formatCount(cadence.gaps.size()), formatDuration(cadence.limit),
                        formatDuration(longest.interval),
                        fmt::format("request {} at {}", behind.request,
                                    formatTime(log.wallOf(behind.begin, behind.enter)))});
        }
        table.addRow(std::move(row));
    }
    if (!cadences.empty()) {
        table.print(page, true);
        page.addLogged(absent, Colour::YELLOW);
    }
}

/// The most important first, then the most frequent.
std::vector<Complaint> rankComplaints(const Analysis& log, const Selection& selection) {
    std::vector<Complaint> complaints;
    std::copy_if(log.complaints.begin(), log.complaints.end(), std::back_inserter(complaints),
                 [&](const Complaint& complaint) {
                     return isAsImportant(complaint.level, selection.level);
                 });
    std::stable_sort(complaints.begin(), complaints.end(), [](const auto& a, const auto& b) {
        return a.level != b.level ? isAsImportant(a.level, b.level) : a.count > b.count;
    });
    return complaints;
}

void printComplaints(const Analysis& log, const Selection& selection, Page& page) {
    const std::vector<Complaint> complaints = rankComplaints(log, selection);
    for (size_t i = 0; i < std::min(complaints.size(), kMaxComplaints); i++) {
        const Complaint& complaint = complaints[i];
        beginLine(page, i == 0 ? "errors" : "");
        const std::string text = fmt::format("{} {}: {}", complaint.level, log.tags[complaint.tag],
                                             complaint.text.substr(0, complaint.text.find('\n')));
        page.add(fmt::format("{:>7} x  from {}  ", formatCount(complaint.count),
                             formatTime(complaint.firstWall)))
                .addLogged(shorten(text, kMaxText), colourOf(complaint.level))
                .endLine();
    }
    if (complaints.size() > kMaxComplaints) {
        beginLine(page, "");
        page.add(fmt::format("and {} more kinds", complaints.size() - kMaxComplaints), Colour::DIM)
                .endLine();
    }
}

/// The modules whose scopes each thread has entered, the first few.
std::vector<std::string> listModules(const Analysis& log) {
    std::map<std::string, uint32_t> numbers;
    std::vector<uint32_t> modules;  // of each name
    for (const ScopeName& name : log.names) {
        const auto next = static_cast<uint32_t>(numbers.size());
        modules.push_back(numbers.try_emplace(moduleOf(name), next).first->second);
    }
    std::vector<std::string_view> names(numbers.size());
    for (const auto& [name, number] : numbers) {
        names[number] = name;
    }
    constexpr size_t kMaxModules = 6;
    std::vector<std::vector<uint32_t>> ofThread(log.threads.size());
    for (const Scope& scope : log.scopes) {
        std::vector<uint32_t>& found = ofThread[scope.thread];
        const uint32_t module = modules[scope.name];
        if (found.size() < kMaxModules &&
            std::find(found.begin(), found.end(), module) == found.end()) {
            found.push_back(module);
        }
    }
    std::vector<std::string> texts(log.threads.size());
    for (size_t i = 0; i < texts.size(); i++) {
        for (const uint32_t module : ofThread[i]) {
            texts[i] += (texts[i].empty() ? "" : ", ");
            texts[i] += names[module];
        }
        texts[i] += ofThread[i].size() == kMaxModules ? ", ..." : "";
    }
    return texts;
}

void printThreads(const Analysis& log, Page& page) {
    const std::vector<std::string> modules = listModules(log);
    std::vector<uint32_t> order;
    for (uint32_t i = 0; i < log.threads.size(); i++) {
        order.push_back(i);
    }
    std::stable_sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) {
        return log.threads[a].records > log.threads[b].records;
    });
    const double seconds =
            static_cast<double>(std::max<int64_t>(log.lastTime - log.firstTime, 1)) / 1e6;
    Table table({Align::LEFT, Align::RIGHT, Align::RIGHT, Align::LEFT});
    table.addRow({"thread", "records", "a second", "modules"});
    for (size_t i = 0; i < std::min(order.size(), kMaxThreads); i++) {
        const Thread& thread = log.threads[order[i]];
        const double rate = static_cast<double>(thread.records) / seconds;
        table.addRow({std::to_string(thread.tid), formatCount(thread.records),
                      formatCount(static_cast<uint64_t>(rate)), modules[order[i]]});
    }
    if (!order.empty()) {
        table.print(page, true);
    }
    if (order.size() > kMaxThreads) {
        page.add(fmt::format("and {} more threads\n", order.size() - kMaxThreads), Colour::DIM);
    }
}

/// A series that is not shown in full: its line, and what is wrong with it.
void printSummary(const Analysis& log, Page& page) {
    printSeries(log, page);
    std::string damage;
    const auto tell = [&](uint64_t count, std::string_view what) {
        if (count > 0) {
            damage += (damage.empty() ? "" : "; ") + formatCount(count) + " " + std::string(what);
        }
    };
    tell(log.health.lost, "lost");
    tell(log.health.torn, "torn");
    tell(log.health.skippedBytes, "bytes that are no record");
    tell(log.files.problems.size(), "unreadable");
    for (const Crash& crash : log.crashes) {
        damage += (damage.empty() ? "" : "; ") + describeCause(log, crash);
    }
    if (!damage.empty()) {
        beginLine(page, "");
        page.addLogged(damage, Colour::RED).endLine();
    }
}

void printReport(const Analysis& log, const Selection& selection, Page& page) {
    // The two that take longest, side by side.
    std::future<std::vector<Cadence>> cadences =
            std::async(std::launch::async, [&] { return findGaps(log, selection); });
    printSeries(log, page);
    for (const Crash& crash : log.crashes) {
        beginLine(page, "crash");
        page.addLogged(describeCause(log, crash), Colour::RED);
        if (crash.time != kNoTime) {
            page.add("   last record " + formatTime(log.wallOf(crash.time, crash.ordinal)));
        }
        page.add("   (jlog crash)", Colour::DIM).endLine();
    }
    printHealth(log, page);
    printScopes(log, selection, page);
    printGaps(log, cadences.get(), page);
    printComplaints(log, selection, page);
    printThreads(log, page);
    if (!findInFlight(log, log.events).empty()) {
        page.add("in flight at the end\n", Colour::BOLD);
        printInFlight(log, log.events, log.lastTime, log.threads, page);
    }
}

Json toJson(const Analysis& log, const Selection& selection) {
    Json series;
    series["pid"] = log.files.pid;
    series["start"] = log.start ? Json(formatDateTime(*log.start)) : Json();
    for (const Reader::LogFile& file : log.files.files) {
        series["files"].push_back({{"path", toUtf8(file.path.string())},
                                   {"crash", file.isCrash},
                                   {"black_box", file.isBlackBox}});
    }
    const Health& health = log.health;
    series["first"] =
            log.firstTime == kNoTime ? Json() : Json(formatDateTime(log.wallOf(log.firstTime, 0)));
    series["last"] = log.lastTime == kNoTime
                             ? Json()
                             : Json(formatDateTime(log.wallOf(log.lastTime, log.events)));
    series["health"] = {
            {"records", health.records},
            {"first_serial", log.events == 0 ? Json() : Json(log.serialOf(0))},
            {"last_serial", log.events == 0 ? Json() : Json(log.serialOf(log.events - 1))},
            {"lost_serials", health.lost},
            {"odd_serials", health.oddSerials},
            {"torn", health.torn},
            {"continuation_lines", health.continuations},
            {"cut_texts", health.cutTexts},
            {"skipped_bytes", health.skippedBytes},
            {"repeats", log.files.repeats},
            {"clock_steps", log.steps.size()},
            {"problems", Json::array()}};
    for (const std::string& problem : log.files.problems) {
        series["health"]["problems"].push_back(toUtf8(problem));
    }
    series["scopes"] = Json::array();
    for (const ScopeStatistics& row : summariseScopes(log, selection)) {
        const Scope& slowest = log.scopes[row.slowest];
        series["scopes"].push_back({{"module", toUtf8(log.names[row.name].module)},
                                    {"module_id", log.names[row.name].moduleId},
                                    {"name", toUtf8(log.names[row.name].name)},
                                    {"count", row.count},
                                    {"p50_us", row.p50},
                                    {"p99_us", row.p99},
                                    {"max_us", row.max},
                                    {"slowest_request", slowest.request},
                                    {"slowest_tid", log.threads[slowest.thread].tid}});
    }
    series["gaps"] = Json::array();
    for (const Cadence& cadence : findGaps(log, selection)) {
        Json gaps = {{"module", cadence.module.empty() ? Json() : Json(toUtf8(cadence.module))},
                     {"requests", cadence.requests},
                     {"median_us", cadence.median},
                     {"limit_us", cadence.limit},
                     {"gaps", Json::array()},
                     {"absent", Json::array()}};
        for (const Gap& gap : cadence.gaps) {
            gaps["gaps"].push_back(
                    {{"us", gap.interval}, {"before_request", log.scopes[gap.scope].request}});
        }
        for (const NumberRange& range : cadence.absent) {
            gaps["absent"].push_back({range.first, range.last});
        }
        series["gaps"].push_back(std::move(gaps));
    }
    series["errors"] = Json::array();
    for (const Complaint& complaint : rankComplaints(log, selection)) {
        series["errors"].push_back({{"level", std::string(1, complaint.level)},
                                    {"tag", toUtf8(log.tags[complaint.tag])},
                                    {"count", complaint.count},
                                    {"text", toUtf8(complaint.text)},
                                    {"first", formatDateTime(complaint.firstWall)}});
    }
    series["threads"] = Json::array();
    for (const Thread& thread : log.threads) {
        series["threads"].push_back({{"tid", thread.tid}, {"records", thread.records}});
    }
    series["in_flight"] = inFlightToJson(log, log.events, log.lastTime, log.threads);
    return series;
}

bool isDamaged(const Analysis& log) {
    const Health& health = log.health;
    return health.lost + health.torn + health.skippedBytes + health.oddSerials > 0 ||
           !log.crashes.empty() || !log.files.problems.empty();
}

}  // namespace

int report(const Logs& logs, const Logcat* logcat, const Selection& selection,
           const Options& options, Output& out) {
    if (options.json) {
        Json document = {{"series", Json::array()}};
        for (const auto& log : logs) {
            document["series"].push_back(toJson(*log, selection));
        }
        if (logcat != nullptr) {
            document["exceptions"] = exceptionsToJson(*logcat, logs);
        }
        out.write(document.dump(2) + "\n");
    } else {
        Page page(out);
        constexpr size_t kMaxSeries = 4;
        const size_t full = options.all || logs.size() <= kMaxSeries ? 0 : logs.size() - 1;
        for (size_t i = 0; i < full; i++) {
            printSummary(*logs[i], page);
        }
        for (size_t i = full; i < logs.size(); i++) {
            page.add(i == 0 ? "" : "\n");
            printReport(*logs[i], selection, page);
        }
        if (logcat != nullptr) {
            page.endLine();
            printExceptions(*logcat, logs, page);
        }
    }
    const bool isFound =
            std::any_of(logs.begin(), logs.end(), [](const auto& log) { return isDamaged(*log); });
    return options.strict && isFound ? EXIT_FOUND : EXIT_FINE;
}

}  // namespace JCam::Tool
