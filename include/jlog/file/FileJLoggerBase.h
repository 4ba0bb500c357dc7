#pragma once

#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>

#include "jlog/file/Buffer.h"
#include "jlog/file/LogRecord.h"
#include "jlog/JLogger.h"
#include "jlog/JLogMutex.h"

namespace JCam::Utils::JLog::File {

class FileJLogWriter;

/// The half of the file logger that runs on the callers' threads: it packs every event into a
/// record of the current buffer and queues buffers that are full. A subclass empties the queue. Of
/// a name or tag 128 bytes are kept, of a message 1023.
///
/// Threads: any number of callers may log at once. A call takes the one mutex to reserve its record
/// and fills the record without it; it does no I/O of its own and allocates only when a buffer is
/// full and the pool is empty or a crash dump runs. Whoever is the first to write to a new buffer
/// waits some 100 us for its pages. It formats nothing, unless the Android log prints debug lines
/// of "FileAloneJLogger": then every reservation has one. Nothing is signal-safe but what is said
/// to be.
///
/// Memory: the queue has no bound before a consumer is started, after it was stopped and while it
/// lags. Without memory for a new buffer events are dropped, and one ERROR line tells when that
/// begins.
///
/// Crash hook: armed by initHook(), it catches SIGABRT, SIGSEGV and SIGBUS, writes the records that
/// are still in memory into a crash file, and hands the signal on to the action that was there
/// before. Every record whose logging call had returned before the signal is in a log file or in
/// the crash file (but for mode 1, which may leave the queue out). The process has one handler,
/// which works on the logger whose initHook() ran last.
///
/// Fork: a child made by fork() has no consumer, and the mutex may be held in it. As POSIX asks of
/// the child of a threaded process, it may only exec or _exit.
class JLOG_EXPORT FileJLoggerBase : public JLogger {
  public:
    /// The block of records, also under the name of its logger.
    using Buffer = File::Buffer;

    /// Asks the properties for the clock and makes the first buffer; without memory the first call
    /// tries again.
    FileJLoggerBase();
    /// Frees the buffers, with the records that are still in them. Waits, within bounds, for a
    /// crash dump that runs. The actions of the signals are left as they are: uninitHook() comes
    /// before.
    ~FileJLoggerBase() override;

    void onLogEnter(unsigned int moduleId, const char* name, unsigned int requestNo) override;
    void onLogExit(unsigned int moduleId, const char* name, unsigned int requestNo) override;
    /// Keeps the first 1023 bytes of `message`, of which as many must be readable as `length` says;
    /// it need not be terminated.
    void onLogDetails(unsigned int moduleId, const char* name, JLogLevel level, const char* message,
                      unsigned long length) override;

    /// The time of `clockId` as local "MM-DD hh:mm:ss.uuuuuu" in `out`, which has `size` bytes (40
    /// are plenty); returns `out`. A monotonic clock prints as if it counted from the epoch. In
    /// less than 15 bytes the date has no room: an ERROR line says so, and ".uuuuuu" is all there
    /// is. Any thread; not signal-safe, as the time-zone code may lock and allocate.
    static char* getTimeStamp(int clockId, char* out, unsigned long size);

    /// Writes the log folder to `path`, which must hold PROPERTY_VALUE_MAX bytes (`size` is not
    /// consulted), and creates it if it is missing, but not what it lies in. A failure is an INFO
    /// line.
    void getFolderPath(char* path, unsigned long size);

  protected:
    /// Reserves and stamps a record of `size` bytes, its header included, aligned up to 8. On true
    /// the caller fills the record and hands it to publish(); a non-null `serial` has received the
    /// next serial number. False when no buffer could hold the size, for which each call has an
    /// ERROR line, or memory ran out; nothing is reserved then.
    [[nodiscard]] bool allocLogSpace(unsigned long size, LogHeader** header, Buffer** buffer,
                                     unsigned int* serial) JLOG_EXCLUDES(mMutex);

    /// Completes a record that allocLogSpace() reserved, as one of `type`. Record and buffer may
    /// not be touched after.
    void publish(LogHeader* header, Buffer* buffer, RecordType type);

