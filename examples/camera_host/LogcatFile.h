#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace CameraHost {

/// Writes the Android log of this process into a file, too, while it lives: in the lines of
/// "adb logcat -v threadtime -v usec". It has what the filter of the process lets pass; a filter
/// that takes away what the tracker says is lowered to priority info. One at a time.
class LogcatFile {
  public:
    /// Replaces the file. What cannot be opened throws std::runtime_error.
    explicit LogcatFile(const std::filesystem::path& path);
    ~LogcatFile();
    LogcatFile(const LogcatFile&) = delete;
    LogcatFile& operator=(const LogcatFile&) = delete;

    /// The messages of the calling thread, which must be the one that made the file, since the last
    /// call.
    [[nodiscard]] std::vector<std::string> takeMessages();

  private:
    const int32_t mMinimum;  // priority, of before
};

}  // namespace CameraHost
