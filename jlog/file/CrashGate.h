#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>

namespace JCam::Utils::JLog::File {

/// Keeps the ordinary threads out of the way of a crash dump. One per process, as signal handlers
/// are. The gate is open; the thread that is to dump shuts it, and it opens again only if the
/// process outlives its signal.
///
/// Memory: while a dump runs, nobody reuses or frees a buffer. Whoever is about to first takes the
/// buffer out of where the dump looks for buffers, then asks isDumping(). The dump first shuts the
/// gate, then looks for buffers. All four are sequentially consistent operations, so that either
/// the dump does not find the buffer, or the other sees the gate shut. Nobody waits, least of all
/// the dump for a thread that may never run again.
///
/// Files: while the gate is shut, no writer but the crash writer begins a write, so that none is
/// cut short by the end of the process, which leaves half a line. The dump ends with a short wait
/// for the one write that may have begun before.
///
/// Threads that wait at the gate hold no lock that a dump needs, since it needs none.
class CrashGate {
  public:
    /// What a thread that comes with a fatal signal has to do.
    enum class Role {
        DUMP,    // it has shut the gate and dumps
        NESTED,  // it is the very thread that dumps, interrupted
        AGAIN,   // it has dumped for this signal and handed it on, and got it back
        LATE,    // another thread dumps
    };

    // For signal handlers, and signal-safe.

    /// `tid`: the calling thread; `sig`: the signal that it comes with.
    static Role enter(pid_t tid, int sig);
    /// Tells those who wait that the dump goes on. To be called from time to time within anything
    /// long.
    static void reportProgress() { sProgress.fetch_add(1, std::memory_order_relaxed); }
    /// Waits up to kWriteWaitMs for a write that another thread has begun before the gate was shut.
    static void awaitWrite(pid_t tid);
    /// The dump of this thread has ended; the gate stays shut.
    static void endDump(pid_t tid, int sig);
    /// Opens the gate: the process goes on. Without effect when another thread dumps by now.
    static void reopen(pid_t tid);
    /// Waits until the dump that runs has ended, or has made no progress for kStallMs.
    static void awaitDumpEnd();

    // For ordinary threads.

    /// To be called when a hook is armed: what an earlier dump was for is of the past.
    static void forgetSignal() { sSignal.store(0, std::memory_order_relaxed); }
    /// Whether a dump may have a buffer in hand.
    [[nodiscard]] static bool isDumping() {
        return isDumper(sHolder.load(std::memory_order_seq_cst));
    }
    /// Waits until the gate is open. False when a dump holds it that has made no progress for
    /// kStallMs.
    static bool awaitOpen();

    /// The write of an ordinary writer: made before it begins, which may take until the gate opens.
    class Passage {
      public:
        Passage();
        ~Passage();
        Passage(const Passage&) = delete;
        Passage& operator=(const Passage&) = delete;

      private:
        bool mRegistered{false};
    };

  private:
    /// After so long without progress nobody waits any longer. If a dump has ended by then, its
    /// thread has left the handler by a way of its own, or the process cannot die: the gate opens.
    /// If not, it stays shut, for a dump that is held up; only the waiting is over.
    static constexpr int kStallMs = 3000;
    static constexpr int kWriteWaitMs = 200;
    static constexpr uint32_t kOpen = 0;
    static constexpr uint32_t kDumped = 0x80000000;

    static bool isDumper(uint32_t holder) { return holder != kOpen && (holder & kDumped) == 0; }
    /// Waits for as long as `isShut` says so of the holder and the dump makes progress. Returns the
    /// holder of that moment.
    template <typename Predicate>
    static uint32_t awaitWhile(Predicate isShut);

    /// kOpen, or the thread that has shut the gate, with kDumped once its dump has ended.
    static std::atomic<uint32_t> sHolder;
    /// The signal of the dump that has ended. Relaxed: the thread that asks has stored it itself.
    static std::atomic<int> sSignal;
    /// Grows while a dump goes on. Relaxed: only whether it has changed matters.
    static std::atomic<uint32_t> sProgress;
    /// The progress at which somebody has waited in vain. Relaxed, likewise.
    static std::atomic<uint32_t> sStalledAt;
    /// The thread that is in a Passage, 0 if none is. One is enough: a process has one file logger,
    /// and the write of a second one merely is not waited for.
    static std::atomic<pid_t> sWriter;
};

}  // namespace JCam::Utils::JLog::File
