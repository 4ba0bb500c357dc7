#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "reader/LogFile.h"

namespace JCam::Tool {

/// The bytes from `begin` to `end` of a file.
struct Piece {
    uint32_t file = 0;  // index into SeriesFiles::files
    uint64_t begin = 0;
    uint64_t end = 0;
    /// The number of its first line; 0 if it follows the piece before it of its file.
    uint64_t line = 0;
};

/// What one start of a logger has left behind: the rotations of one series of files, and the crash
/// files of that process, among them those of black boxes.
struct SeriesFiles {
    int pid = 0;
    std::string start;                   // "YYYY_MMDD_hhmmss"
    std::vector<Reader::LogFile> files;  // in the order they were written, crash files last
    std::vector<uint64_t> sizes;         // of the files, in bytes, when they were looked at
    /// Each record once, in the order in which the logger's calls began.
    std::vector<Piece> pieces;
    uint64_t repeats = 0;                  // records of crash files that another file has, too
    [[nodiscard]] uint64_t bytes() const;  // of the pieces
    std::vector<std::string> problems;     // files that cannot be read, each with the reason
};

/// The series that files and folders hold, in the order they began. A folder is searched for log
/// files by their names; a file that is named itself may have any name. A path that does not exist,
/// or a folder that cannot be read, throws std::runtime_error with a message for the user.
[[nodiscard]] std::vector<SeriesFiles> findSeries(const std::vector<std::filesystem::path>& paths);

}  // namespace JCam::Tool
