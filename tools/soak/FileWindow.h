#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <vector>

namespace JCam::Soak {

/// A file, read from its start to its end through a window that holds any record.
class FileWindow {
  public:
    /// Throws if the file cannot be opened.
    explicit FileWindow(const std::filesystem::path& path);

    /// What comes next: kAheadBytes or more, or all that is left; empty at the end. Stands until
    /// the next call.
    [[nodiscard]] std::string_view ahead();
    /// Moves on behind `bytes` of it.
    void advance(size_t bytes);
    /// Where ahead() begins in the file.
    [[nodiscard]] uint64_t offset() const { return mOffset; }

  private:
    static constexpr size_t kAheadBytes = 4096;
    static constexpr size_t kWindowBytes = 1 << 20;

    std::ifstream mFile;
    std::vector<char> mBytes;
    size_t mBegin{0};
    size_t mEnd{0};
    uint64_t mOffset{0};
};

}  // namespace JCam::Soak
