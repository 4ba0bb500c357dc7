#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace JCam::Reader {

/// A log file by its name: cam_jlog_PID_[PREFIX_]YYYY_MMDD_hhmmss_NN.txt.
struct LogFile {
    std::filesystem::path path;
    int pid = 0;
    bool isCrash = false;     // it has a prefix: what a process left in memory when it ended
    bool isBlackBox = false;  // the prefix is "BB_": a later process saved it; is a crash, too
    std::string start;        // of its series: "YYYY_MMDD_hhmmss"; with a prefix, of the file
    unsigned int index = 0;
};

/// Empty if the file is not named like that.
[[nodiscard]] std::optional<LogFile> parseName(const std::filesystem::path& path);

/// The log files of a folder, process by process in the order they were written, with the crash
/// files last. With a `pid`, those of this process alone. A folder that cannot be read has none.
[[nodiscard]] std::vector<LogFile> listLogFiles(const std::filesystem::path& folder, int pid = 0);

}  // namespace JCam::Reader
