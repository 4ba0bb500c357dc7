#pragma once

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdint>

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
/// For a function that returns `held` with its own object held.
#define JLOG_TRY_ACQUIRE(held) JLOG_THREAD_ANNOTATION(try_acquire_capability(held))
/// For a function that unlocks them.
#define JLOG_RELEASE(...) JLOG_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
/// For a function that reads guarded members without the mutex, by a protocol of its own.
#define JLOG_NO_THREAD_SAFETY_ANALYSIS JLOG_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace JCam::Utils::JLog {

/// A mutex with the annotations that the standard libraries leave out, for short critical sections.
/// A thread that finds it locked spins for about 8 us, then sleeps. It allocates
/// nothing; a static one exists before any code runs. Not recursive.
class JLOG_EXPORT JLOG_CAPABILITY("mutex") JLogMutex {
  public:
    /// Chooses the mutex that inherits priority.
    struct InheritPriority {};

    /// A plain mutex. Not signal-safe.
    constexpr JLogMutex() = default;
    /// A mutex that knows its holder, see lockUnlessHeld(). While a real-time thread waits for it,
    /// the holder has the priority of that thread, where the platform can do so.
    explicit JLogMutex(InheritPriority tag) noexcept;
    JLogMutex(const JLogMutex&) = delete;
    JLogMutex& operator=(const JLogMutex&) = delete;

    /// Blocks until the calling thread holds the mutex.
    void lock() JLOG_ACQUIRE() {
        if (__builtin_expect(pthread_mutex_trylock(&mMutex) != 0, false) != 0) {
            lockContended();
        }
    }
    /// Only the thread that holds it may call this.
    void unlock() JLOG_RELEASE() { pthread_mutex_unlock(&mMutex); }

    /// The same as lock(), but false, without an effect, where the calling thread holds the mutex
    /// already: in a signal handler that has interrupted it. For a mutex that inherits priority;
    /// signal-safe where the platform can do so.
    [[nodiscard]] bool lockUnlessHeld() JLOG_TRY_ACQUIRE(true);

  private:
    friend class JLogCondition;
    bool lockContended();

    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;
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
/// again. Uses the steady clock. Any thread may notify, with or without the mutex; signal-safe, and
/// no system call where no thread waits.
///
/// A thread that changes the condition without the mutex may notify between a look at it and the
/// wait. A ticket that was taken before the look makes that wait end at once.
class JLOG_EXPORT JLogCondition {
  public:
    /// Stands for the notifications up to now.
    using Ticket = uint32_t;

    /// Wakes one waiting thread, if there is one.
    void notifyOne() noexcept { notify(1); }
    /// Wakes all waiting threads.
    void notifyAll() noexcept { notify(INT32_MAX); }

    /// Acquire: a look that follows sees what the notifications up to now have told of.
    [[nodiscard]] Ticket ticket() const noexcept { return mEpoch.load(std::memory_order_acquire); }

    /// Waits until notified, at most `timeout`. Unlocks `mutex` meanwhile.
    void waitFor(JLogMutex& mutex, std::chrono::milliseconds timeout) JLOG_REQUIRES(mutex) {
        waitFor(mutex, timeout, ticket());
    }
    /// The same, counting notifications since `since`.
    void waitFor(JLogMutex& mutex, std::chrono::milliseconds timeout, Ticket since)
            JLOG_REQUIRES(mutex) {
        waitUntil(mutex, std::chrono::steady_clock::now() + timeout, since);
    }
    /// The same, until `deadline`; returns false once it has passed.
    bool waitUntil(JLogMutex& mutex, std::chrono::steady_clock::time_point deadline)
            JLOG_REQUIRES(mutex) {
        return waitUntil(mutex, deadline, ticket());
    }

  private:
    void notify(int32_t threads) noexcept;
    bool waitUntil(JLogMutex& mutex, std::chrono::steady_clock::time_point deadline, Ticket since)
            JLOG_REQUIRES(mutex);

    /// Notifications so far; wraps. What the waiting threads sleep on.
    std::atomic<Ticket> mEpoch{0};
    /// Threads that wait, or are about to.
    std::atomic<uint32_t> mWaiters{0};
};

}  // namespace JCam::Utils::JLog
