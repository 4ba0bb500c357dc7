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
/// record of the current buffer and queues buffers that are full. A subclass empties the queue. A
/// record keeps the first 128 bytes of a name or tag and the first 1023 of a message.
///
/// Threads: any number of callers may log at once. A call reserves its record by one
/// compare-exchange, fills it, and publishes it by one subtraction: it never waits for another
/// thread. Only the call whose record finds no room, one in some 2,000, takes the mutex, to queue
/// the buffer; calls that come meanwhile wait for it. A call does no I/O, and allocates only when a
/// burst has emptied the pool: then the writer of a buffer's first record makes the next buffer,
/// which takes some 100 us. A call formats nothing, unless the Android log prints debug lines of
/// "FileAloneJLogger": then every reservation has one.
///
/// Signal handlers may log, too: the three logging operations are signal-safe, but for the lines
/// that they print to the Android log themselves (debug lines, a size beyond a buffer's, memory
/// that has run out). Where libc allocates a thread's variables when they are first used, as GNU's
/// does for a library that was loaded later, the thread must have logged before. One record is not
/// logged: that of a handler which has interrupted its own thread while this holds the mutex, and
/// which needs the mutex as well. It is dropped, and counted. Of all else, only what is said to be
/// signal-safe is.
///
/// Memory: the queue has no bound before a consumer is started, after it was stopped and while it
/// lags. Without memory for a new buffer events are dropped; one ERROR line says so when that
/// begins.
///
/// Crash hook: armed by initHook(), it catches SIGABRT, SIGSEGV and SIGBUS, writes the records that
/// are still in memory into a crash file, and hands the signal on to the action that was there
/// before. Every record whose logging call had returned before the signal is in a log file or in
/// the crash file (but for mode 1, which may leave the queue out). The process has one handler; it
/// works on the logger whose initHook() ran last.
///
/// Black box: if the property "vendor.debug.camera.jlog.blackbox" names a folder at construction,
/// buffers lie in a file there, which outlives the process, and goes with the logger. One logger of
/// a process has it. Without, or when it is used up, they lie in memory.
///
/// Fork: a child made by fork() has no consumer, and its mutex may be locked for ever. As POSIX
/// demands of the child of a threaded process, it may only exec or _exit.
class JLOG_EXPORT FileJLoggerBase : public JLogger {
  public:
    /// The block of records, also under the name of its logger.
    using Buffer = File::Buffer;

    /// Reads the properties of clock and black box, and makes the box and the first buffer; without
    /// memory the first call tries again.
    FileJLoggerBase();
    /// Frees the buffers, and the records in them are lost. Waits, within bounds, for a crash dump
    /// that runs. Does not touch the actions of the signals: uninitHook() comes before.
    ~FileJLoggerBase() override;

    void onLogEnter(unsigned int moduleId, const char* name, unsigned int requestNo) override;
    void onLogExit(unsigned int moduleId, const char* name, unsigned int requestNo) override;
    /// Keeps the first 1023 bytes of `message`. Its first `length` bytes must be readable; it need
    /// not be terminated.
    void onLogDetails(unsigned int moduleId, const char* name, JLogLevel level, const char* message,
                      unsigned long length) override;

    /// The time of `clockId` as local "MM-DD hh:mm:ss.uuuuuu" in `out`, which has `size` bytes (40
    /// are plenty); returns `out`. A monotonic clock prints as if it counted from the epoch. If
    /// `size` is below 15, the date has no room: an ERROR line says so, and the text is ".uuuuuu"
    /// alone. Any thread. Not signal-safe: the time-zone code may lock and allocate.
    static char* getTimeStamp(int clockId, char* out, unsigned long size);

    /// Writes the log folder to `path`, which must hold PROPERTY_VALUE_MAX bytes (`size` is not
    /// consulted), and creates it if it is missing, but not its parents. Logs a failure at INFO.
    void getFolderPath(char* path, unsigned long size);

  protected:
    /// Reserves and stamps a record of `size` bytes, its header included, aligned up to 8. If true,
    /// the caller fills the record and hands it to publish(); a non-null `serial` has received the
    /// next serial number. False, and nothing reserved, for a size beyond a buffer's, which each
    /// call logs at ERROR, and without memory.
    [[nodiscard]] bool allocLogSpace(unsigned long size, LogHeader** header, Buffer** buffer,
                                     unsigned int* serial) JLOG_EXCLUDES(mMutex);

    /// Completes a record that allocLogSpace() reserved, as one of `type`. The caller may not touch
    /// record and buffer afterwards.
    void publish(LogHeader* header, Buffer* buffer, RecordType type);

