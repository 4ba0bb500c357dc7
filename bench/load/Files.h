#pragma once

#include <cstdint>
#include <filesystem>

namespace JCam::Bench {

struct FileCount {
    uint64_t files{0};
    uint64_t lines{0};
    uint64_t bytes{0};
};

/// The regular files of `folder` and the newlines in them.
FileCount countLines(const std::filesystem::path& folder);

/// An empty folder of this process: in memory where the machine has such a file system, so that no
/// disk takes part in the measurement. It goes with the object.
class ScratchFolder {
  public:
    /// In `parent`; where that is empty, in /dev/shm or else among the temporary files.
    explicit ScratchFolder(const std::filesystem::path& parent);
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return mPath; }

  private:
    std::filesystem::path mPath;
};

}  // namespace JCam::Bench
