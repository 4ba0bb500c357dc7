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

std::optional<CrashCause> parseCrash(std::string_view text) {
    constexpr std::string_view kBehindSignal = " : addr = 0x";
    CrashCause crash;
    crash.signal = text.substr(0, text.find(kBehindSignal));
    text.remove_prefix(crash.signal.size());
    const bool fits = take(text, kBehindSignal) && takeNumber(text, crash.address, 16) &&
                      (text.empty() || text == "\n");
    return fits ? std::optional(crash) : std::nullopt;
}

}  // namespace

Records::Records(std::string_view bytes, int pid) : mRest(bytes), mPid(pid) {
    if (take(mRest, kMark)) {
        mOffset = kMark.size();
        mLineNumber = 2;
    }
}

bool Records::beginsRecord(std::string_view text) const {
    Origin origin;
    return takeOrigin(text, origin) && (mPid == 0 || origin.pid == mPid) && text.size() > 1 &&
           text[1] == ' ';
}

std::optional<Record> Records::next() {
    if (mRest.empty()) {
        return std::nullopt;
    }
    Record record;
    record.offset = mOffset;
    record.lineNumber = mLineNumber;
    const bool isLine = beginsRecord(mRest);
    std::string_view line = firstLine(mRest);
    if (mOffset == 0 && !isLine) {
        record.crash = parseCrash(line);
    }
    size_t size = 0;
    do {
        size += line.size();
        mLineNumber++;
        line = firstLine(mRest.substr(size));
        // No text has a NUL: what is behind one is not this record's.
    } while (!record.crash && !line.empty() && !beginsRecord(mRest.substr(size)) &&
             (!isLine || line.find('\0') == std::string_view::npos));

    record.bytes = mRest.substr(0, size);
    record.isTorn = !record.bytes.ends_with('\n');
    mRest.remove_prefix(size);
    mOffset += size;
    if (isLine) {
        record.line =
                parseLine(record.bytes.substr(0, size - (record.isTorn ? 0 : 1)), record.skipped);
    } else if (!record.crash) {
        record.skipped = "no record begins here";
    }
    return record;
}

}  // namespace JCam::Reader
