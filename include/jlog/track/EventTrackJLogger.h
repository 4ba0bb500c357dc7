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

/// Camera exceptions: their codes, and who is told of them.
namespace JCam::Utils::JLog::Track {

/// The one object of a process through which the camera HAL reports camera exceptions. It has
/// nothing to do with JLogger: no initializer is needed, and no logging call comes here.
///
/// An exception is a pair of small numbers, its class and its number within the class, from which
/// an error code is built: 0x10025000 | (type << 8) | subCode. On the way out there are four roads:
///
///  - the log collector, which is told of every exception that is reported by class and number;
///  - the kernel's feedback node /proc/cam_kern_fb, which gets the known ones, each at most once in
///    30 seconds;
///  - the list of persistent codes, from which the HAL takes one at a time;
///  - the stats service, which is told of dark screens.
///
/// In the other direction, the HAL asks here for the exception codes that the kernel and the vendor
/// camera stack have left behind in two files.
///
/// Threads: any thread may call anything, as long as there is an instance: whoever releases it,
/// ends the process or unloads the library sees to it that nobody uses it any more. No lock is held
/// while the log collector, the node, a file or the stats service is busy, so that a slow one
/// delays its own caller alone. Nothing here is signal-safe. After a fork, the child of a process
/// with threads calls nothing here, and leaves by _exit or exec.
///
/// Failures are told to the Android log under the tag "EventTrackJLogger" and change nothing else;
/// what failed is not tried again. The tracker's own state needs no memory beyond the instance,
/// which is part of the library, and nothing allocates with a lock held. Files and the stats
/// service take memory as their interfaces do.
class JLOG_EXPORT EventTrackJLogger {
  public:
    /// The instance, made at the first call; never null, and never to be deleted by the caller.
    /// Takes no lock once there is one. Not to be called after the static objects of the library
    /// are destroyed.
    static EventTrackJLogger* getInstance() JLOG_EXCLUDES(sETLoggerMutex);
    /// Destroys the instance if there is one. The next getInstance() makes a fresh one.
    ///
    /// Making and destroying it logs a line with the mutex held: a logger function that calls
    /// either of the two for that line waits for itself.
    static void releaseInstance() JLOG_EXCLUDES(sETLoggerMutex);

    /// For getInstance(): what the HAL reports belongs to the instance. Logs a line.
    EventTrackJLogger();
    /// For releaseInstance(). Logs a line; the codes that are still kept are lost.
    virtual ~EventTrackJLogger();
    EventTrackJLogger(const EventTrackJLogger&) = delete;
    EventTrackJLogger& operator=(const EventTrackJLogger&) = delete;

    /// Does nothing, and returns 0.
    int init();
    /// Does nothing, and returns 0.
    int unInit();

    /// Allows readExceptionErrCode() to read the files again, and readPersistentErrCode() to hand a
    /// code out at once. Forgets no code, no feedback time and no track information.
    void clearData() JLOG_EXCLUDES(mMutex);

    /// Sets the open camera and the operation mode of its session, which go into the payloads of
    /// sendHalExcepFbData() and the reports of dark screens from now on. -1 and 0xFFFF, which are
    /// also what there is at first, leave the one or the other as it is. Takes no lock.
    void setTrackInfo(int openId, unsigned int opMode);

    /// The row of `code` in the table of feedback codes, from 0, or -1. Takes no lock.
    int findEventId(int code);
    /// The name of `code` in that table, or null after an error message. Never to be freed. Takes
    /// no lock.
    const char* acquireErrorCodeDesc(int code);

    /// Reports an exception to the log collector and to the feedback node, and blocks for as long
    /// as they do. `type` is 0 to 7 and `subCode` 0 to 32; other values are refused with an error
    /// message. `detail` may be null.
    void writeExceptionErrCode(int type, int subCode, const char* detail)
            JLOG_EXCLUDES(mMutex, mFbMutex);

    /// Keeps a code for readPersistentErrCode() and reports it to the log collector, for which it
    /// blocks. A code that is kept already becomes the newest. Refuses the numbers that
    /// writeExceptionErrCode() refuses.
    void caughtPersistentErrCode(int type, int subCode) JLOG_EXCLUDES(mMutex, mFbMutex);
    /// Hands out the oldest kept code, which is then kept no more; 0 if there is none, or if fewer
    /// than 4 seconds of the wall clock have passed since the last one. A clock that was set back
    /// holds nothing back.
    int readPersistentErrCode() JLOG_EXCLUDES(mMutex);

