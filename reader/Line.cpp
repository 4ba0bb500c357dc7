#include "reader/Line.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

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
    // Most tags are short, so that the colon is where the padding ends.
    const size_t colon =
            text.size() > kTagWidth + 1 && text[kTagWidth] == ':' && text[kTagWidth + 1] == ' '
                    ? kTagWidth
                    : text.find(": ", kTagWidth);
    if (colon != std::string_view::npos) {
        tag = text.substr(0, colon);
        text.remove_prefix(colon + 2);
    } else if (text.size() > kTagWidth && text.ends_with(':')) {
        // An empty text whose trailing blank was stripped, as editors do.
        tag = text.substr(0, text.size() - 1);
        text.remove_prefix(text.size());
    } else {
        return false;
    }
    tag = tag.substr(0, tag.find_last_not_of(' ') + 1);
    return true;
}

/// As takeNumber(), in a third of the time: every other line has three.
template <unsigned int Base>
bool takeDigits(std::string_view& text, uint32_t& number) {
    uint64_t value = 0;
    size_t count = 0;
    for (; count < text.size(); count++) {
        const unsigned int c = static_cast<unsigned char>(text[count]);
        const unsigned int letter = (c | 0x20U) - 'a';
        const unsigned int digit = c - '0' <= 9                ? c - '0'
                                   : Base == 16 && letter <= 5 ? letter + 10
                                                               : Base;
        if (digit == Base) {
            break;
        }
        value = value * Base + digit;
        if (value > UINT32_MAX) {
            return false;
        }
    }
    if (count == 0) {
        return false;
    }
    text.remove_prefix(count);
    number = static_cast<uint32_t>(value);
    return true;
}

bool parseScope(std::string_view text, Scope& scope) {
    if (!take(text, "R AppRequest:") || !takeDigits<10>(text, scope.requestNo) ||
        !take(text, " M[")) {
        return false;
    }
    scope.module = text.substr(0, text.find(':'));
    text.remove_prefix(scope.module.size());
    if (!take(text, ":") || !takeDigits<16>(text, scope.moduleId) || !take(text, "] ")) {
        return false;
    }
    scope.sign = take(text, "+  :") ? '+' : take(text, "-  :") ? '-' : '\0';
    // The serial is the last thing in the line, whatever is in the name.
    size_t digits = text.size();
    while (digits > 0 && text[digits - 1] >= '0' && text[digits - 1] <= '9') {
        digits--;
    }
    std::string_view serial = text.substr(digits);
    if (scope.sign == '\0' || !text.substr(0, digits).ends_with(" #")) {
        return false;
    }
    scope.name = text.substr(0, digits - 2);
    return takeDigits<10>(serial, scope.serial);
}

/// As the machine orders bytes: words are compared, not counted with.
uint64_t loadWord(const char* bytes) {
    uint64_t word = 0;
    std::memcpy(&word, bytes, sizeof(word));
    return word;
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

bool OriginReader::takeKnown(std::string_view& text, Origin& origin) const {
    if (text.size() < kStampChars + sizeof(uint64_t) ||
        std::memcmp(text.data(), mSecond, kSecondChars) != 0 ||
        (loadWord(text.data() + kStampChars) & mPidMask) != mPid) {
        return false;
    }
    int64_t fraction = 0;
    for (size_t i = kSecondChars; i < kStampChars; i++) {
        const auto digit = static_cast<unsigned char>(text[i] - '0');
        if (digit > 9) {
            return false;
        }
        fraction = fraction * 10 + digit;
    }
    const char* c = text.data() + kStampChars + mPidSize;
    const char* const end = text.data() + text.size();
    while (c < end && *c == ' ') {
        c++;
    }
    constexpr int kMaxDigits = 9;  // what an int takes whatever they are
    const char* const digits = c;
    int tid = 0;
    for (; c < end && *c >= '0' && *c <= '9' && c - digits < kMaxDigits; c++) {
        tid = tid * 10 + (*c - '0');
    }
    if (c == digits || c == end || *c != ' ') {
        return false;
    }
    origin.date = text.substr(0, kTimeAt - 1);
    origin.time = text.substr(kTimeAt, kStampChars - kTimeAt);
    origin.microseconds = mMicroseconds + fraction;
    origin.pid = mPidNumber;
    origin.tid = tid;
    text.remove_prefix(static_cast<size_t>(c - text.data()) + 1);
    return true;
}

bool OriginReader::take(std::string_view& text, Origin& origin) {
    if (mPidSize > 0 && takeKnown(text, origin)) {
        return true;
    }
    const std::string_view before = text;
    if (!takeOrigin(text, origin)) {
        return false;
    }
    // " 4321 ": the blanks in front of the thread id may differ from line to line.
    std::string_view pid = before.substr(kStampChars);
    const size_t digits = std::min(pid.find_first_not_of(' '), pid.size());
    const size_t size = std::min(pid.find(' ', digits), pid.size()) + 1;
    constexpr size_t kMicroTimeChars = kStampChars - kTimeAt;
    mPidSize = origin.time.size() == kMicroTimeChars && size <= sizeof(mPid) ? size : 0;
    mPid = 0;
    std::memcpy(&mPid, pid.data(), mPidSize);
    mPidMask = 0;
    std::memset(&mPidMask, 0xff, mPidSize);
    before.copy(mSecond, kSecondChars);
    mMicroseconds = origin.microseconds - origin.microseconds % 1000000;
    mPidNumber = origin.pid;
    return true;
}

std::string_view parseBehindOrigin(std::string_view text, Line& line) {
    if (text.size() < 2 || text[1] != ' ' || kLevels.find(text[0]) == std::string_view::npos) {
        return "no level letter V, D, I, W, E or F";
    }
    line.level = text[0];
    text.remove_prefix(2);
    if (!takeTag(text, line.tag)) {
        return "no colon behind the tag";
    }
    line.text = text;
    // A name may hold newlines; what is behind the serial of a scope is not its.
    if (line.tag == "JLog" && !parseScope(text, line.scope.emplace()) &&
        !parseScope(text.substr(0, text.find('\n')), *line.scope)) {
        line.scope.reset();
    }
    return {};
}

std::optional<Line> parseLine(std::string_view text, std::string_view& reason) {
    Line line;
    if (text.find('\0') != std::string_view::npos) {
        reason = "a NUL byte in the line";
    } else if (!takeOrigin(text, line.origin)) {
        reason = "no date, time, process id and thread id at the start";
    } else {
        reason = parseBehindOrigin(text, line);
    }
    return reason.empty() ? std::optional(line) : std::nullopt;
}

}  // namespace JCam::Reader
