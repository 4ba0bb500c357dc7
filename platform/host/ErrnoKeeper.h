#pragma once

#include <cerrno>

namespace JCam::Platform {

/// Restores the caller's errno when the scope ends.
class ErrnoKeeper {
  public:
    ErrnoKeeper() = default;
    ~ErrnoKeeper() { errno = mErrno; }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

  private:
    int mErrno = errno;
};

}  // namespace JCam::Platform
