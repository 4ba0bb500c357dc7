#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "jlog/JLogExport.h"

/// \file
/// Clang's thread-safety annotations, with which it proves that a guarded member is used only with
/// its mutex held. Other compilers ignore them.

#if defined(__clang__)
/// The attribute behind the other macros.
#define JLOG_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define JLOG_THREAD_ANNOTATION(x)
#endif
/// Stands between `class` and the name of a mutex class; `name` is for clang's messages.
#define JLOG_CAPABILITY(name) JLOG_THREAD_ANNOTATION(capability(name))
/// The same for a class that holds a mutex for a scope.
#define JLOG_SCOPED_CAPABILITY JLOG_THREAD_ANNOTATION(scoped_lockable)
/// For a member that is used only with `mutex` held.
#define JLOG_GUARDED_BY(mutex) JLOG_THREAD_ANNOTATION(guarded_by(mutex))
/// For a function whose caller holds `mutex`.
#define JLOG_REQUIRES(mutex) JLOG_THREAD_ANNOTATION(requires_capability(mutex))
/// For a function whose caller holds none of these mutexes.
#define JLOG_EXCLUDES(...) JLOG_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
/// For a function that locks the mutexes, or its own object, and returns with them held.
#define JLOG_ACQUIRE(...) JLOG_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
/// For a function that unlocks them.
#define JLOG_RELEASE(...) JLOG_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
/// For a function that reads guarded members without the mutex, by a protocol of its own.
#define JLOG_NO_THREAD_SAFETY_ANALYSIS JLOG_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace JCam::Utils::JLog {

/// std::mutex with the annotations that the standard libraries leave out, for critical sections of
/// a few nanoseconds. A thread that finds it locked spins for about 8 us, then sleeps. It allocates
/// nothing; a static one exists before any code runs. Not recursive, not signal-safe.
class JLOG_EXPORT JLOG_CAPABILITY("mutex") JLogMutex {
  public:
    /// Blocks until the calling thread holds the mutex.
    void lock() JLOG_ACQUIRE() {
        if (__builtin_expect(!mMutex.try_lock(), false) != 0) {
            lockContended();
        }
    }
    /// Only the thread that holds it may call this.
    void unlock() JLOG_RELEASE() { mMutex.unlock(); }

  private:
    friend class JLogCondition;
    void lockContended();

    std::mutex mMutex;
};

/// Holds a JLogMutex for a scope. The mutex must outlive it.
class JLOG_SCOPED_CAPABILITY JLogLock {
  public:
    /// Locks `mutex`.
    explicit JLogLock(JLogMutex& mutex) JLOG_ACQUIRE(mutex) : mMutex(mutex) { mMutex.lock(); }
    /// Unlocks it.
    ~JLogLock() JLOG_RELEASE() { mMutex.unlock(); }
    JLogLock(const JLogLock&) = delete;
    JLogLock& operator=(const JLogLock&) = delete;

  private:
    JLogMutex& mMutex;
};

/// Condition variable for a JLogMutex. A wait may end early, so callers check their condition
/// again. Uses the steady clock. Any thread may notify, with or without the mutex. Not signal-safe.
class JLogCondition {
  public:
    /// Wakes one waiting thread, if there is one.
    void notifyOne() noexcept { mCondition.notify_one(); }
    /// Wakes all waiting threads.
    void notifyAll() noexcept { mCondition.notify_all(); }

    /// Waits until notified, at most `timeout`. Unlocks `mutex` meanwhile.
    void waitFor(JLogMutex& mutex, std::chrono::milliseconds timeout) JLOG_REQUIRES(mutex) {
        std::unique_lock<std::mutex> lock(mutex.mMutex, std::adopt_lock);
        mCondition.wait_for(lock, timeout);
        lock.release();
    }

    /// The same, until `deadline`; returns false once it has passed.
    bool waitUntil(JLogMutex& mutex, std::chrono::steady_clock::time_point deadline)
            JLOG_REQUIRES(mutex) {
        std::unique_lock<std::mutex> lock(mutex.mMutex, std::adopt_lock);
        const std::cv_status status = mCondition.wait_until(lock, deadline);
        lock.release();
        return status == std::cv_status::no_timeout;
    }

  private:
    std::condition_variable mCondition;
};

}  // namespace JCam::Utils::JLog
