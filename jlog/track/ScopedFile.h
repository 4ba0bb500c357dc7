#pragma once

#include <cstdio>

namespace JCam::Utils::JLog::Track {

/// A file that is closed with its scope.
class ScopedFile {
  public:
    /// `mode` is that of fopen. isOpen() tells whether that worked, and errno why not.
    ScopedFile(const char* path, const char* mode) : mFile(fopen(path, mode)) {}
    ~ScopedFile() {
        if (mFile != nullptr) {
            fclose(mFile);
        }
    }
    ScopedFile(const ScopedFile&) = delete;
    ScopedFile& operator=(const ScopedFile&) = delete;

    [[nodiscard]] bool isOpen() const { return mFile != nullptr; }
    [[nodiscard]] FILE* stream() const { return mFile; }
    [[nodiscard]] int fd() const { return fileno(mFile); }

  private:
    FILE* mFile;
};

}  // namespace JCam::Utils::JLog::Track
