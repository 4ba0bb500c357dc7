#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "jlog/JLogExport.h"
#include "jlog/JLogMutex.h"

namespace aidl::android::frameworks::stats {
class IStats;
}  // namespace aidl::android::frameworks::stats

/// Camera exceptions: their codes, and where they are reported.
namespace JCam::Utils::JLog::Track {

/// The object through which the camera HAL reports camera exceptions; a process has one. It is
/// independent of JLogger: it needs no initializer, and no logging call reaches it.
///
/// An exception is a pair of small numbers, its type and its sub-code within the type, which make
/// an error code: 0x10025000 | (type << 8) | subCode. Exceptions go to four places:
///
///  - the log collector gets every exception that is reported by type and sub-code;
///  - the kernel's feedback node /proc/cam_kern_fb gets the known ones, each at most once in 30
///    seconds;
///  - the list of persistent codes, from which the HAL takes one at a time;
///  - the stats service gets dark screens.
///
/// In the other direction, the HAL reads here the exception codes that the kernel and the vendor
/// camera stack have left in two files.
///
/// Threads: any thread may call anything while the instance exists. Whoever releases it, ends the
/// process or unloads the library makes sure that no thread uses it any more. No lock is held
/// during a call of the log collector, the node, a file or the stats service, so that a slow one
/// delays only its own caller. Nothing here is signal-safe. After a fork, the child of a process
/// with threads must call nothing here, and leave by _exit or exec.
///
/// Failures are logged to the Android log under the tag "EventTrackJLogger" and change nothing
/// else; nothing is tried again. The tracker's state needs no memory beyond the instance, which is
/// static storage, and nothing allocates with a lock held. Files and the stats service allocate as
/// their interfaces do.
class JLOG_EXPORT EventTrackJLogger {
  public:
    /// The instance, created by the first call; never null. The caller must not delete it. Takes no
    /// lock once it exists. Must not be called after the static objects of the library are
    /// destroyed.
    static EventTrackJLogger* getInstance() JLOG_EXCLUDES(sETLoggerMutex);
    /// Destroys the instance if there is one. The next getInstance() creates a new one.
    ///
    /// Creation and destruction log a line with the mutex held: a logger function of the Android
    /// log that calls either of the two for that line deadlocks.
    static void releaseInstance() JLOG_EXCLUDES(sETLoggerMutex);

    /// Only for getInstance(): what the HAL reports belongs to its instance. Logs a line.
    EventTrackJLogger();
    /// Only for releaseInstance(). Logs a line; the codes still kept are lost.
    virtual ~EventTrackJLogger();
    EventTrackJLogger(const EventTrackJLogger&) = delete;
    EventTrackJLogger& operator=(const EventTrackJLogger&) = delete;

    /// Does nothing; returns 0.
    int init();
    /// Does nothing; returns 0.
    int unInit();

    /// Lets readExceptionErrCode() read the files again, and readPersistentErrCode() hand out a
    /// code at once. Keeps all codes, feedback times and track information.
    void clearData() JLOG_EXCLUDES(mMutex);

    /// Sets the open camera and the operation mode of its session, for later payloads of
    /// sendHalExcepFbData() and reports of dark screens. -1 and 0xFFFF, the initial values, leave
    /// their field as it is. Takes no lock.
    void setTrackInfo(int openId, unsigned int opMode);

    /// The row of `code` in the table of feedback codes, from 0, or -1. Takes no lock.
    int findEventId(int code);
    /// The name of `code` in that table; null, with an error message, if it has no row. Must not be
    /// freed. Takes no lock.
    const char* acquireErrorCodeDesc(int code);

    /// Reports an exception to the log collector and to the feedback node; blocks as long as they
    /// do. `type` is 0 to 7 and `subCode` 0 to 32; other values are refused with an error message.
    /// `detail` may be null.
    void writeExceptionErrCode(int type, int subCode, const char* detail)
            JLOG_EXCLUDES(mMutex, mFbMutex);

    /// Keeps a code for readPersistentErrCode() and reports it to the log collector; blocks as long
    /// as that does. A code that is already kept becomes the newest. Refuses the values that
    /// writeExceptionErrCode() refuses.
    void caughtPersistentErrCode(int type, int subCode) JLOG_EXCLUDES(mMutex, mFbMutex);
    /// Removes and returns the oldest kept code; 0 if there is none, or if the last one was
    /// returned less than 4 seconds of the wall clock ago. A clock that was set back delays
    /// nothing.
    int readPersistentErrCode() JLOG_EXCLUDES(mMutex);

