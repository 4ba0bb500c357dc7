#include "jlog/JLogMutex.h"

namespace JCam::Utils::JLog {

namespace {

// The mutex of the file logger is held for some ten nanoseconds, and what it guards moves with it
// from core to core, which takes up to two hundred on a large machine. Who finds it taken stands
// back for a moment: meanwhile the holder's core gets through several calls with everything at
// hand, and the cache lines move once for all of them. After that he looks often, so that his own
// wait does not grow. Who sleeps at once pays for two system calls, one of them the holder's, and
// with several threads at it nearly every unlock ends up waking somebody; so threads sleep only
// when the holder has probably lost its core.

/// Before the first second look: some 250 ns, half a dozen calls' worth.
constexpr int kFirstPauses = 10;
/// Before every further one: some 50 ns.
constexpr int kPauses = 2;
/// Looks before the thread sleeps, after some 8 us.
constexpr int kLooks = 160;

/// Tells the processor that this is a loop that waits.
void pauseCore() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    // Not `yield`, which does nothing on most cores; this takes about as long as the other's pause.
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
