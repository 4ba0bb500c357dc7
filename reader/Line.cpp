#include "reader/Line.h"

#include <algorithm>
#include <cstddef>

#include "reader/Text.h"

namespace JCam::Reader {

namespace {

constexpr std::string_view kStampShape = "00-00 00:00:00.000";
constexpr size_t kTimeAt = 6;
constexpr size_t kFractionAt = 15;
constexpr size_t kMaxStampChars = kFractionAt + 9;
constexpr std::string_view kLevels = "VDIWEF";
/// Tags are padded to this width, so the colon behind one never stands further left.
constexpr size_t kTagWidth = 8;

/// Whether `text` begins with the characters of `shape`, and a digit where that has a 0.
bool hasShape(std::string_view text, std::string_view shape) {
    return text.size() >= shape.size() &&
           std::equal(shape.begin(), shape.end(), text.begin(), [](char expected, char c) {
               return expected == '0' ? c >= '0' && c <= '9' : c == expected;
           });
}

int64_t numberOf(std::string_view digits) {
    int64_t number = 0;
    for (const char digit : digits) {
        number = number * 10 + (digit - '0');
    }
    return number;
}

int64_t microsecondsOf(std::string_view stamp) {
    const int64_t minutes = numberOf(stamp.substr(kTimeAt, 2)) * 60 + numberOf(stamp.substr(9, 2));
    const int64_t seconds = minutes * 60 + numberOf(stamp.substr(12, 2));
    const std::string_view fraction = stamp.substr(kFractionAt, 6);
    return seconds * 1000000 + numberOf(fraction) * (fraction.size() == 3 ? 1000 : 1);
}

bool takeId(std::string_view& text, int& id) {
    const size_t blanks = std::min(text.find_first_not_of(' '), text.size());
    text.remove_prefix(blanks);
    return blanks > 0 && takeNumber(text, id);
}

bool takeTag(std::string_view& text, std::string_view& tag) {
    const size_t colon = text.find(": ", kTagWidth);
    if (colon != std::string_view::npos) {
        tag = text.substr(0, colon);
        text.remove_prefix(colon + 2);
    } else if (text.size() > kTagWidth && text.ends_with(':')) {
        // An empty text whose trailing blank was stripped, as editors do.
        tag = text.substr(0, text.size() - 1);
        text = {};
    } else {
        return false;
    }
    tag = tag.substr(0, tag.find_last_not_of(' ') + 1);
    return true;
}

std::optional<Scope> parseScope(std::string_view text) {
    Scope scope;
    if (!take(text, "R AppRequest:") || !takeNumber(text, scope.requestNo) || !take(text, " M[")) {
        return std::nullopt;
    }
    scope.module = text.substr(0, text.find(':'));
    text.remove_prefix(scope.module.size());
    if (!take(text, ":") || !takeNumber(text, scope.moduleId, 16) || !take(text, "] ")) {
        return std::nullopt;
    }
    scope.sign = take(text, "+  :") ? '+' : take(text, "-  :") ? '-' : '\0';
    const size_t hash = text.rfind(" #");
    if (scope.sign == '\0' || hash == std::string_view::npos) {
        return std::nullopt;
    }
    scope.name = text.substr(0, hash);
    text.remove_prefix(hash + 2);
    return takeNumber(text, scope.serial) && text.empty() ? std::optional(scope) : std::nullopt;
}

}  // namespace

bool takeOrigin(std::string_view& text, Origin& origin) {
    if (!hasShape(text, kStampShape)) {
        return false;
    }
    size_t stampChars = kStampShape.size();
    while (stampChars < kMaxStampChars && hasShape(text.substr(stampChars), "000")) {
        stampChars += 3;
    }
    std::string_view rest = text.substr(stampChars);
    if (!takeId(rest, origin.pid) || !takeId(rest, origin.tid) || !take(rest, " ")) {
        return false;
    }
    const std::string_view stamp = text.substr(0, stampChars);
    origin.date = stamp.substr(0, kTimeAt - 1);
    origin.time = stamp.substr(kTimeAt);
    origin.microseconds = microsecondsOf(stamp);
    text = rest;
    return true;
}

std::optional<Line> parseLine(std::string_view text, std::string_view& reason) {
    Line line;
    if (text.find('\0') != std::string_view::npos) {
        reason = "a NUL byte in the line";
    } else if (!takeOrigin(text, line.origin)) {
        reason = "no date, time, process id and thread id at the start";
    } else if (text.size() < 2 || text[1] != ' ' ||
               kLevels.find(text[0]) == std::string_view::npos) {
        reason = "no level letter V, D, I, W, E or F";
    } else {
        line.level = text[0];
        text.remove_prefix(2);
        if (takeTag(text, line.tag)) {
            line.text = text;
            if (line.tag == "JLog") {
                line.scope = parseScope(text);
            }
            reason = {};
            return line;
        }
        reason = "no colon behind the tag";
    }
    return std::nullopt;
}

}  // namespace JCam::Reader
