#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "reader/Line.h"

namespace JCam::Reader {

/// No more characters than these tell whether a record begins: an origin with more blanks or zeros
/// in front of its numbers is none.
constexpr size_t kMaxBeginChars = 128;

/// The memory that a dead process has left, from which a later one has made a file.
struct BlackBox {
    int pid = 0;
    std::string_view name;    // "pid = 4321, start = ..., box = ...": no other box has it
    std::string_view made;    // when its logger made it: "2026-11-26 18:00:02"
    std::string_view remark;  // for people, for example "ended without a dump"
};

/// The first line of a crash file: "SIGSEGV : addr = 0x10", or, of a black box,
/// "BLACK BOX : pid = 4321, start = 2026-11-26 18:00:01, box = 2026-11-26 18:00:02, REMARK".
struct CrashCause {
    std::string_view signal;  // empty for a black box
    uint64_t address = 0;
    std::optional<BlackBox> box;
};

/// Empty if the line, whose newline may be missing, is none.
[[nodiscard]] std::optional<CrashCause> parseCause(std::string_view line);

/// A piece of a log file. It has a line or a crash's cause, or else tells why it was skipped.
struct Record {
    uint64_t offset = 0;      // in the file
    uint64_t lineNumber = 0;  // of its first line; the file's first is 1
    uint64_t lines = 0;       // it has
    std::string_view bytes;   // all of it, with the newlines
    bool isTorn = false;      // the file ends here without a newline: the end of it is missing
    std::optional<Line> line;
    std::optional<CrashCause> crash;
    std::string_view skipped;  // the reason
};

/// Goes through the bytes of one file. Each byte is in exactly one record, those of the mark at the
/// start of a continued file aside.
///
/// A record begins where a line has an origin and a level; lines that have not belong to the text
/// before them. Two cases cannot be told: a text that holds what looks like a line of its own
/// process is two records, and a line that lost its newline (in a full buffer, or by a short write)
/// takes the next one into its text.
class Records {
  public:
    /// `pid`: whose lines they are; those of other processes belong to a text that quotes them. 0:
    /// whoever's.
    Records(std::string_view bytes, int pid);

    /// The next one, which holds until the one after it is asked for; nullptr at the end.
    [[nodiscard]] const Record* next();
    /// Where that begins.
    [[nodiscard]] size_t offset() const { return mBegin; }

  private:
    [[nodiscard]] bool beginsRecord(std::string_view text);
    [[nodiscard]] bool hasNul(size_t end);

    const std::string_view mBytes;
    const int mPid;
    size_t mBegin = 0;  // of the next record
    uint64_t mLineNumber = 1;
    OriginReader mOrigins;
    // Of the last text that was looked at and begins a record: the next one's.
    Origin mOrigin;
    size_t mOriginChars = 0;  // 0: the next record begins without one
    size_t mNul = 0;          // no byte in front of it is NUL
    Record mRecord;
};

/// Where the first line at or behind `from` is that begins a record of `pid` (0: of any process);
/// the size of `bytes` if there is none. `from` is 0 or behind a byte of `bytes`.
[[nodiscard]] size_t findRecord(std::string_view bytes, size_t from, int pid);

}  // namespace JCam::Reader
