#include "jlog/track/EventTrackJLogger.h"

#include <cstddef>
#include <new>

#include <android/log.h>

#include "jlog/track/CamHalFbConf.h"
#include "jlog/track/TrackLogTag.h"

namespace JCam::Utils::JLog::Track {

using std::memory_order_relaxed;

namespace {

/// Holds the instance, so that creating it cannot fail.
alignas(EventTrackJLogger) std::byte sStorage[sizeof(EventTrackJLogger)];

}  // namespace

// In this order, so that the instance is destroyed before the mutex (bionic's has a destructor,
// glibc's does not). The first two are initialised at compile time, for constructors that run
// earlier.
constinit std::atomic<EventTrackJLogger*> EventTrackJLogger::sETLogger{nullptr};
constinit JLogMutex EventTrackJLogger::sETLoggerMutex;
EventTrackJLogger::Destroyer EventTrackJLogger::sDestroyer;

EventTrackJLogger::Destroyer::~Destroyer() {
    releaseInstance();
}

EventTrackJLogger* EventTrackJLogger::getInstance() {
    EventTrackJLogger* instance = sETLogger.load(std::memory_order_acquire);
    if (instance != nullptr) {
        return instance;
    }
    const JLogLock lock(sETLoggerMutex);
    // Relaxed: every store holds the mutex.
    instance = sETLogger.load(memory_order_relaxed);
    if (instance == nullptr) {
        instance = new (sStorage) EventTrackJLogger;
        // Release: publishes the complete instance to the load above.
        sETLogger.store(instance, std::memory_order_release);
    }
    return instance;
}

void EventTrackJLogger::releaseInstance() {
    const JLogLock lock(sETLoggerMutex);
    // Cleared first: a concurrent getInstance() waits and creates a new one. Relaxed: every store
    // holds the mutex, and by contract no thread uses the instance any more.
    EventTrackJLogger* const instance = sETLogger.exchange(nullptr, memory_order_relaxed);
    if (instance != nullptr) {
        instance->~EventTrackJLogger();
    }
}

EventTrackJLogger::EventTrackJLogger() {
    __android_log_print(ANDROID_LOG_INFO, kTrackLogTag, "EventTrackJLogger %p",
                        static_cast<void*>(this));
}

EventTrackJLogger::~EventTrackJLogger() {
    __android_log_print(ANDROID_LOG_INFO, kTrackLogTag, "~EventTrackJLogger %p",
                        static_cast<void*>(this));
}

void EventTrackJLogger::clearData() {
    {
        const JLogLock lock(mMutex);
        mLastPersistentReadTime = 0;
    }
    // Relaxed, here and where it is read: the flag guards no other data.
    mExceptionErrCodeRead.store(false, memory_order_relaxed);
}

void EventTrackJLogger::setTrackInfo(int openId, unsigned int opMode) {
    // A field that stays as it is is not stored again: another thread may be setting it now.
    if (openId != kNoCamera) {
        mOpenID.store(openId, memory_order_relaxed);
    }
    if (opMode != kUnknownMode) {
        mOpMode.store(opMode, memory_order_relaxed);
    }
    __android_log_print(ANDROID_LOG_DEBUG, kTrackLogTag, "set mOpenID:%d mOpMode:0x%x",
                        mOpenID.load(memory_order_relaxed), mOpMode.load(memory_order_relaxed));
}

// NOLINTBEGIN(readability-convert-member-functions-to-static): callers have an instance

int EventTrackJLogger::init() {
    return 0;
}

int EventTrackJLogger::unInit() {
    return 0;
}

int EventTrackJLogger::findEventId(int code) {
    return findCamHalFbRow(code);
}

const char* EventTrackJLogger::acquireErrorCodeDesc(int code) {
    const int row = findCamHalFbRow(code);
    if (row < 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTrackLogTag,
                            "not found error code:0x%x desc, please check gCamHalFbConf",
                            static_cast<unsigned int>(code));
        return nullptr;
    }
    return gCamHalFbConf[row].desc;
}

// NOLINTEND(readability-convert-member-functions-to-static)

}  // namespace JCam::Utils::JLog::Track
