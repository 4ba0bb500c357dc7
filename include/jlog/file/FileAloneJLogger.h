#pragma once

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "jlog/file/FileJLoggerBase.h"
#include "jlog/file/FileJLogWriter.h"

namespace JCam::Utils::JLog::File {

class BoxRecovery;

/// The file logger that works on its own: records become text files within one flush interval.
///
/// One background thread, the flush thread, takes full buffers off the queue, renders them through
/// the writer and recycles them. When no buffer fills up, it retires the current one once an
/// interval. It idles at nice 19 and raises its priority as buffers queue up.
///
/// When nothing else is to be done, the thread makes text files of the black boxes that dead
/// processes have left in the folder of the property "vendor.debug.camera.jlog.blackbox".
///
/// Life: construct, onInit() once, log and onFlush() from any thread, onUninit(), destroy. Records
/// logged before onInit() wait in memory and reach the first file; what is logged after onUninit()
/// stays in memory and goes with the object.
///
/// Failures: without a file, records are dropped with an ERROR line per buffer, and memory does not
/// grow. When the open file is deleted, the flush thread goes on to the next one before it renders
/// a buffer, and makes the folder again if need be. Without a flush thread, one ERROR line says so,
/// and the newest buffers stay in memory. All lines have the tag "FileAloneJLogger".
///
/// Threads: any, but onInit() and onUninit() not at once. The flush thread blocks all signals but
/// those of its own faults. Only what FileJLoggerBase says to be signal-safe is.
class JLOG_EXPORT FileAloneJLogger : public FileJLoggerBase {
  public:
    /// Makes a logger that takes records but does not run yet. Allocates.
    FileAloneJLogger();
    /// Calls onUninit(). What was logged after that, or on a logger that never ran, is lost.
    ~FileAloneJLogger() override;

    /// Creates the folder and the first file, starts the flush thread and arms the crash hook. May
    /// not be repeated before onUninit(). Blocks for the file, and for the clean-up if storage is
    /// full.
    void onInit() override;
    /// Disarms the crash hook, writes everything that is buffered, stops the thread and closes the
    /// file. Blocks for as long as that takes. Without effect on a logger that does not run.
    void onUninit() override;
    /// Retires the current buffer and wakes the flush thread. Waits until everything logged before
    /// the call is in the file, at most `timeoutSec` seconds; does not wait if that is below 1, nor
    /// on a logger that does not run. The batch ends with an fsync, unless a full text buffer had
    /// sent all its text out already.
    void onFlush(int timeoutSec) override;

  private:
    /// The state of the flush thread.
    struct FlushState {
        int32_t flushIntervalMs{0};
        /// Index into the nice values; higher is more urgent.
        int boostLevel{0};
        uint32_t logsWritten{0};
        uint32_t passes{0};
        /// The last droppedInHandlers() that a line has told of.
        uint32_t droppedTold{0};
        /// Records that were rendered and had no place in the black box; wraps.
        uint32_t outsideBox{0};
        uint32_t outsideBoxTold{0};
        bool boxDamageTold{false};
        /// Of the boxes that dead processes have left; null when there is nothing to do.
        std::unique_ptr<BoxRecovery> recovery;
    };

    /// The work of the next pass.
    enum class Decision {
        STOP,             // nothing is buffered, and the logger is to stop
        RENDER_COMPLETE,  // the one queued buffer has no pending writer
        RENDER_QUEUED,    // buffers are queued; the first may have pending writers
    };

    JLOG_INTERNAL static void* threadMain(void* logger);
    JLOG_INTERNAL void flushThreadEntry();
    JLOG_INTERNAL bool startThread();

    /// Waits for the next buffer to render, with `remaining` more behind it; null when the thread
    /// is to stop. The buffer stays in the queue while it is rendered, for a crash dump to find.
    JLOG_INTERNAL const Buffer* nextBuffer(FlushState& state, size_t* remaining)
            JLOG_EXCLUDES(mMutex);
    JLOG_INTERNAL Decision decideLocked(FlushState& state) JLOG_REQUIRES(mMutex);
    JLOG_INTERNAL void pauseLocked(FlushState& state) JLOG_REQUIRES(mMutex);
    /// Recovers boxes until `deadline`, or as long as there is nothing else to do. Unlocks the
    /// mutex meanwhile.
    JLOG_INTERNAL void recoverLocked(FlushState& state,
                                     std::chrono::steady_clock::time_point deadline)
            JLOG_REQUIRES(mMutex);
    /// Whether the flush thread has nothing to do before the current buffer is due.
    [[nodiscard]] JLOG_INTERNAL bool isIdleLocked() const JLOG_REQUIRES(mMutex);
    /// Refreshes the UTC offsets for the crash hook.
    JLOG_INTERNAL void refreshLocalTime() JLOG_EXCLUDES(mMutex);
    JLOG_INTERNAL void raiseBoostLocked(FlushState& state) JLOG_REQUIRES(mMutex);
    /// Unlocks the mutex meanwhile.
    JLOG_INTERNAL void changeBoostLocked(FlushState& state, int level) JLOG_REQUIRES(mMutex);
    JLOG_INTERNAL void awaitFrontWritersLocked() JLOG_REQUIRES(mMutex);
    /// Waits until the pending writers of the oldest buffer have ended, or kWritersWait, or less.
    JLOG_INTERNAL void waitForFrontWritersLocked() JLOG_REQUIRES(mMutex);
    JLOG_INTERNAL void finishFlushLocked() JLOG_REQUIRES(mMutex);
    [[nodiscard]] JLOG_INTERNAL bool stopDueLocked() const JLOG_REQUIRES(mMutex);

    /// Renders `buffer`, behind which `remaining` more are queued. Runs without the mutex.
    JLOG_INTERNAL void renderBuffer(const Buffer& buffer, size_t remaining, FlushState& state);
    JLOG_INTERNAL void logDropped(FlushState& state) const;
    JLOG_INTERNAL void beginRecovery(FlushState& state) const;
    /// Says how the black box is: at the end of a batch what is new, and with the status line.
    JLOG_INTERNAL static void logBox(const BlackBox& box, FlushState& state, bool isStatusDue,
                                     bool isBatchEnd);
    JLOG_INTERNAL void logStatus(const FlushState& state, size_t remaining) const;
    JLOG_INTERNAL static void setBoost(FlushState& state, int level);

    /// The flush thread, from onInit() to onUninit().
    std::optional<pthread_t> mThread JLOG_GUARDED_BY(mMutex);
    /// Used by the flush thread while that lives; before and after by the thread that starts and
    /// stops it. The start and the join order the accesses.
    FileJLogWriter mWriter;
    /// An onFlush() waits for the queue to be drained. Written under the mutex. Relaxed: the status
    /// line reads it without the mutex, and it decides about that one line alone.
    std::atomic<bool> mFlushPending{false};
    /// Notified when mFlushPending is cleared.
    JLogCondition mFlushDone;
};

}  // namespace JCam::Utils::JLog::File
