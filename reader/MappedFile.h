#pragma once

#include <filesystem>
#include <string_view>

namespace JCam::Reader {

/// The bytes that a file has when it is opened. It may grow meanwhile, as an open log file does,
/// but must not be truncated: the kernel answers a look behind its end with SIGBUS.
class MappedFile {
  public:
    explicit MappedFile(const std::filesystem::path& path);
    ~MappedFile();
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    /// False if the file cannot be opened or mapped.
    [[nodiscard]] bool isOpen() const { return mIsOpen; }
    [[nodiscard]] std::string_view bytes() const { return mBytes; }

  private:
    bool mIsOpen = false;
    std::string_view mBytes;
};

}  // namespace JCam::Reader
