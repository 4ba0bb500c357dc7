#pragma once

#include <cstdint>
#include <filesystem>

namespace JCam::Bench {

struct FileCount {
    uint64_t files{0};
    uint64_t lines{0};
    uint64_t bytes{0};
};

/// Counts the regular files of `folder`, their newlines and bytes.
FileCount countLines(const std::filesystem::path& folder);

/// An empty folder, deleted with the object.
class ScratchFolder {
  public:
    /// In `parent`. If that is empty, in /dev/shm, so that no disk takes part in the measurement,
    /// or else in the folder of temporary files.
    explicit ScratchFolder(const std::filesystem::path& parent);
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return mPath; }

  private:
    std::filesystem::path mPath;
};

}  // namespace JCam::Bench