    /// An empty buffer: from the pool if there is one and no crash dump runs, otherwise a new one;
    /// null without memory.
    std::unique_ptr<Buffer> allocEmptyBuffer() JLOG_REQUIRES(mMutex);

    /// Whether a record was reserved in the current buffer, complete or not.
    [[nodiscard]] bool currentHoldsRecordsLocked() const JLOG_REQUIRES(mMutex) {
        return mCurrent.get() != nullptr && mCurrent.get()->holdsRecords();
    }

    /// Queues the current buffer, which must be there, and replaces it, without memory by none.
    /// Returns how many writers of the queued buffer are still pending. Wakes nobody.
    uint32_t retireCurrentLocked() JLOG_REQUIRES(mMutex);

    /// Moves the oldest buffer of the queue, which is not empty, to the pool; frees the one for
    /// which the pool then has no room.
    void recycleFront() JLOG_EXCLUDES(mMutex);

    /// Puts a new buffer, whose pages are there already, into an empty pool. Without effect on a
    /// pool that is not empty, and without memory.
    void prepareBuffer() JLOG_EXCLUDES(mMutex);

    /// Whether the queue is to keep only the newest full buffers, four and those that have pending
    /// writers, as it must without a consumer. Looked at when the next one is queued.
    void setQueueBounded(bool bounded) JLOG_EXCLUDES(mMutex);
    /// What setQueueBounded() was told last; false before.
    [[nodiscard]] bool isQueueBoundedLocked() const JLOG_REQUIRES(mMutex) { return mQueueBounded; }

    /// Arms the crash hook, if the property "vendor.debug.camera.jlog.hookne" is 1 or above (the
    /// default is 2); it becomes the mode. Without effect on the signals when the hook is armed.
    /// This logger becomes sActiveLogger in any case. Creates the log folder, allocates a writer,
    /// and leaves the hook off after an ERROR line when there is no memory for one. Not from two
    /// threads at once.
    void initHook();

    /// Restores the actions that initHook() found. Waits for a dump that runs, within bounds.
    /// Without effect when the hook is not armed.
    void uninitHook();

    /// From now on the clean-up of a dump spares the file that `writer`, the subclass's own, has
    /// open. To be called with null before the writer goes: that waits for a dump that runs, within
    /// bounds.
    void setLogWriter(const FileJLogWriter* writer);

    /// Makes sigHandler the action of `sig`: saves the current action in `oldAct` and fills `act`
    /// with the one it installs. Does nothing when either is null.
    static void registerSigAction(int sig, struct sigaction* act, struct sigaction* oldAct);

    /// The handler. Puts the action that was there before back in place, dumps the records of
    /// sActiveLogger, or waits, within bounds, for another thread that is at it, and hands the
    /// signal on. Keeps errno. Signal-safe.
    static void sigHandler(int sig, siginfo_t* info, void* context);

    /// Asks the Android log anew whether it prints the line of every reservation. Any thread.
    void refreshReservationLine();

    /// Hands every complete record in the first `maxBytes` of `buffer` to `writer`, in the order of
    /// reservation. Returns how many records there are, incomplete ones included. A record of an
    /// impossible size, which only damaged memory holds, ends the walk; one with impossible
    /// contents is stepped over. Signal-safe with a writer that is.
    static uint32_t renderRecords(const Buffer& buffer, FileJLogWriter& writer,
                                  size_t maxBytes = kBufferBytes);

    // What every call reads and hardly anything changes shares a cache line with the object's head,
    // what every call changes has one of its own: callers on several cores pass around that line
    // and the buffer's, and mostly no other.

    /// Clock of all record time stamps: CLOCK_REALTIME, or CLOCK_MONOTONIC by property.
    const clockid_t mClockId;
    /// Crash-hook mode; 0 while no hook is installed. Relaxed: writers choose by it whether to
    /// fence, and around a change either choice is right.
    std::atomic<int32_t> mNeHook{0};
    /// The Android log prints the line of every reservation. Kept here because asking costs a
    /// property lookup on a device. Relaxed: around a change a line more or less is fine.
    std::atomic<bool> mReservationLine{false};

