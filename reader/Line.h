#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace JCam::Reader {

// All views point into the text that was parsed. Nothing allocates, and any bytes are safe input.

/// When a line was logged, and by which thread: "MM-DD hh:mm:ss.uuuuuu PPPPP TTTTT ".
struct Origin {
    std::string_view date;
    std::string_view time;     // with a fraction of 6 digits, in logcat's own lines 3 or 9
    int64_t microseconds = 0;  // since midnight
    int pid = 0;
    int tid = 0;
};

/// Takes an origin off the front of `text`, with the blank behind it. False if there is none; then
/// `text` stays as it is.
[[nodiscard]] bool takeOrigin(std::string_view& text, Origin& origin);

/// Takes origins that follow each other: most share their second and their process with the one
/// before, and those bytes are then compared and not parsed.
class OriginReader {
  public:
    /// As takeOrigin().
    [[nodiscard]] bool take(std::string_view& text, Origin& origin);

  private:
    [[nodiscard]] bool takeKnown(std::string_view& text, Origin& origin) const;

    static constexpr size_t kSecondChars = 15;  // "MM-DD hh:mm:ss."
    static constexpr size_t kStampChars = kSecondChars + 6;

    char mSecond[kSecondChars + 1] = {};
    int64_t mMicroseconds = 0;  // of the second, since midnight
    uint64_t mPid = 0;          // the bytes behind the stamp up to the thread id: " 4321 "
    uint64_t mPidMask = 0;      // of so many bytes
    size_t mPidSize = 0;        // 0: nothing is known
    int mPidNumber = 0;
};

/// The text of an enter or exit line: "R AppRequest:42 M[Preview:4] +  :processFrame #17".
struct Scope {
    uint32_t requestNo = 0;
    std::string_view module;
    uint32_t moduleId = 0;
    char sign = '\0';  // '+' or '-'
    std::string_view name;
    uint32_t serial = 0;
};

/// A line in the columns that the log files share with logcat: origin, level, tag, text. Tag, scope
/// name and text may hold newlines.
struct Line {
    Origin origin;
    char level = '\0';      // one of V D I W E F
    std::string_view tag;   // without the blanks that pad it to eight
    std::string_view text;  // may be empty
    std::optional<Scope> scope;
};

/// Parses a line without its final newline. On failure the result is empty, and `reason` names the
/// first part that does not fit. A tag that has ": " behind its eighth character is taken to end
/// there.
[[nodiscard]] std::optional<Line> parseLine(std::string_view text, std::string_view& reason);

/// Parses what follows the origin of `line`, a text without NUL, into the rest of `line`, which has
/// no scope yet. Empty if it fits, else the reason.
[[nodiscard]] std::string_view parseBehindOrigin(std::string_view text, Line& line);

}  // namespace JCam::Reader
