#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

// Functions of libc that a test binary puts in front of the real ones, so that the library meets a
// full disk, no memory, a privileged folder, or another time of day. Without an order from a test
// they only pass calls on, signal-safe once a function was called. All may be called from any
// thread.
namespace JCam::Support::Interpose {

/// Undoes every order when a test ends.
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
/// pthread_create fails with EAGAIN.
void refuseThreads(bool refuse);
/// There is no memory for a record buffer.
void refuseBuffers(bool refuse);
/// Record buffers that the kernel has been asked for so far.
int mappedBuffers();
/// Those of them that it has not been given back.
int liveBuffers();
/// madvise is that of a kernel that cannot make pages in advance.
void refusePopulate(bool refuse);
/// Deleting this path fails.
void refuseUnlink(const std::string& path);
/// process_vm_readv fails with ENOSYS.
void refuseProbes(bool refuse);
/// Called at the start of every write(2) with its descriptor, on the thread that writes; null for
/// nothing. It must be signal-safe if the library may write in a signal handler.
void onWrite(void (*action)(int fd));
/// A write(2) takes at most this many bytes; below 0 all.
void limitWrites(ssize_t bytes);
/// gettimeofday answers this second; below 0 the true time.
void setWallClock(int64_t sec);
/// The next `count` calls of flock fail with `error`.
void refuseLocks(int count, int error);
/// Calls of flock with LOCK_EX so far, the test's own included.
int locks();
/// Calls of close so far whose descriptor was not open: a second close may hit somebody else's.
int staleCloses();
/// The first nice values that were set.
std::vector<int> niceValues();
/// Calls of fsync so far.
int syncs();

}  // namespace JCam::Support::Interpose