    /// The exception code that the kernel has left behind in
    /// /sys/class/jovix_cam/cam_event/hardware_exception or, if there is none, the one of the
    /// vendor camera stack in data/vendor/camera_dump/mtkExceptionErrCode.txt below the working
    /// directory; 0 without either. The latter file is deleted in any case. Only the first call of
    /// an instance, or since clearData(), reads the files; every other one returns 0. Blocks while
    /// someone else holds the lock of a file, which no signal ends.
    int readExceptionErrCode() JLOG_EXCLUDES(mMutex, mFbMutex);
    /// The kernel's alone, as often as it is called; 0 if there is none, or if the kernel's event
    /// stands for none. Blocks likewise.
    int readKernelExceptionErrCode() JLOG_EXCLUDES(mMutex, mFbMutex);
    /// The one of the vendor camera stack alone, whose file is deleted; 0 if there is none. Blocks
    /// likewise.
    int readHalExceptionErrCode() JLOG_EXCLUDES(mMutex, mFbMutex);

    /// Raises one exception with the log collector, and blocks for as long as that takes. An id
    /// without all bits of 0x10025000 is refused with an error message, and another one tells when
    /// the collector is missing or refuses.
    void camJlcRaiseException(unsigned int exceptionId) JLOG_EXCLUDES(mMutex, mFbMutex);
    /// Writes a payload about a code of the table to the kernel's feedback node, and blocks for as
    /// long as the node does. Each code is tried at most once in 30 seconds of the wall clock, and
    /// for longer if that is set back; it is skipped with an error message meanwhile, as is one
    /// without a row. `detail` may be null; the payload is cut at 1023 bytes.
    void sendHalExcepFbData(int code, const char* detail) JLOG_EXCLUDES(mMutex, mFbMutex);
    /// After a sensor probe has failed: reads the sensor's name from the feedback node and answers
    /// with a payload about it, as often as it is called; without a name there is no payload.
    /// Blocks for as long as the node does.
    void sensorProbeFailedFb() JLOG_EXCLUDES(mMutex, mFbMutex);

    /// Reports a dark screen to the stats service as a vendor atom. `moduleId` is 0 to 3; other
    /// values are refused with an error message. `detail` may be null, and is only logged.
    /// Allocates, and blocks for as long as binder does.
    void writeDarkScreenErrCode(int moduleId, const char* detail) JLOG_EXCLUDES(mMutex, mFbMutex);

  private:
    /// Destroys the instance when the static objects of the library are destroyed.
    class JLOG_INTERNAL Destroyer {
      public:
        ~Destroyer();
    };

    static constexpr int32_t kNoCamera = -1;
    static constexpr uint32_t kUnknownMode = 0xFFFF;
    /// All error codes that class and number can make.
    static constexpr size_t kMaxErrorCodes = 264;
    /// Rows in the table of feedback codes.
    static constexpr size_t kFeedbackRowCount = 30;

    /// Makes `code` the newest of the kept ones.
    JLOG_INTERNAL void keepPersistentCode(int32_t code) JLOG_EXCLUDES(mMutex);
    /// Notes feedback about a row of the table at `nowSec`, unless the last one is too recent.
    /// Returns whether it did; `lastSec` becomes the time of the last one, 0 if there was none.
    JLOG_INTERNAL bool recordFeedback(size_t row, int64_t nowSec, int64_t& lastSec)
            JLOG_EXCLUDES(mFbMutex);

    /// Released once the instance is complete, acquired by getInstance().
    JLOG_INTERNAL static std::atomic<EventTrackJLogger*> sETLogger;
    /// Serialises creation and destruction of the instance.
    JLOG_INTERNAL static JLogMutex sETLoggerMutex;
    JLOG_INTERNAL static Destroyer sDestroyer;

    /// The first mPersistentCount are kept codes, oldest first, each once.
    std::array<int32_t, kMaxErrorCodes> mPersistentErrCodes JLOG_GUARDED_BY(mMutex){};
    size_t mPersistentCount JLOG_GUARDED_BY(mMutex){0};
    /// By row of the table, the wall-clock second at which feedback was last sent, or attempted; 0
    /// for never.
    std::array<int64_t, kFeedbackRowCount> mFbRecordTime JLOG_GUARDED_BY(mFbMutex){};
    /// Whether the files were read since clearData(), or are being read.
    std::atomic<bool> mExceptionErrCodeRead{false};
    /// Wall-clock second at which a persistent code was last handed out.
    int64_t mLastPersistentReadTime JLOG_GUARDED_BY(mMutex){0};
    JLogMutex mMutex;
    // Atomic each for itself: nobody concludes from the one about the other.
    std::atomic<int32_t> mOpenID{kNoCamera};
    std::atomic<uint32_t> mOpMode{kUnknownMode};
    /// Guards the feedback times. A lock of their own, so that a report does not wait for
    /// persistent codes.
    JLogMutex mFbMutex;
};

/// The proxy of the stats service; empty if it is not declared or does not run. Does not wait for
/// it to start. Any thread; allocates.
JLOG_EXPORT std::shared_ptr<aidl::android::frameworks::stats::IStats> getStatsService();

}  // namespace JCam::Utils::JLog::Track
