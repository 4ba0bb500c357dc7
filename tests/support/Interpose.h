#pragma once

#include <cstdint>
#include <string>
#include <vector>

// What the library calls in place of functions of libc, in a test binary that is linked with this:
// so it meets a full disk, a privileged folder, another time of day, or a fault (Faults.h). Without
// an order from a test calls are passed on. What the library runs into is signal-safe, and may be
// called from any thread.
namespace JCam::Support::Interpose {

/// Undoes every order when a test ends, the rules of faults included.
class Scope {
  public:
    Scope() = default;
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
};

/// statvfs answers that this many bytes are free.
void setFreeBytes(int64_t bytes);
/// Paths that begin with `from` begin with `to` instead.
void redirect(const std::string& from, const std::string& to);
/// gettimeofday answers this second; below 0 the true time.
void setWallClock(int64_t sec);
/// Called at the start of every write(2) with its descriptor, on the thread that writes; null for
/// nothing. It must be signal-safe if the library may write in a signal handler.
void onWrite(void (*action)(int fd));
/// The first nice values that were set.
std::vector<int> niceValues();

}  // namespace JCam::Support::Interpose
