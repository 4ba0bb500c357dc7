#include "ThreadtimeLine.h"

#include <climits>

#include "TextCursor.h"

namespace CameraHost {

namespace {

constexpr std::string_view kLevels = "VDIWEF";
/// Tags are padded to this width, so the colon behind one never stands further left. That decides
/// for tags which contain ": " themselves.
constexpr size_t kTagWidth = 8;

bool takeDate(TextCursor& cursor) {
    return cursor.takeField(2, 12) && cursor.take("-") && cursor.takeField(2, 31);
}

bool takeTime(TextCursor& cursor) {
    // 60 is a leap second.
    return cursor.takeField(2, 23) && cursor.take(":") && cursor.takeField(2, 59) &&
           cursor.take(":") && cursor.takeField(2, 60) && cursor.take(".");
}

bool takeFraction(TextCursor& cursor) {
    size_t digits = 0;
    while (cursor.takeField(1, 9)) {
        digits++;
    }
    return digits == 3 || digits == 6 || digits == 9;
}

bool takeId(TextCursor& cursor, int& id) {
    unsigned int number = 0;
    if (!cursor.takeBlanks() || !cursor.takeNumber(number) || number > INT_MAX) {
        return false;
    }
    id = static_cast<int>(number);
    return true;
}

bool takeLevel(TextCursor& cursor, char& level) {
    if (!cursor.takeBlanks() || cursor.rest().empty() ||
        kLevels.find(cursor.rest().front()) == std::string_view::npos) {
        return false;
    }
    level = cursor.rest().front();
    return cursor.take(cursor.rest().substr(0, 1)) && cursor.take(" ");
}

bool splitTagAndText(std::string_view rest, ThreadtimeLine& line) {
    size_t colon = rest.find(": ", kTagWidth);
    if (colon != std::string_view::npos) {
        line.text = rest.substr(colon + 2);
    } else if (rest.size() > kTagWidth && rest.ends_with(':')) {
        // An empty text whose trailing blank was stripped, as editors do.
        colon = rest.size() - 1;
        line.text = {};
    } else {
        return false;
    }
    line.tag = rest.substr(0, colon);
    line.tag = line.tag.substr(0, line.tag.find_last_not_of(' ') + 1);
    return true;
}

}  // namespace

std::optional<ThreadtimeLine> parseThreadtimeLine(std::string_view line, std::string_view& reason) {
    TextCursor cursor(line);
    ThreadtimeLine result{};
    if (line.find('\0') != std::string_view::npos) {
        reason = "a NUL byte in the line";
    } else if (!takeDate(cursor)) {
        reason = "no date MM-DD at the start";
    } else if (!cursor.takeBlanks() || !takeTime(cursor) || !takeFraction(cursor)) {
        reason = "no time hh:mm:ss.mmm behind the date";
    } else if (!takeId(cursor, result.pid)) {
        reason = "no process id";
    } else if (!takeId(cursor, result.tid)) {
        reason = "no thread id";
    } else if (!takeLevel(cursor, result.level)) {
        reason = "no level letter V, D, I, W, E or F";
    } else if (!splitTagAndText(cursor.rest(), result)) {
        reason = "no colon behind the tag";
    } else {
        reason = {};
        return result;
    }
    return std::nullopt;
}

}  // namespace CameraHost
