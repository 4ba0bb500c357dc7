#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <string_view>

#include "Check.h"

namespace JCam::Fuzz {

/// A file that is nowhere but in memory, and has a path all the same.
class MemoryFile {
  public:
    MemoryFile() noexcept : mFd(memfd_create("fuzz", MFD_CLOEXEC)) {
        check(mFd >= 0, "memfd_create");
        snprintf(mPath, sizeof(mPath), "/proc/self/fd/%d", mFd);
    }
    ~MemoryFile() { close(mFd); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    [[nodiscard]] const char* path() const { return mPath; }

    /// Makes this all its content.
    void assign(std::string_view content) const {
        check(ftruncate(mFd, 0) == 0, "ftruncate");
        const ssize_t written = pwrite(mFd, content.data(), content.size(), 0);
        check(written == static_cast<ssize_t>(content.size()), "pwrite");
    }
    [[nodiscard]] std::string content() const {
        const off_t bytes = lseek(mFd, 0, SEEK_END);
        std::string content(static_cast<size_t>(bytes), '\0');
        check(pread(mFd, content.data(), content.size(), 0) == bytes, "pread");
        return content;
    }

  private:
    int mFd;
    char mPath[32];
};

}  // namespace JCam::Fuzz
