#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace CameraHost {

struct LogFile {
    std::filesystem::path path;
    uint64_t bytes;
};

/// The log files of process `pid` in a folder, in the order they were written; crash files come
/// last.
[[nodiscard]] std::vector<LogFile> findLogFiles(const std::filesystem::path& folder, pid_t pid);

/// Remembers which files a log folder holds before a run, and finds those that the run added.
class FolderSnapshot {
  public:
    /// A folder that does not exist is an empty one.
    explicit FolderSnapshot(std::filesystem::path folder);

    /// Those of findLogFiles() that were not there before.
    [[nodiscard]] std::vector<LogFile> newFiles(pid_t pid) const;

  private:
    const std::filesystem::path mFolder;
    std::set<std::filesystem::path> mBefore;
};

/// One line of a log file, without its newline.
struct FileLine {
    const LogFile& file;
    uint64_t number;  // the first is 1
    std::string_view text;
    bool complete;  // its newline is there
};

/// Hands every line of the files to `visit`. A file that cannot be opened throws.
void forEachLine(const std::vector<LogFile>& files,
                 const std::function<void(const FileLine&)>& visit);

/// The first `count` lines of a file, or fewer if it has fewer.
[[nodiscard]] std::vector<std::string> firstLines(const LogFile& file, size_t count);

/// The last `count` lines of a file, or fewer if it has fewer.
[[nodiscard]] std::vector<std::string> lastLines(const LogFile& file, size_t count);

}  // namespace CameraHost