    /// Returns a clear buffer, which is not open yet: from the pool, or a new one; null without
    /// memory.
    std::unique_ptr<Buffer> allocEmptyBuffer() JLOG_REQUIRES(mMutex);

    /// Whether a record was reserved in the current buffer, complete or not.
    [[nodiscard]] bool currentHoldsRecordsLocked() const JLOG_REQUIRES(mMutex) {
        return mCurrent.get() != nullptr && mCurrent.get()->holdsRecords();
    }

    /// Queues the current buffer, which must be there, and replaces it by one in which `first` is
    /// reserved; without memory the slot stays empty. Returns the pending writers of the queued
    /// buffer. Does not wake the consumer.
    uint32_t retireCurrentLocked(BufferState first = {}) JLOG_REQUIRES(mMutex);

    /// Takes the oldest buffer out of the queue, which is not empty, and moves it, cleared, to the
    /// pool; frees it if the pool is full.
    void recycleFront() JLOG_EXCLUDES(mMutex);

    /// Adds a new buffer, with its pages made, to a pool of fewer than `wanted`. False if that is
    /// not to be done, without memory, and in a signal handler that has interrupted the holder of
    /// the mutex.
    bool addToPool(size_t wanted) JLOG_EXCLUDES(mMutex);

    /// Records that were dropped because a signal handler had interrupted its own thread where this
    /// holds the mutex; wraps. Relaxed: a figure to be told.
    [[nodiscard]] uint32_t droppedInHandlers() const {
        return mDroppedInHandlers.load(std::memory_order_relaxed);
    }

    /// Sets whether the queue keeps only the newest full buffers: four, and those with pending
    /// writers. It must be so without a consumer. Takes effect when the next buffer is queued.
    void setQueueBounded(bool bounded) JLOG_EXCLUDES(mMutex);
    /// The last argument of setQueueBounded(); false before.
    [[nodiscard]] bool isQueueBoundedLocked() const JLOG_REQUIRES(mMutex) { return mQueueBounded; }

    /// Arms the crash hook if the property "vendor.debug.camera.jlog.hookne" (default 2), which is
    /// its mode, is 1 or above. Makes this logger sActiveLogger in any case. Creates the log folder
    /// and allocates a writer; without memory for that logs an ERROR line and leaves the hook off.
    /// Does nothing else on a hook that is armed. Not from two threads at once.
    void initHook();

    /// Restores the actions that initHook() found. Waits, within bounds, for a dump that runs.
    /// Without effect when the hook is not armed.
    void uninitHook();

    /// From now on the clean-up of a dump spares the open file of `writer`, the subclass's own. The
    /// subclass calls it with null before the writer goes; that waits, within bounds, for a dump
    /// that runs.
    void setLogWriter(const FileJLogWriter* writer);

    /// Makes sigHandler the action of `sig`: saves the current action in `oldAct` and fills `act`
    /// with the one it installs. Does nothing when either is null.
    static void registerSigAction(int sig, struct sigaction* act, struct sigaction* oldAct);

    /// The handler. Puts the previous action back in place, dumps the records of sActiveLogger (or
    /// waits, within bounds, for the dump of another thread), and hands the signal on. Keeps errno.
    /// Signal-safe.
    static void sigHandler(int sig, siginfo_t* info, void* context);

    /// Asks the Android log again whether it prints the line of every reservation. Any thread.
    void refreshReservationLine();

    /// Hands every complete record in the first `maxBytes` of `buffer` to `writer`, in the order of
    /// reservation. Returns how many records there are, incomplete ones included. A record of an
    /// impossible size, which only damaged memory holds, ends the walk; one with impossible
    /// contents is stepped over. Signal-safe with a writer that is.
    static uint32_t renderRecords(const Buffer& buffer, FileJLogWriter& writer,
                                  size_t maxBytes = kBufferBytes);

    // Members that every call reads and few change share a cache line with the object's head. What
    // every call changes is in the head of the current buffer.

    /// Clock of all record time stamps: CLOCK_REALTIME, or CLOCK_MONOTONIC by property.
    const clockid_t mClockId;
    /// Crash-hook mode; 0 while no hook is installed. Relaxed: it tells writers whether to fence.
    /// Around a change a dump may meet records whose writers have not fenced.
    std::atomic<int32_t> mNeHook{0};
    /// The Android log prints the line of every reservation. Cached, since asking costs a property
    /// lookup on a device. Relaxed: around a change a line more or less does no harm.
    std::atomic<bool> mReservationLine{false};

    /// Makes the buffers, under mMutex; so it goes after them.
    BufferStore mStore;
    /// Receives new records. Replaced under mMutex. Empty only while there is no memory for a
    /// buffer.
    BufferSlot mCurrent;

