#include "jlog/JLogMutex.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace JCam::Utils::JLog {

namespace {

// What these mutexes guard takes some 100 ns, most of which is the way of cache lines from core to
// core. A thread that finds its mutex locked first backs off, so that the holder has the lines for
// itself, then retries often. Sleeping at once would cost two system calls, one of them the
// holder's. So a thread sleeps only when the holder has probably lost its core.

/// Before the first retry: some 250 ns.
constexpr int kFirstPauses = 10;
/// Before every further retry: some 50 ns.
constexpr int kPauses = 2;
/// Retries before the thread sleeps, after some 8 us.
constexpr int kLooks = 160;

/// The processor's hint for a spin loop.
void pauseCore() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    // Not `yield`, which does nothing on most cores; `isb` takes about as long as x86's pause.
    asm volatile("isb" ::: "memory");
#endif
}

}  // namespace

JLogMutex::JLogMutex(InheritPriority /*tag*/) noexcept {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
    pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT);
    if (pthread_mutex_init(&mMutex, &attributes) != 0) {
        // A kernel that cannot inherit priority. Its mutex knows the holder a moment late.
        pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_NONE);
        pthread_mutex_init(&mMutex, &attributes);
    }
    pthread_mutexattr_destroy(&attributes);
}

bool JLogMutex::lockUnlessHeld() {
    const int error = pthread_mutex_trylock(&mMutex);
    return error == 0 || (error != EDEADLK && lockContended());
}

bool JLogMutex::lockContended() {
    int pauses = kFirstPauses;
    for (int look = 0; look < kLooks; ++look) {
        for (int i = 0; i < pauses; ++i) {
            pauseCore();
        }
        if (pthread_mutex_trylock(&mMutex) == 0) {
            return true;
        }
        pauses = kPauses;
    }
    return pthread_mutex_lock(&mMutex) == 0;
}

// pthread_cond_signal(3) is not signal-safe: some C libraries lock inside. And one makes a system
// call whether or not a thread waits.

// Of a notification and a wait that begins at the same time, one sees the other: each first changes
// its own word, then looks at the other's, in sequentially consistent order. If notify() sees no
// waiter, the kernel sees the new epoch, and does not let the waiter sleep.
void JLogCondition::notify(int32_t threads) noexcept {
    mEpoch.fetch_add(1, std::memory_order_seq_cst);
    if (mWaiters.load(std::memory_order_seq_cst) > 0) {
        syscall(SYS_futex, &mEpoch, FUTEX_WAKE_PRIVATE, threads, nullptr, nullptr, 0);
    }
}

bool JLogCondition::waitUntil(JLogMutex& mutex, std::chrono::steady_clock::time_point deadline,
                              Ticket since) {
    static_assert(sizeof(mEpoch) == sizeof(uint32_t));
    using std::chrono::nanoseconds;
    constexpr int64_t kSecond = 1000000000;
    const int64_t ns = std::chrono::duration_cast<nanoseconds>(deadline.time_since_epoch()).count();
    const timespec end = {static_cast<time_t>(ns / kSecond), static_cast<long>(ns % kSecond)};
    const int callersErrno = errno;
    mWaiters.fetch_add(1, std::memory_order_seq_cst);
    mutex.unlock();
    // Until an absolute time of the monotonic clock, which is the steady one.
    const bool timedOut = syscall(SYS_futex, &mEpoch, FUTEX_WAIT_BITSET_PRIVATE, since, &end,
                                  nullptr, FUTEX_BITSET_MATCH_ANY) != 0 &&
                          errno == ETIMEDOUT;
    mWaiters.fetch_sub(1, std::memory_order_relaxed);
    mutex.lock();
    errno = callersErrno;
    return !timedOut;
}

}  // namespace JCam::Utils::JLog
