#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace JCam::Support {

/// The names in a folder, sorted.
std::vector<std::string> namesIn(const std::string& folder);
/// Open file descriptors of this process, one that the look itself takes included.
inline size_t openDescriptors() {
    return namesIn("/proc/self/fd").size();
}
std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& content);
std::vector<std::string> splitLines(const std::string& text);

/// A folder of the test's own, gone with the object.
class TempFolder {
  public:
    explicit TempFolder(
            const std::filesystem::path& parent = std::filesystem::temp_directory_path());
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    [[nodiscard]] std::string path() const { return mPath.string(); }
    [[nodiscard]] std::string path(const std::string& name) const {
        return (mPath / name).string();
    }
    /// A parent in memory, where there is one: for tests whose time a disk would take.
    static std::filesystem::path inMemory();

    [[nodiscard]] std::vector<std::string> names() const { return namesIn(path()); }
    /// The contents of all its "cam_jlog_" files in the order of their indices, each without the
    /// rotation marker at its start.
    [[nodiscard]] std::string logText() const;

  private:
    std::filesystem::path mPath;
};

}  // namespace JCam::Support
