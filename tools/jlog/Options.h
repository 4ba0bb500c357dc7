#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tools/jlog/analysis/Selection.h"

namespace JCam::Tool {

enum ExitStatus : int {
    EXIT_FINE = 0,
    EXIT_FOUND = 1,  // a difference or damage, if asked for; or nothing of what was wanted
    EXIT_USAGE = 2,
    EXIT_UNREADABLE = 3,
};

enum class Command : uint8_t {
    REPORT,
    REQUESTS,
    SHOW,
    CRASH,
    MERGE,
    DIFF,
    FOLLOW,
    EXPORT,
    RECOVER
};

/// What the command line says.
struct Options {
    Command command = Command::REPORT;
    std::vector<std::filesystem::path> paths;
    std::filesystem::path oldPath;  // diff
    std::filesystem::path newPath;
    std::optional<std::filesystem::path> logcat;
    bool json = false;

    // Selection, as it was typed: times depend on the logs.
    std::string since;
    std::string until;
    std::optional<int> pid;
    std::optional<int> tid;
    std::optional<std::string> module;
    std::string level = "V";

    bool strict = false;              // report
    bool all = false;                 // report
    std::optional<uint32_t> slow;     // requests
    std::optional<uint32_t> request;  // show
    std::string around;
    double before = 0.1;  // seconds
    double after = 0.1;
    double threshold = 10;             // diff: per cent
    std::string format;                // export
    std::filesystem::path outputFile;  // export, recover
    bool scopesOnly = false;
    bool recordsOnly = false;
    std::string timeZone;
    std::string label;  // ndjson
};

/// Fills `options`. A value is the exit status to end with: help was asked for. What is wrong with
/// the command line throws std::invalid_argument with a message for the user.
[[nodiscard]] std::optional<int> parseOptions(int argc, char** argv, Options& options);

/// A time that a user has typed: "hh:mm[:ss[.ffffff]]" of the day of `near`, with "MM-DD " or
/// "YYYY-MM-DD " in front of it of that day. `near` is an Entry::wall. Empty if it is no time.
[[nodiscard]] std::optional<int64_t> parseTime(const std::string& text, int64_t near);

}  // namespace JCam::Tool
