#include "RecordLine.h"

#include "TextCursor.h"
#include "ThreadtimeLine.h"

namespace CameraHost {

namespace {

std::optional<RecordLine::Scope> parseScope(std::string_view text) {
    RecordLine::Scope result{};
    TextCursor cursor(text);
    if (!cursor.take("R AppRequest:") || !cursor.takeNumber(result.requestNo) ||
        !cursor.take(" M[")) {
        return std::nullopt;
    }
    TextCursor module(cursor.rest());
    if (!module.take(module.rest().substr(0, module.rest().find(':'))) || !module.take(":") ||
        !module.takeNumber(result.moduleId, 16) || !module.take("] ")) {
        return std::nullopt;
    }
    result.sign = module.take("+  :") ? '+' : '-';
    if (result.sign == '-' && !module.take("-  :")) {
        return std::nullopt;
    }
    const size_t hash = module.rest().rfind(" #");
    if (hash == std::string_view::npos) {
        return std::nullopt;
    }
    result.name = module.rest().substr(0, hash);
    TextCursor serial(module.rest().substr(hash + 2));
    if (!serial.takeNumber(result.serial) || !serial.rest().empty()) {
        return std::nullopt;
    }
    return result;
}

}  // namespace

bool isRotationMarker(const FileLine& line) {
    return line.number == 1 && line.complete && line.text == "-- CONTINUED --";
}

std::optional<RecordLine> parseRecordLine(pid_t pid, const FileLine& line,
                                          std::string_view& reason) {
    // "MM-DD hh:mm:ss.uuuuuu ": our files always have microseconds.
    constexpr size_t kDateBytes = 21;
    const std::optional<ThreadtimeLine> parsed = parseThreadtimeLine(line.text, reason);
    if (!line.complete) {
        reason = "no newline at the end";
        return std::nullopt;
    }
    if (!parsed.has_value()) {
        return std::nullopt;
    }
    if (line.text[kDateBytes] != ' ') {
        reason = "no microseconds";
        return std::nullopt;
    }
    if (parsed->pid != pid) {
        reason = "another process id";
        return std::nullopt;
    }
    RecordLine record = {parsed->tid, parsed->level, parsed->tag, parsed->text, std::nullopt};
    if (parsed->tag == "JLog") {
        record.scope = parseScope(parsed->text);
        if (!record.scope.has_value() || parsed->level != 'D') {
            reason = "not an enter or exit line";
            return std::nullopt;
        }
    }
    return record;
}

bool parseSeq(std::string_view text, uint32_t& thread, uint64_t& number) {
    constexpr std::string_view kSeq = " seq=";
    const size_t start = text.find(kSeq);
    if (start == std::string_view::npos || start != text.rfind(kSeq)) {
        return false;
    }
    TextCursor cursor(text.substr(start + kSeq.size()));
    return cursor.take("T") && cursor.takeNumber(thread) && cursor.take(":") &&
           cursor.takeNumber(number) && cursor.rest().empty();
}

}  // namespace CameraHost
