#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string_view>

#include "LogFiles.h"

namespace CameraHost {

/// A line of a log file that holds a record, or rather the first line of its text. The views point
/// into the line that was parsed.
struct RecordLine {
    /// The text of an enter or exit line: "R AppRequest:REQ M[NAME:ID] +  :SCOPE #SERIAL".
    struct Scope {
        uint32_t requestNo;
        uint32_t moduleId;
        char sign;  // '+' or '-'
        std::string_view name;
        uint32_t serial;
    };

    int tid;
    char level;
    std::string_view tag;
    std::string_view text;
    std::optional<Scope> scope;  // of enter and exit lines
};

/// Whether this is the line that a rotation writes ahead of everything else into its new file.
[[nodiscard]] bool isRotationMarker(const FileLine& line);

/// Parses a line of process `pid`. On failure the result is empty and `reason` tells why.
[[nodiscard]] std::optional<RecordLine> parseRecordLine(pid_t pid, const FileLine& line,
                                                        std::string_view& reason);

/// Reads "T<thread>:<number>" behind the " seq=" of a text. Two of them are two texts in one line.
[[nodiscard]] bool parseSeq(std::string_view text, uint32_t& thread, uint64_t& number);

}  // namespace CameraHost
