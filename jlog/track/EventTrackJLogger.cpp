#include "jlog/track/EventTrackJLogger.h"

#include <cstddef>
#include <new>

#include <android/log.h>

#include "jlog/track/CamHalFbConf.h"
#include "jlog/track/TrackLogTag.h"

namespace JCam::Utils::JLog::Track {

using std::memory_order_relaxed;

namespace {

/// Where the instance lives, so that making it cannot fail.
alignas(EventTrackJLogger) std::byte sStorage[sizeof(EventTrackJLogger)];

}  // namespace

// In this order, so that they are destroyed in the other: the instance goes while the mutex is
// there (bionic's is destroyed, glibc's is not). The first two are initialised at compile time, for
// constructors that run before ours.
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
    // Relaxed: whoever stored it held the mutex.
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
    // Cleared first: a getInstance() meanwhile waits and makes a fresh one. Relaxed: whoever stored
    // it held the mutex, and by contract nobody uses the instance any more.
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
    // A field that is to stay is not stored again: another thread may be setting it at this moment.
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
