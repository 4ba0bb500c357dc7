#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>

namespace JCam::Utils::JLog::File {

/// A gate that a thread shuts for its crash dump. While the dump runs, other threads clear and free
/// no buffer that it can find; while the gate is shut, they begin no write. It opens again if the
/// process outlives the signal. One per process, as signal handlers are.
///
/// Memory: a thread that is about to clear or free a buffer first takes it out of slot and queue,
/// then asks isDumping(). The dump first shuts the gate, then looks into slot and queue. All four
/// are sequentially consistent operations: either the dump does not find the buffer, or the thread
/// sees the gate shut. Neither waits; the thread may never run again.
///
/// Files: a write that the end of the process cuts short would leave half a line. So no writer but
/// the crash writer begins one, and the dump ends with a short wait for the one write that may have
/// begun before.
///
/// A dump needs no lock, so a thread that waits at the gate may hold any.
class CrashGate {
  public:
    /// The part of a thread that enters with a fatal signal.
    enum class Role {
        DUMP,    // has shut the gate, and dumps
        NESTED,  // is in the middle of its own dump
        AGAIN,   // has dumped for this signal and handed it on, and got it back
        LATE,    // comes while another thread dumps
    };

    // For signal handlers, and signal-safe.

    /// Shuts the gate if it is open, or if the dump behind it has ended. `tid` is the calling
    /// thread, `sig` its signal.
    static Role enter(pid_t tid, int sig);
    /// Tells the waiting threads that the dump goes on. To be called now and then in long work.
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

    /// Forgets the signal of an earlier dump. To be called when a hook is armed.
    static void forgetSignal() { sSignal.store(0, std::memory_order_relaxed); }
    /// Whether a dump may be reading buffers.
    [[nodiscard]] static bool isDumping() {
        return isDumper(sHolder.load(std::memory_order_seq_cst));
    }
    /// Waits until the gate is open. False when a dump holds it that has made no progress for
    /// kStallMs.
    static bool awaitOpen();

    /// A scope for the write of an ordinary writer. Construction waits until the gate is open, or
    /// the dump has made no progress for kStallMs.
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
    /// The longest wait without progress. If the dump has ended by then, its thread has left the
    /// handler by a jump, or the process does not die: the gate opens. If not, the dump is held up:
    /// the gate stays shut, and only the waiting ends.
    static constexpr int kStallMs = 3000;
    static constexpr int kWriteWaitMs = 200;
    static constexpr uint32_t kOpen = 0;
    static constexpr uint32_t kDumped = 0x80000000;

    static bool isDumper(uint32_t holder) { return holder != kOpen && (holder & kDumped) == 0; }
    /// Waits while `isShut(holder)` is true and the dump makes progress. Returns the last holder.
    template <typename Predicate>
    static uint32_t awaitWhile(Predicate isShut);

    /// kOpen, or the thread that has shut the gate, with kDumped once its dump has ended.
    static std::atomic<uint32_t> sHolder;
    /// The signal of the dump that has ended. Relaxed: the thread that asks has stored it itself.
    static std::atomic<int> sSignal;
    /// Grows while a dump goes on. Relaxed: only whether it has changed matters.
    static std::atomic<uint32_t> sProgress;
    /// The progress at which a thread has waited in vain. Relaxed, likewise.
    static std::atomic<uint32_t> sStalledAt;
    /// The thread that is in a Passage, 0 if none is. One is enough: a process has one file logger.
    /// A dump does not wait for the write of a second one.
    static std::atomic<pid_t> sWriter;
};

}  // namespace JCam::Utils::JLog::File
