#include "jlog/JLogMutex.h"

namespace JCam::Utils::JLog {

namespace {

// The file logger's mutex is held for some 10 ns, but the cache lines that it guards move from core
// to core with it, which takes up to 200 ns on a large machine. A thread that finds it locked first
// backs off: meanwhile the holder's core gets through several calls with the lines in its cache,
// and they move once for all of these. Then the thread retries often, to keep its own wait short.
// Sleeping at once would cost two system calls, one of them the holder's wake-up, and under
// contention nearly every unlock would have to wake a thread. So a thread sleeps only when the
// holder has probably lost its core.

/// Before the first retry: some 250 ns, the time of half a dozen calls.
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

void JLogMutex::lockContended() {
    int pauses = kFirstPauses;
    for (int look = 0; look < kLooks; ++look) {
        for (int i = 0; i < pauses; ++i) {
            pauseCore();
        }
        if (mMutex.try_lock()) {
            return;
        }
        pauses = kPauses;
    }
    mMutex.lock();
}

}  // namespace JCam::Utils::JLog
