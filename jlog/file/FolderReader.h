#pragma once

#include <cstddef>

namespace JCam::Utils::JLog::File {

/// Reads the names in a folder by system calls alone: opendir allocates, and readdir locks.
/// Signal-safe.
class FolderReader {
  public:
    explicit FolderReader(const char* path);
    ~FolderReader();
    FolderReader(const FolderReader&) = delete;
    FolderReader& operator=(const FolderReader&) = delete;

    [[nodiscard]] bool isOpen() const { return mFd >= 0; }
    /// The next name, "." and ".." included; valid until the next call. Null at the end, and when
    /// the folder cannot be read any further.
    const char* next();

  private:
    int mFd;
    size_t mPosition{0};
    size_t mFilled{0};
    /// What the kernel has handed out last. A name has at most 255 bytes.
    alignas(8) char mEntries[2048];
};

}  // namespace JCam::Utils::JLog::File
