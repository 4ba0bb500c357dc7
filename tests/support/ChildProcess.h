#pragma once

#include <sys/mman.h>

#include <functional>
#include <new>
#include <string>

namespace JCam::Support {

/// How a process has ended.
struct Ending {
    enum Kind { EXITED, KILLED, HUNG };

    Kind kind;
    int value;  // the exit status, or the signal

    bool operator==(const Ending&) const = default;
};

void PrintTo(const Ending& ending, std::ostream* out);

/// Runs `body` in a child process, which leaves no core file and exits with 0 when it returns.
/// Every signal has its default action there. A child that takes longer than any machine needs is
/// killed, and has hung.
Ending runChild(const std::function<void()>& body);

/// An object that this process and its children share. Children may end at any point, so what they
/// change should be atomic.
template <typename T>
class Shared {
  public:
    Shared()
            : mObject(new (mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE,
                                MAP_SHARED | MAP_ANONYMOUS, -1, 0)) T) {}
    ~Shared() { munmap(mObject, sizeof(T)); }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;

    T* operator->() const { return mObject; }
    T& operator*() const { return *mObject; }

  private:
    T* mObject;
};

}  // namespace JCam::Support
