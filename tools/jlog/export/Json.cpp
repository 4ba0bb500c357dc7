#include "tools/jlog/export/Json.h"

#include <iterator>
#include <string_view>

#include <fmt/format.h>

#include "tools/jlog/Text.h"

namespace JCam::Tool {

namespace {

void appendKey(std::string& json, std::string_view key) {
    json += json.back() == '{' ? "\"" : ",\"";
    json += key;
    json += "\":";
}

void append(std::string& json, std::string_view key, std::string_view text) {
    appendKey(json, key);
    appendQuoted(json, text);
}

void append(std::string& json, std::string_view key, int64_t number) {
    appendKey(json, key);
    fmt::format_to(std::back_inserter(json), FMT_STRING("{}"), number);
}

void appendNull(std::string& json, std::string_view key) {
    appendKey(json, key);
    json += "null";
}

void appendTime(std::string& json, std::string_view key, int64_t wall) {
    if (wall == kNoTime) {
        appendNull(json, key);
    } else {
        append(json, key, formatDateTime(wall));
    }
}

void appendOptional(std::string& json, std::string_view key, bool isThere, int64_t number) {
    if (isThere) {
        append(json, key, number);
    } else {
        appendNull(json, key);
    }
}

void appendSeries(std::string& json, const Analysis& log, const std::string& label) {
    json += '{';
    append(json, "label", label);
    append(json, "pid", log.files.pid);
    appendTime(json, "start", log.start.value_or(kNoTime));
}

std::string_view nameOf(Kind kind) {
    switch (kind) {
        case Kind::ENTER:
            return "enter";
        case Kind::EXIT:
            return "exit";
        case Kind::DETAILS:
            return "details";
        case Kind::SIGNAL:
            return "signal";
        case Kind::SKIPPED:
            break;
    }
    return "skipped";
}

}  // namespace

std::string_view nameOf(Fate fate) {
    switch (fate) {
        case Fate::CLOSED:
            return "closed";
        case Fate::IN_FLIGHT:
            return "in flight";
        case Fate::EXIT_LOST:
            return "exit lost";
        case Fate::NO_ENTER:
            return "exit without enter";
        case Fate::ENTER_LOST:
            return "enter lost";
        case Fate::BEFORE_LOG:
            break;
    }
    return "opened before this log";
}

void appendQuoted(std::string& json, std::string_view text) {
    const auto isPlain = [](char c) {
        return static_cast<unsigned char>(c) >= 0x20 && static_cast<unsigned char>(c) < 0x7f &&
               c != '"' && c != '\\';
    };
    json += '"';
    size_t plain = 0;
    while (plain < text.size() && isPlain(text[plain])) {
        plain++;
    }
    json.append(text.substr(0, plain));
    for (const char c : toUtf8(text.substr(plain))) {
        if (c == '"' || c == '\\') {
            json += '\\';
            json += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            fmt::format_to(std::back_inserter(json), FMT_STRING("\\u{:04x}"), static_cast<int>(c));
        } else {
            json += c;
        }
    }
    json += '"';
}

void appendRecord(std::string& json, const Analysis& log, const Entry& entry, const Scope* scope,
                  const std::string& label) {
    appendSeries(json, log, label);
    appendTime(json, "time", entry.wall);
    appendOptional(json, "tid", entry.thread != kNone,
                   entry.thread != kNone ? log.threads[entry.thread].tid : 0);
    const bool isBox = entry.kind == Kind::SIGNAL && log.files.files[entry.file].isBlackBox;
    append(json, "kind", isBox ? "black box" : nameOf(entry.kind));
    if (entry.level == '\0') {
        appendNull(json, "level");
    } else {
        append(json, "level", std::string_view(&entry.level, 1));
    }
    if (scope == nullptr) {
        for (const char* const key : {"module", "module_id", "name", "request"}) {
            appendNull(json, key);
        }
    } else {
        const ScopeName& name = log.names[scope->name];
        append(json, "module", name.module);
        append(json, "module_id", name.moduleId);
        append(json, "name", name.name);
        append(json, "request", scope->request);
    }
    const bool isDetails = entry.kind == Kind::DETAILS;
    appendOptional(json, "serial", entry.kind == Kind::ENTER || entry.kind == Kind::EXIT,
                   entry.serial);
    appendKey(json, "inferred");
    json += isDetails && scope != nullptr ? "true" : "false";
    if (isDetails) {
        append(json, "tag", log.tags[entry.name]);
        append(json, "text", entry.text);
    } else {
        appendNull(json, "tag");
        if (entry.kind == Kind::SIGNAL || entry.kind == Kind::SKIPPED) {
            std::string_view bytes = entry.bytes;
            bytes.remove_suffix(bytes.ends_with('\n') ? 1 : 0);
            append(json, "text", bytes);
        } else {
            appendNull(json, "text");
        }
    }
    json += "}\n";
}

void appendLine(std::string& json, const LogcatLine& line, const std::string& label) {
    json += '{';
    append(json, "label", label);
    append(json, "pid", line.pid);
    appendNull(json, "start");
    appendTime(json, "time", line.wall);
    append(json, "tid", line.tid);
    append(json, "kind", "logcat");
    if (line.level == '\0') {
        appendNull(json, "level");
    } else {
        append(json, "level", std::string_view(&line.level, 1));
    }
    for (const char* const key : {"module", "module_id", "name", "request", "serial"}) {
        appendNull(json, key);
    }
    appendKey(json, "inferred");
    json += "false";
    append(json, "tag", line.tag);
    append(json, "text", line.text);
    json += "}\n";
}

void appendScope(std::string& json, const Analysis& log, const Scope& scope,
                 const std::string& label) {
    const ScopeName& name = log.names[scope.name];
    appendSeries(json, log, label);
    append(json, "request", scope.request);
    append(json, "module", name.module);
    append(json, "module_id", name.moduleId);
    append(json, "name", name.name);
    const bool hasEnter = scope.enter != kNone;
    const bool hasExit = scope.exit != kNone;
    appendTime(json, "begin", hasEnter ? log.wallOf(scope.begin, scope.enter) : kNoTime);
    appendTime(json, "end", hasExit ? log.wallOf(scope.end, scope.exit) : kNoTime);
    appendOptional(json, "duration_us", scope.isClosed(),
                   scope.isClosed() ? scope.end - scope.begin : 0);
    appendOptional(json, "enter_tid", hasEnter, log.threads[scope.thread].tid);
    appendOptional(json, "exit_tid", hasExit, hasExit ? log.threads[scope.exitThread].tid : 0);
    appendOptional(json, "enter_serial", hasEnter, hasEnter ? log.serialOf(scope.enter) : 0);
    appendOptional(json, "exit_serial", hasExit, hasExit ? log.serialOf(scope.exit) : 0);
    append(json, "fate", nameOf(log.fateOf(scope)));
    json += "}\n";
}

}  // namespace JCam::Tool
