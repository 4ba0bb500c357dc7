#include "tools/jlog/commands/Exceptions.h"

#include <algorithm>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/jlog/Text.h"

namespace JCam::Tool {

namespace {

using nlohmann::ordered_json;

constexpr size_t kColumns = 100;

/// A scope that was open when an exception happened.
struct OpenScope {
    const Analysis* log = nullptr;
    const Scope* scope = nullptr;
    int64_t openFor = kNoTime;  // kNoTime: since before the log
    bool isOwn = false;         // of the thread that reports the exception
};

struct InFlight {
    std::vector<OpenScope> scopes;  // of the thread that reports, then those of the others
    size_t own = 0;                 // so many are of that thread
    size_t others = 0;
    size_t count = 0;  // also of those that are left out
};

constexpr size_t kMaxInFlight = 16;  // that are kept of either, the newest

/// From when to when a scope was open, on the wall. Begins after its end if the log does not tell.
std::pair<int64_t, int64_t> spanOf(const Analysis& log, const Scope& scope) {
    // The file may lack the last seconds that the Android log has. Much later the process may be
    // another one.
    constexpr int64_t kUnwritten = 5000000;
    switch (log.fateOf(scope)) {
        case Fate::CLOSED:
            return {log.wallOf(scope.begin, scope.enter), log.wallOf(scope.end, scope.exit)};
        case Fate::IN_FLIGHT:
            return {log.wallOf(scope.begin, scope.enter),
                    log.wallOf(log.lastTime, log.events) + kUnwritten};
        case Fate::BEFORE_LOG:
            return {log.wallOf(log.firstTime, 0), log.wallOf(scope.end, scope.exit)};
        default:
            return {INT64_MAX, INT64_MIN};
    }
}

/// Exceptions of one process, kind and code.
struct Group {
    std::vector<size_t> events;  // indexes into Logcat::exceptions()
    InFlight inFlight;           // at the first of them
};

/// By first appearance.
std::vector<Group> groupExceptions(const std::vector<CameraException>& exceptions) {
    std::map<std::tuple<int, ExceptionKind, uint32_t>, size_t> known;
    std::vector<Group> groups;
    for (size_t i = 0; i < exceptions.size(); i++) {
        const CameraException& exception = exceptions[i];
        const auto [found, isNew] =
                known.try_emplace({exception.pid, exception.kind, exception.code}, groups.size());
        if (isNew) {
            groups.emplace_back();
        }
        groups[found->second].events.push_back(i);
    }
    return groups;
}

/// Finds what was in flight when the first of each group happened, or in that millisecond, if
/// stamps tell no more. One pass over the scopes of a process, however many exceptions it has.
void findInFlight(std::vector<Group>& groups, const Logcat& logcat, const Analysis& log) {
    std::vector<std::pair<int64_t, size_t>> times;  // and indexes of groups
    for (size_t i = 0; i < groups.size(); i++) {
        const CameraException& first = logcat.exceptions()[groups[i].events.front()];
        if (first.pid == log.files.pid) {
            times.emplace_back(first.wall, i);
        }
    }
    std::sort(times.begin(), times.end());
    // The newest first, as not all may be kept.
    for (size_t s = times.empty() ? 0 : log.scopes.size(); s-- > 0;) {
        const Scope& scope = log.scopes[s];
        const auto [begin, end] = spanOf(log, scope);
        const std::pair from(begin - logcat.resolution() + 1, size_t{0});
        for (auto i = std::lower_bound(times.begin(), times.end(), from);
             i != times.end() && i->first <= end; ++i) {
            Group& group = groups[i->second];
            const CameraException& first = logcat.exceptions()[group.events.front()];
            const bool isOwn = log.threads[scope.thread].tid == first.tid;
            size_t& kept = isOwn ? group.inFlight.own : group.inFlight.others;
            group.inFlight.count++;
            if (kept < kMaxInFlight) {
                kept++;
                const int64_t openFor =
                        scope.enter != kNone ? std::max(first.wall - begin, int64_t{0}) : kNoTime;
                group.inFlight.scopes.push_back({&log, &scope, openFor, isOwn});
            }
        }
    }
}

std::vector<Group> collectGroups(const Logcat& logcat,
                                 const std::vector<std::unique_ptr<Analysis>>& logs) {
    std::vector<Group> groups = groupExceptions(logcat.exceptions());
    for (const auto& log : logs) {
        findInFlight(groups, logcat, *log);
    }
    for (Group& group : groups) {
        std::vector<OpenScope>& scopes = group.inFlight.scopes;
        std::reverse(scopes.begin(), scopes.end());
        std::stable_sort(scopes.begin(), scopes.end(), [](const OpenScope& a, const OpenScope& b) {
            return std::pair(!a.isOwn, a.scope->thread) < std::pair(!b.isOwn, b.scope->thread);
        });
    }
    return groups;
}

std::string_view kindOf(ExceptionKind kind) {
    switch (kind) {
        case ExceptionKind::REPORTED:
            return "reported";
        case ExceptionKind::PERSISTENT:
            return "persistent";
        case ExceptionKind::LEFT_BEHIND:
            return "left behind";
        case ExceptionKind::SENSOR_PROBE:
            return "sensor name asked";
        case ExceptionKind::DARK_SCREEN:
            return "dark screen";
    }
    return {};
}

std::string codeOf(const CameraException& exception) {
    return exception.code == 0                            ? "unknown"
           : exception.kind == ExceptionKind::DARK_SCREEN ? fmt::format("{}", exception.code)
                                                          : fmt::format("0x{:x}", exception.code);
}

std::string_view orDash(std::string_view text) {
    return text.empty() ? "-" : text;
}

/// Without the year.
std::string showTime(int64_t wall) {
    return wall == kNoTime ? "-" : formatDateTime(wall).substr(sizeof("2026-") - 1);
}

/// Different values of the group's exceptions; if there are several: "took it (2), failed (1)".
std::string tally(const std::vector<CameraException>& exceptions, const std::vector<size_t>& group,
                  std::string CameraException::*member) {
    std::vector<std::pair<std::string_view, size_t>> values;
    for (const size_t i : group) {
        const std::string& value = exceptions[i].*member;
        const auto found = std::find_if(values.begin(), values.end(),
                                        [&](const auto& known) { return known.first == value; });
        if (found != values.end()) {
            found->second++;
        } else if (!value.empty()) {
            values.emplace_back(value, 1);
        }
    }
    std::string text;
    for (const auto& [value, count] : values) {
        text += text.empty() ? "" : ", ";
        text += value;
        text += values.size() > 1 ? fmt::format(" ({})", count) : "";
    }
    return text;
}

/// Texts of a log hold any bytes, but one line of the table is one line of the terminal.
void writeLine(Page& page, std::string line) {
    std::replace_if(
            line.begin(), line.end(), [](char c) { return (c >= '\0' && c < ' ') || c == '\x7f'; },
            ' ');
    line = shorten(line, kColumns);
    line.resize(line.find_last_not_of(' ') + 1);
    page.addLogged(line).endLine();
}

void printGroup(const std::vector<CameraException>& exceptions, const std::vector<size_t>& group,
                Page& page) {
    const CameraException& first = exceptions[group.front()];
    const ExceptionName name = nameOf(first);
    writeLine(page, fmt::format("{:10}  {:27}  {:14}  {:>3}  {:>6}  {:>5}  {}", codeOf(first),
                                orDash(name.name), orDash(name.category),
                                first.camera ? fmt::format("{}", *first.camera) : "-",
                                first.mode ? fmt::format("0x{:x}", *first.mode) : "-", group.size(),
                                showTime(first.wall)));
    std::string process = fmt::format("    {}, pid {}", kindOf(first.kind), first.pid);
    if (const std::string packages = tally(exceptions, group, &CameraException::package);
        !packages.empty()) {
        process += ", package " + packages;
    }
    if (group.size() > 1) {
        process += ", last " + showTime(exceptions[group.back()].wall);
    }
    writeLine(page, process);
    const std::pair<std::string_view, std::string CameraException::*> kAnswers[] = {
            {"collector", &CameraException::collector},
            {"node", &CameraException::node},
            {"stats", &CameraException::stats},
            {"detail", &CameraException::detail},
    };
    for (const auto& [what, member] : kAnswers) {
        if (const std::string text = tally(exceptions, group, member); !text.empty()) {
            writeLine(page, fmt::format("    {:10} {}", what, text));
        }
    }
}

void printInFlight(const InFlight& inFlight, Page& page) {
    std::string_view heading = "in flight";
    for (const auto& [log, scope, openFor, isOwn] : inFlight.scopes) {
        const ScopeName& name = log->names[scope->name];
        const std::string since =
                openFor == kNoTime
                        ? "from the start"
                        : fmt::format("for {:.3f} ms", static_cast<double>(openFor) / 1e3);
        writeLine(page, fmt::format("    {:10} request {:<8} {:36} thread {:<7} {}",
                                    std::exchange(heading, ""), scope->request,
                                    fmt::format("{}/{}", moduleOf(name), name.name),
                                    log->threads[scope->thread].tid, since));
    }
    if (inFlight.count > inFlight.scopes.size()) {
        writeLine(page,
                  fmt::format("{:15}and {} more", "", inFlight.count - inFlight.scopes.size()));
    }
}

ordered_json eventToJson(const CameraException& exception) {
    ordered_json json;
    if (exception.wall != kNoTime) {
        json["time"] = formatDateTime(exception.wall);
    }
    json["tid"] = exception.tid;
    if (exception.camera) {
        json["camera"] = *exception.camera;
    }
    if (exception.mode) {
        json["mode"] = *exception.mode;
    }
    const std::pair<const char*, const std::string&> kTexts[] = {
            {"package", exception.package}, {"collector", exception.collector},
            {"node", exception.node},       {"stats", exception.stats},
            {"detail", exception.detail},
    };
    for (const auto& [name, text] : kTexts) {
        if (!text.empty()) {
            json[name] = toUtf8(text);
        }
    }
    return json;
}

ordered_json scopesToJson(const InFlight& inFlight) {
    ordered_json json = ordered_json::array();
    for (const auto& [log, scope, openFor, isOwn] : inFlight.scopes) {
        const ScopeName& name = log->names[scope->name];
        ordered_json& open = json.emplace_back(ordered_json{
                {"request", scope->request},
                {"module", toUtf8(name.module)},
                {"scope", toUtf8(name.name)},
                {"tid", log->threads[scope->thread].tid},
        });
        if (openFor != kNoTime) {
            open["open_us"] = openFor;
        }
    }
    return json;
}

}  // namespace

void printExceptions(const Logcat& logcat, const std::vector<std::unique_ptr<Analysis>>& logs,
                     Page& page) {
    const std::vector<CameraException>& exceptions = logcat.exceptions();
    if (exceptions.empty()) {
        writeLine(page, "no camera exceptions in the Android log");
    } else {
        writeLine(page, fmt::format("{:10}  {:27}  {:14}  {:>3}  {:>6}  {:>5}  {}", "code", "name",
                                    "class", "cam", "mode", "count", "first seen"));
    }
    for (const Group& group : collectGroups(logcat, logs)) {
        printGroup(exceptions, group.events, page);
        printInFlight(group.inFlight, page);
    }
    if (logcat.refusedCalls() > 0) {
        writeLine(page, fmt::format("{} calls refused: no such class, number or module",
                                    logcat.refusedCalls()));
    }
}

nlohmann::ordered_json exceptionsToJson(const Logcat& logcat,
                                        const std::vector<std::unique_ptr<Analysis>>& logs) {
    const std::vector<CameraException>& exceptions = logcat.exceptions();
    ordered_json codes = ordered_json::array();
    for (const Group& group : collectGroups(logcat, logs)) {
        const CameraException& first = exceptions[group.events.front()];
        const ExceptionName name = nameOf(first);
        ordered_json events = ordered_json::array();
        for (const size_t i : group.events) {
            events.push_back(eventToJson(exceptions[i]));
        }
        codes.push_back({
                {"code", codeOf(first)},
                {"name", name.name},
                {"class", name.category},
                {"kind", kindOf(first.kind)},
                {"pid", first.pid},
                {"events", std::move(events)},
                {"in_flight", scopesToJson(group.inFlight)},
                {"in_flight_count", group.inFlight.count},
        });
    }
    return {{"exceptions", std::move(codes)}, {"refused_calls", logcat.refusedCalls()}};
}

}  // namespace JCam::Tool
