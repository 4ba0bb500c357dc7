#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include <android/log.h>

#include "jlog/track/ErrorCode.h"
#include "jlog/track/EventTrackJLogger.h"
#include "jlog/track/TrackLogTag.h"
#include "jlog/track/WallClock.h"

// Exceptions that the HAL reports, and those that it reads back.

namespace JCam::Utils::JLog::Track {

namespace {

/// Shortest time between two persistent codes that are handed out.
constexpr int64_t kHandOutIntervalSec = 4;

/// As isReportable(), but logs a refusal.
bool checkReportable(int type, int subCode) {
    const bool reportable = isReportable(type, subCode);
    if (!reportable) {
        __android_log_print(ANDROID_LOG_ERROR, kTrackLogTag, "input params invaild");
    }
    return reportable;
}

}  // namespace

void EventTrackJLogger::writeExceptionErrCode(int type, int subCode, const char* detail) {
    if (!checkReportable(type, subCode)) {
        return;
    }
    const int32_t code = makeErrorCode(type, subCode);
    camJlcRaiseException(static_cast<uint32_t>(code));
    __android_log_print(ANDROID_LOG_INFO, kTrackLogTag, "EXCEPTION_ERR_CODE_SAVE code = 0x%x",
                        static_cast<uint32_t>(code));
    sendHalExcepFbData(code, detail);
}

void EventTrackJLogger::caughtPersistentErrCode(int type, int subCode) {
    if (!checkReportable(type, subCode)) {
        return;
    }
    const int32_t code = makeErrorCode(type, subCode);
    __android_log_print(ANDROID_LOG_INFO, kTrackLogTag,
                        "Persistent EXCEPTION_ERR_CODE_SAVE code = 0x%x",
                        static_cast<uint32_t>(code));
    // Kept before it is raised, and raised without the lock: a collector that is slow or never
    // returns neither delays the code nor blocks the threads that read the list.
    keepPersistentCode(code);
    camJlcRaiseException(static_cast<uint32_t>(code));
}

void EventTrackJLogger::keepPersistentCode(int32_t code) {
    static_assert(kMaxErrorCodes == size_t{kErrorTypes} * kErrorSubCodes);
    const JLogLock lock(mMutex);
    int32_t* const first = mPersistentErrCodes.data();
    int32_t* const othersEnd = std::remove(first, first + mPersistentCount, code);
    *othersEnd = code;
    mPersistentCount = static_cast<size_t>(othersEnd + 1 - first);
}

int EventTrackJLogger::readPersistentErrCode() {
    const JLogLock lock(mMutex);
    const int64_t nowSec = wallClockSec();
    const int64_t sinceLast = elapsedSec(mLastPersistentReadTime, nowSec);
    // A clock that was set back delays nothing.
    const bool isTooSoon = sinceLast >= 0 && sinceLast < kHandOutIntervalSec;
    if (isTooSoon || mPersistentCount == 0) {
        return 0;
    }
    int32_t* const first = mPersistentErrCodes.data();
    const int32_t code = *first;
    std::copy(first + 1, first + mPersistentCount, first);
    mPersistentCount--;
    mLastPersistentReadTime = nowSec;
    return code;
}

int EventTrackJLogger::readExceptionErrCode() {
    // Set before the files are read, so that only one of two threads reads them and a concurrent
    // clearData() stays effective.
    if (mExceptionErrCodeRead.exchange(true, std::memory_order_relaxed)) {
        return 0;
    }
    const int kernelCode = readKernelExceptionErrCode();
    // Even if the kernel has a code: the file is consumed.
    const int halCode = readHalExceptionErrCode();
    if (kernelCode != 0) {
        __android_log_print(ANDROID_LOG_INFO, kTrackLogTag, "kernel excption error code 0x%x",
                            static_cast<unsigned int>(kernelCode));
        return kernelCode;
    }
    __android_log_print(ANDROID_LOG_INFO, kTrackLogTag, "hal excption error code 0x%x",
                        static_cast<unsigned int>(halCode));
    return halCode;
}

}  // namespace JCam::Utils::JLog::Track