    /// Guards what is declared to be guarded, and what Buffer, BufferSlot and the others say to be.
    alignas(kCacheLineBytes) JLogMutex mMutex;
    /// Receives new records. Empty only while there is no memory for a buffer.
    BufferSlot mCurrent JLOG_GUARDED_BY(mMutex);
    /// The last serial number handed out.
    uint32_t mSerial JLOG_GUARDED_BY(mMutex){0};

    /// Retired buffers, oldest first.
    alignas(kCacheLineBytes) BufferList mFullBuffers JLOG_GUARDED_BY(mMutex);
    /// Buffers for the next burst: 768 KiB.
    BufferPool mEmptyBuffers JLOG_GUARDED_BY(mMutex);
    /// Whether the consumer is to go on.
    std::atomic<bool> mRunning{false};
    /// Wakes the consumer.
    JLogCondition mCond;
    /// The actions that the hook has installed, for SIGABRT, SIGSEGV and SIGBUS in this order.
    struct sigaction mNewActions[3]{};
    /// Those that it found. Each is written before the hook takes its signal, and read by the
    /// handler.
    struct sigaction mOldActions[3]{};
    /// Used by the handler alone, once the hook is armed. It stays until the logger goes, for a
    /// handler that has been entered already when the hook is disarmed.
    std::unique_ptr<FileJLogWriter> mCrashWriter;

    /// The logger whose initHook() ran last, armed or not; null again only when it is gone.
    /// Sequentially consistent: a handler first shuts the CrashGate, then looks here.
    static std::atomic<FileJLoggerBase*> sActiveLogger;

  private:
    /// Writes what enter and exit records share.
    JLOG_INTERNAL void logEnterExit(RecordType type, unsigned int moduleId, const char* name,
                                    unsigned int requestNo);
    /// What a reservation has come to.
    struct Reservation {
        LogHeader* record{nullptr};  // null without memory
        Buffer* buffer{nullptr};
        bool retired{false};       // a buffer was: the consumer is to be woken
        bool firstRefusal{false};  // memory has just run out: that is to be logged
    };
    JLOG_INTERNAL Reservation reserveLocked(size_t bytes, unsigned int* serial)
            JLOG_REQUIRES(mMutex);
    /// Writes thread id and time.
    JLOG_INTERNAL void stamp(LogHeader& record) const;
    /// Replaces a current buffer that has no room, or none at all; false without memory.
    JLOG_INTERNAL bool makeRoomLocked() JLOG_REQUIRES(mMutex);
    /// Frees a buffer that has left queue and slot, unless a crash dump may have it in hand.
    JLOG_INTERNAL static void discard(std::unique_ptr<Buffer> buffer);
    /// Moves `buffer`, which is in the queue, to the pool. Returns what the pool has to give up for
    /// it, or null; that is to be discarded, best without the mutex.
    JLOG_INTERNAL std::unique_ptr<Buffer> recycleLocked(Buffer* buffer) JLOG_REQUIRES(mMutex);
    /// Gives up the oldest complete buffers of a bounded queue, which is to take one more.
    JLOG_INTERNAL void trimQueueLocked() JLOG_REQUIRES(mMutex);

    /// The action that was found for `sig`; null for a signal that is none of the three.
    /// Signal-safe.
    [[nodiscard]] JLOG_INTERNAL const struct sigaction* previousAction(int sig) const;
    /// Installs the action of `sig` to which the signal is to be handed on, and returns it:
    /// `found`, which may be null, or the default action. Signal-safe.
    JLOG_INTERNAL static struct sigaction restoreAction(int sig, const struct sigaction* found);
    /// Writes a crash file; `address` is the fault's. Signal-safe.
    JLOG_INTERNAL void dump(const char* signalName,
                            const void* address) JLOG_NO_THREAD_SAFETY_ANALYSIS;
    /// What setLogWriter() was told last. Sequentially consistent, like sActiveLogger.
    std::atomic<const FileJLogWriter*> mLogWriter{nullptr};
    bool mQueueBounded JLOG_GUARDED_BY(mMutex){false};
    /// The kernel has refused a buffer, and the line that says so was printed. Until it gives one
    /// again, records are kept as far as recycled buffers allow.
    bool mOutOfMemory JLOG_GUARDED_BY(mMutex){false};
};

}  // namespace JCam::Utils::JLog::File
