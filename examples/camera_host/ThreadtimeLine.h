#pragma once

#include <optional>
#include <string_view>

namespace CameraHost {

/// A log line in the "threadtime" form, which logcat prints and our own files share:
///
///     MM-DD hh:mm:ss.mmm PPPPP TTTTT L TAG     : text
///
/// The views point into the line that was parsed.
struct ThreadtimeLine {
    int pid;
    int tid;
    char level;             // one of V D I W E F
    std::string_view tag;   // without the blanks that pad it to eight
    std::string_view text;  // may be empty
};

/// Parses one line without its newline. A fraction of 3, 6 or 9 digits is taken. On failure the
/// result is empty and `reason` names the first part that does not fit. Pure: any bytes are safe
/// input, nothing is allocated.
[[nodiscard]] std::optional<ThreadtimeLine> parseThreadtimeLine(std::string_view line,
                                                                std::string_view& reason);

}  // namespace CameraHost
