#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "jlog/JLogExport.h"

// Clang's thread-safety annotations: with them the compiler proves that a guarded member is touched
// only with its mutex held. Other compilers see nothing.
#if defined(__clang__)
#define JLOG_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define JLOG_THREAD_ANNOTATION(x)
#endif
#define JLOG_CAPABILITY(name) JLOG_THREAD_ANNOTATION(capability(name))
#define JLOG_SCOPED_CAPABILITY JLOG_THREAD_ANNOTATION(scoped_lockable)
#define JLOG_GUARDED_BY(mutex) JLOG_THREAD_ANNOTATION(guarded_by(mutex))
#define JLOG_REQUIRES(mutex) JLOG_THREAD_ANNOTATION(requires_capability(mutex))
#define JLOG_EXCLUDES(...) JLOG_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define JLOG_ACQUIRE(...) JLOG_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define JLOG_RELEASE(...) JLOG_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
/// For a function that reads guarded members without the mutex, by a protocol of its own.
#define JLOG_NO_THREAD_SAFETY_ANALYSIS JLOG_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace JCam::Utils::JLog {

/// std::mutex with the annotations that the standard libraries leave out, for sections of a few
/// nanoseconds: who finds it taken spins for a moment before he sleeps. Not recursive, not
/// signal-safe.
class JLOG_EXPORT JLOG_CAPABILITY("mutex") JLogMutex {
  public:
    void lock() JLOG_ACQUIRE() {
        if (!mMutex.try_lock()) [[unlikely]] {
            lockContended();
        }
    }
    void unlock() JLOG_RELEASE() { mMutex.unlock(); }

  private:
    friend class JLogCondition;
    void lockContended();

    std::mutex mMutex;
};

/// Holds a JLogMutex for a scope.
class JLOG_SCOPED_CAPABILITY JLogLock {
  public:
    explicit JLogLock(JLogMutex& mutex) JLOG_ACQUIRE(mutex) : mMutex(mutex) { mMutex.lock(); }
    ~JLogLock() JLOG_RELEASE() { mMutex.unlock(); }
    JLogLock(const JLogLock&) = delete;
    JLogLock& operator=(const JLogLock&) = delete;

  private:
    JLogMutex& mMutex;
};

/// Condition variable for a JLogMutex. A wait may end early, so callers look at their condition
/// again.
class JLogCondition {
  public:
    void notifyOne() noexcept { mCondition.notify_one(); }
    void notifyAll() noexcept { mCondition.notify_all(); }

    /// Waits until notified, at most `timeout`; `mutex` is held before and after.
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