    /// Guards the members that are declared so, and what Buffer, BufferSlot, BufferList and
    /// BufferPool say.
    alignas(kCacheLineBytes) JLogMutex mMutex{JLogMutex::InheritPriority()};
    /// The last serial number of the buffers that are no longer current.
    uint32_t mSerial JLOG_GUARDED_BY(mMutex){0};
    /// Retired buffers, oldest first.
    BufferList mFullBuffers JLOG_GUARDED_BY(mMutex);
    /// Buffers for the next burst: 768 KiB.
    BufferPool mEmptyBuffers JLOG_GUARDED_BY(mMutex);
    /// The consumer is to go on.
    std::atomic<bool> mRunning{false};
    /// Wakes the consumer.
    JLogCondition mCond;
    /// The actions that the hook has installed, for SIGABRT, SIGSEGV and SIGBUS in this order.
    struct sigaction mNewActions[3]{};
    /// The actions that it found. Each is written before the hook takes its signal, and read by the
    /// handler.
    struct sigaction mOldActions[3]{};
    /// Used by the handler alone, once the hook is armed. Lives as long as the logger: a handler
    /// may have been entered before the hook is disarmed.
    std::unique_ptr<FileJLogWriter> mCrashWriter;

    /// The logger whose initHook() ran last, armed or not; null once it is destroyed. Sequentially
    /// consistent: a handler first shuts the CrashGate, then looks here.
    static std::atomic<FileJLoggerBase*> sActiveLogger;

  private:
    /// Logs an enter or exit record.
    JLOG_INTERNAL void logEnterExit(RecordType type, unsigned int moduleId, const char* name,
                                    unsigned int requestNo);
    /// Reserves a record where the current buffer has no room, or there is none: in its successor,
    /// or in the buffer that another thread has put there meanwhile. Null without memory, and in a
    /// signal handler that has interrupted the holder of the mutex.
    JLOG_INTERNAL Buffer* reserveWithMutex(BufferState request, BufferState& before)
            JLOG_EXCLUDES(mMutex);
    /// Writes thread id and time.
    JLOG_INTERNAL void stamp(LogHeader& record) const;
    /// Puts a buffer into the empty slot and opens it, with `first` reserved; the slot stays empty
    /// without memory.
    JLOG_INTERNAL void fillSlotLocked(BufferState first) JLOG_REQUIRES(mMutex);
    /// Opens the buffer in the slot, which may be null.
    JLOG_INTERNAL void openLocked(Buffer* current, BufferState first) const JLOG_REQUIRES(mMutex);
    /// A buffer with the memory that BufferStore::mapRecords() returned; null without memory.
    JLOG_INTERNAL std::unique_ptr<Buffer> newBufferLocked(char* records) JLOG_REQUIRES(mMutex);
    /// Makes what the writer of a buffer's first record makes: its pages if they are missing, and
    /// the next buffer if the pool is empty.
    JLOG_INTERNAL void makeReady(Buffer& current);
    /// Returns `buffer`, which has left the queue, to be cleared or freed. Null, and the buffer
    /// leaked, when a crash dump may be reading it.
    JLOG_INTERNAL static std::unique_ptr<Buffer> unlessDumping(std::unique_ptr<Buffer> buffer);
    /// Makes room in a bounded queue for one more: gives up its oldest complete buffers.
    JLOG_INTERNAL void trimQueueLocked() JLOG_REQUIRES(mMutex);

    /// The action that was found for `sig`; null for a signal that is none of the three.
    /// Signal-safe.
    [[nodiscard]] JLOG_INTERNAL const struct sigaction* previousAction(int sig) const;
    /// Installs the action that `sig` is to be handed on to, and returns it: `found`, which may be
    /// null, or the default action. Signal-safe.
    JLOG_INTERNAL static struct sigaction restoreAction(int sig, const struct sigaction* found);
    /// Writes a crash file; `address` is the fault's. Signal-safe.
    JLOG_INTERNAL void dump(const char* signalName,
                            const void* address) JLOG_NO_THREAD_SAFETY_ANALYSIS;
    /// The last argument of setLogWriter(). Sequentially consistent, like sActiveLogger.
    std::atomic<const FileJLogWriter*> mLogWriter{nullptr};
    std::atomic<uint32_t> mDroppedInHandlers{0};
    bool mQueueBounded JLOG_GUARDED_BY(mMutex){false};
    /// The kernel has refused a buffer, and an ERROR line has said so. Until a new one is there,
    /// recycled buffers take records.
    bool mOutOfMemory JLOG_GUARDED_BY(mMutex){false};
};

}  // namespace JCam::Utils::JLog::File