    /// The exception code that the kernel has left in
    /// /sys/class/jovix_cam/cam_event/hardware_exception or, if there is none, the one that the
    /// vendor camera stack has left in data/vendor/camera_dump/mtkExceptionErrCode.txt below the
    /// working directory; 0 without either. Deletes the latter file in any case. Only the first
    /// call of an instance, or since clearData(), reads the files; every other one returns 0.
    /// Blocks while someone else holds the lock of a file; no signal ends that wait.
    int readExceptionErrCode() JLOG_EXCLUDES(mMutex, mFbMutex);
    /// Reads the kernel's file alone, at every call; 0 if there is no event, or one without a code.
    /// Blocks likewise.
    int readKernelExceptionErrCode() JLOG_EXCLUDES(mMutex, mFbMutex);
    /// Reads and deletes the file of the vendor camera stack alone; 0 if it holds no code. Blocks
    /// likewise.
    int readHalExceptionErrCode() JLOG_EXCLUDES(mMutex, mFbMutex);

    /// Raises one exception with the log collector; blocks as long as that takes. Logs an error
    /// message if the id lacks a bit of 0x10025000, or if the collector is missing or refuses.
    void camJlcRaiseException(unsigned int exceptionId) JLOG_EXCLUDES(mMutex, mFbMutex);
    /// Writes a payload about a code of the table to the kernel's feedback node; blocks as long as
    /// the node does. Tries each code at most once in 30 seconds of the wall clock, later if that
    /// is set back. Skips with an error message a code that comes too soon or has no row. `detail`
    /// may be null; the payload is cut at 1023 bytes.
    void sendHalExcepFbData(int code, const char* detail) JLOG_EXCLUDES(mMutex, mFbMutex);
    /// For a sensor probe that has failed: reads the sensor's name from the feedback node and
    /// answers with a payload about it, at every call. Without a name it sends nothing. Blocks as
    /// long as the node does.
    void sensorProbeFailedFb() JLOG_EXCLUDES(mMutex, mFbMutex);

    /// Reports a dark screen to the stats service as a vendor atom. `moduleId` is 0 to 3; other
    /// values are refused with an error message. `detail` may be null; it is only logged.
    /// Allocates, and blocks as long as binder does.
    void writeDarkScreenErrCode(int moduleId, const char* detail) JLOG_EXCLUDES(mMutex, mFbMutex);

  private:
    /// Destroys the instance together with the static objects of the library.
    class JLOG_INTERNAL Destroyer {
      public:
        ~Destroyer();
    };

    static constexpr int32_t kNoCamera = -1;
    static constexpr uint32_t kUnknownMode = 0xFFFF;
    /// All error codes that type and sub-code can make.
    static constexpr size_t kMaxErrorCodes = 264;
    /// Rows in the table of feedback codes.
    static constexpr size_t kFeedbackRowCount = 30;

    /// Makes `code` the newest kept one.
    JLOG_INTERNAL void keepPersistentCode(int32_t code) JLOG_EXCLUDES(mMutex);
    /// Records feedback about a row of the table at `nowSec`, unless the last one is too recent.
    /// Returns whether it did; `lastSec` becomes the time of the last one, 0 if there was none.
    JLOG_INTERNAL bool recordFeedback(size_t row, int64_t nowSec, int64_t& lastSec)
            JLOG_EXCLUDES(mFbMutex);

    /// A release store publishes the complete instance to the acquire load of getInstance().
    JLOG_INTERNAL static std::atomic<EventTrackJLogger*> sETLogger;
    /// Serialises creation and destruction of the instance.
    JLOG_INTERNAL static JLogMutex sETLoggerMutex;
    JLOG_INTERNAL static Destroyer sDestroyer;

    /// The first mPersistentCount are kept codes: oldest first, no duplicates.
    std::array<int32_t, kMaxErrorCodes> mPersistentErrCodes JLOG_GUARDED_BY(mMutex){};
    size_t mPersistentCount JLOG_GUARDED_BY(mMutex){0};
    /// By row of the table, the wall-clock second of the last feedback, sent or attempted; 0 for
    /// never.
    std::array<int64_t, kFeedbackRowCount> mFbRecordTime JLOG_GUARDED_BY(mFbMutex){};
    /// Whether the files were read since clearData(), or are being read.
    std::atomic<bool> mExceptionErrCodeRead{false};
    /// Wall-clock second at which a persistent code was last handed out.
    int64_t mLastPersistentReadTime JLOG_GUARDED_BY(mMutex){0};
    JLogMutex mMutex;
    // Independent of each other.
    std::atomic<int32_t> mOpenID{kNoCamera};
    std::atomic<uint32_t> mOpMode{kUnknownMode};
    /// Separate from mMutex, so that a report does not wait for persistent codes.
    JLogMutex mFbMutex;
};

/// The proxy of the stats service; empty if it is not declared or not running. Does not wait for it
/// to start. Any thread; allocates.
JLOG_EXPORT std::shared_ptr<aidl::android::frameworks::stats::IStats> getStatsService();

}  // namespace JCam::Utils::JLog::Track
