#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "jlog/JLogExport.h"
#include "jlog/JLogMutex.h"

namespace JCam::Utils::JLog::Track {

/// The one object of a process through which the camera HAL reports camera exceptions. It has
/// nothing to do with JLogger: no initializer is needed, and no logging call comes here.
///
/// An exception is a pair of small numbers, its class and its number within the class, from which
/// an error code is built: 0x10025000 | (type << 8) | subCode. On the way out there are two roads:
///
///  - the log collector, which is told of every exception that is reported by class and number;
///  - the kernel's feedback node /proc/cam_kern_fb, which gets the known ones, each at most once in
///    30 seconds.
///
/// Threads: any thread may call anything, as long as there is an instance: whoever releases it,
/// ends the process or unloads the library sees to it that nobody uses it any more. No lock is held
/// while the log collector or the node is busy, so that a slow one
/// delays its own caller alone. Nothing here is signal-safe. After a fork, the child of a process
/// with threads calls nothing here, and leaves by _exit or exec.
///
/// Failures are told to the Android log under the tag "EventTrackJLogger" and change nothing else;
/// what failed is not tried again. The tracker's own state needs no memory beyond the instance,
/// which is part of the library, and nothing allocates with a lock held. Files take memory
/// as their interface does.
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

    EventTrackJLogger();
    virtual ~EventTrackJLogger();
    EventTrackJLogger(const EventTrackJLogger&) = delete;
    EventTrackJLogger& operator=(const EventTrackJLogger&) = delete;

    /// Both do nothing, and return 0.
    int init();
    int unInit();

    /// Sets the open camera, whose id goes into every payload from now on, and the operation mode
    /// of its session. -1 and 0xFFFF leave the one or the other as it is. Takes no lock.
    void setTrackInfo(int openId, unsigned int opMode);

    /// The row of `code` in the table of feedback codes, or -1.
    int findEventId(int code);
    /// The name of `code` in that table, or null after an error message. Never to be freed.
    const char* acquireErrorCodeDesc(int code);

    /// Raises one exception with the log collector, and blocks for as long as that takes. An id
    /// without all bits of 0x10025000 is refused with an error message.
    void camJlcRaiseException(unsigned int exceptionId) JLOG_EXCLUDES(mFbMutex);
    /// Writes a payload about a code of the table to the kernel's feedback node, at most once in 30
    /// seconds of the wall clock, and blocks for as long as the node does. `detail` may be null;
    /// the payload is cut at 1023 bytes.
    void sendHalExcepFbData(int code, const char* detail) JLOG_EXCLUDES(mFbMutex);
    /// After a sensor probe has failed: reads the sensor's name from the feedback node and answers
    /// with a payload about it. Blocks for as long as the node does.
    void sensorProbeFailedFb() JLOG_EXCLUDES(mFbMutex);

  private:
    /// Destroys the instance when the static objects of the library are destroyed.
    class Destroyer {
      public:
        ~Destroyer();
    };

    static constexpr int32_t kNoCamera = -1;
    static constexpr uint32_t kUnknownMode = 0xFFFF;
    /// Rows in the table of feedback codes.
    static constexpr size_t kFeedbackRowCount = 30;

    /// Notes feedback about a row of the table at `nowSec`, unless the last one is too recent.
    /// Returns whether it did; `lastSec` becomes the time of the last one, 0 if there was none.
    bool recordFeedback(size_t row, int64_t nowSec, int64_t& lastSec) JLOG_EXCLUDES(mFbMutex);

    /// Released once the instance is complete, acquired by getInstance().
    static std::atomic<EventTrackJLogger*> sETLogger;
    /// Serialises creation and destruction of the instance.
    static JLogMutex sETLoggerMutex;
    static Destroyer sDestroyer;

    /// By row of the table, the wall-clock second at which feedback was last sent, or attempted; 0
    /// for never.
    std::array<int64_t, kFeedbackRowCount> mFbRecordTime JLOG_GUARDED_BY(mFbMutex){};
    // Atomic each for itself: nobody concludes from the one about the other.
    std::atomic<int32_t> mOpenID{kNoCamera};
    std::atomic<uint32_t> mOpMode{kUnknownMode};
    JLogMutex mFbMutex;
};

}  // namespace JCam::Utils::JLog::Track
