#include "reader/Records.h"

#include <algorithm>
#include <cstddef>

#include "reader/Text.h"

namespace JCam::Reader {

namespace {

constexpr std::string_view kMark = "-- CONTINUED --\n";

/// The first line of `text`, with its newline if it has one.
std::string_view firstLine(std::string_view text) {
    const size_t newline = text.find('\n');
    return text.substr(0, newline == std::string_view::npos ? newline : newline + 1);
}

bool takeStamp(std::string_view& text, std::string_view& stamp) {
    constexpr std::string_view kShape = "0000-00-00 00:00:00";
    stamp = text.substr(0, kShape.size());
    text.remove_prefix(stamp.size());
    return hasShape(stamp, kShape);
}

/// `text`: what is behind "BLACK BOX : ", without a newline.
std::optional<BlackBox> parseBox(std::string_view text) {
    BlackBox box;
    std::string_view rest = text;
    std::string_view start;
    if (!take(rest, "pid = ") || !takeNumber(rest, box.pid) || !take(rest, ", start = ") ||
        !takeStamp(rest, start) || !take(rest, ", box = ") || !takeStamp(rest, box.made)) {
        return std::nullopt;
    }
    box.name = text.substr(0, text.size() - rest.size());
    if (!take(rest, ", ") && !rest.empty()) {
        return std::nullopt;
    }
    box.remark = rest;
    return box;
}

/// Takes the origin off a text that begins a record.
bool takeBegin(OriginReader& origins, std::string_view& text, Origin& origin, int pid) {
    std::string_view head = text.substr(0, kMaxBeginChars);
    const size_t size = head.size();
    if (!origins.take(head, origin) || (pid != 0 && origin.pid != pid) || head.size() < 2 ||
        head[1] != ' ') {
        return false;
    }
    text.remove_prefix(size - head.size());
    return true;
}

/// Whether `line`, the last one of a file, is the begin of a record that ends within its origin.
bool isTornBegin(std::string_view line) {
    constexpr std::string_view kShape = "00-00 00:00:00.000000";
    const std::string_view stamp = line.substr(0, kShape.size());
    return !line.ends_with('\n') && hasShape(stamp, kShape.substr(0, stamp.size())) &&
           line.find_first_not_of("0123456789 VDIWEF", stamp.size()) == std::string_view::npos;
}

}  // namespace

std::optional<CrashCause> parseCause(std::string_view line) {
    constexpr std::string_view kBehindSignal = " : addr = ";
    std::string_view text = line;
    text.remove_suffix(text.ends_with('\n') ? 1 : 0);
    CrashCause cause;
    if (take(text, "BLACK BOX : ")) {
        cause.box = parseBox(text);
        return cause.box ? std::optional(cause) : std::nullopt;
    }
    cause.signal = text.substr(0, text.find(kBehindSignal));
    text.remove_prefix(cause.signal.size());
    // Libraries of C differ in how they print a null pointer.
    const bool fits =
            take(text, kBehindSignal) &&
            (take(text, "(nil)") || (take(text, "0x") && takeNumber(text, cause.address, 16))) &&
            text.empty();
    return fits ? std::optional(cause) : std::nullopt;
}

Records::Records(std::string_view bytes, int pid) : mBytes(bytes), mPid(pid) {
    if (bytes.starts_with(kMark)) {
        mBegin = kMark.size();
        mLineNumber = 2;
    }
    static_cast<void>(beginsRecord(bytes.substr(mBegin)));
}

bool Records::beginsRecord(std::string_view text) {
    std::string_view rest = text;
    const bool begins = takeBegin(mOrigins, rest, mOrigin, mPid);
    mOriginChars = begins ? text.size() - rest.size() : 0;
    return begins;
}

/// Whether there is a NUL from the next record's begin to `end`. Looks some lines ahead at a time.
bool Records::hasNul(size_t end) {
    constexpr size_t kStep = 65536;
    mNul = std::max(mNul, mBegin);
    while (mNul < end && mBytes[mNul] != '\0') {
        const std::string_view window = mBytes.substr(mNul, kStep);
        mNul += std::min(window.find('\0'), window.size());
    }
    return mNul < end;
}

const Record* Records::next() {
    const std::string_view rest = mBytes.substr(mBegin);
    if (rest.empty()) {
        return nullptr;
    }
    // Field by field: a new object would be cleared first, which takes a fifth of the time.
    Record& record = mRecord;
    record.offset = mBegin;
    record.lineNumber = mLineNumber;
    record.skipped = {};
    const size_t originChars = mOriginChars;
    const bool isLine = originChars > 0;
    std::string_view line = firstLine(rest);
    if (isLine) {
        if (!record.line) {
            record.line.emplace();
        }
        record.line->origin = mOrigin;
        record.line->scope.reset();
    } else {
        record.line.reset();
    }
    record.crash = !isLine && mBegin == 0 ? parseCause(line) : std::nullopt;
    size_t size = 0;
    do {
        size += line.size();
        mLineNumber++;
        line = rest.substr(size);
    } while (!line.empty() && !beginsRecord(line) && !record.crash &&
             // No text has a NUL: what is behind one is not this record's.
             (line = firstLine(line), !isLine || !hasNul(mBegin + size + line.size())) &&
             !(isLine && isTornBegin(line)));

    record.lines = mLineNumber - record.lineNumber;
    record.bytes = rest.substr(0, size);
    record.isTorn = !record.bytes.ends_with('\n');
    if (isLine) {
        const std::string_view text =
                record.bytes.substr(originChars, size - originChars - (record.isTorn ? 0 : 1));
        record.skipped = hasNul(mBegin + size) ? "a NUL byte in the line"
                                               : parseBehindOrigin(text, *record.line);
        if (!record.skipped.empty()) {
            record.line.reset();
        }
    } else if (!record.crash) {
        record.skipped = "no record begins here";
    }
    mBegin += size;
    return &record;
}

size_t findRecord(std::string_view bytes, size_t from, int pid) {
    OriginReader origins;
    Origin origin;
    size_t begin = from;
    if (from > 0 && bytes[from - 1] != '\n') {
        begin = std::min(bytes.find('\n', from), bytes.size() - 1) + 1;
    }
    while (begin < bytes.size()) {
        std::string_view text = bytes.substr(begin);
        if (takeBegin(origins, text, origin, pid)) {
            return begin;
        }
        begin = std::min(bytes.find('\n', begin), bytes.size() - 1) + 1;
    }
    return bytes.size();
}

}  // namespace JCam::Reader
