#pragma once

#include <cstdio>

namespace JCam::Utils::JLog::Track {

/// Closes its file at the end of the scope.
class ScopedFile {
  public:
    /// Takes the arguments of fopen. If isOpen() is false, errno says why.
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
