#include <sys/types.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include <android/log.h>
#include <jlc/jlc_exception.h>

#include "jlog/track/CamHalFbConf.h"
#include "jlog/track/ClientPackage.h"
#include "jlog/track/ErrorCode.h"
#include "jlog/track/EventTrackJLogger.h"
#include "jlog/track/ScopedFile.h"
#include "jlog/track/TrackLogTag.h"
#include "jlog/track/WallClock.h"

// Null in a process without the log collector.
#pragma weak jlc_raise_exception

// Exceptions that leave the process: to the log collector and to the kernel.

namespace JCam::Utils::JLog::Track {

namespace {

using std::memory_order_relaxed;

static_assert(std::endian::native == std::endian::little, "as the log collector reads its record");

/// The log collector expects these values; their meaning is private to it.
constexpr uint32_t kOpaque24 = 33;
constexpr uint32_t kOpaque28 = 4;

constexpr char kFeedbackNode[] = "/proc/cam_kern_fb";
/// Shortest time between two payloads about a code.
constexpr int64_t kFeedbackIntervalSec = 30;
/// Including the NUL.
constexpr size_t kPayloadBytes = 1024;
constexpr size_t kSensorNameBytes = 512;

bool handToCollector(JlcExceptionRecord& record) {
    return jlc_raise_exception != nullptr && jlc_raise_exception(&record) == 0;
}

// The node takes each write as one payload, and returns the name in one read. Both are system calls
// because stdio would send the rest after a short write as another payload, and would never end on
// a node that takes nothing.

void writePayload(const ScopedFile& node, const char* payload) {
    const size_t length = strlen(payload);
    ssize_t written;
    do {
        written = write(node.fd(), payload, length);
    } while (written < 0 && errno == EINTR);
    if (written != static_cast<ssize_t>(length)) {
        __android_log_print(ANDROID_LOG_ERROR, kTrackLogTag, "%s took %zd of %zu bytes, errno %d",
                            kFeedbackNode, written, length, written < 0 ? errno : 0);
    }
}

/// Returns how many bytes it has read; 0 if that fails.
size_t readName(const ScopedFile& node, char* name, size_t size) {
    ssize_t count;
    do {
        count = read(node.fd(), name, size);
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTrackLogTag, "cannot read %s, errno %d",
                            kFeedbackNode, errno);
        return 0;
    }
    return static_cast<size_t>(count);
}

void logNoNode(int error) {
    __android_log_print(ANDROID_LOG_ERROR, kTrackLogTag, "fd err = %d ", error);
}

}  // namespace

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): callers have an instance
void EventTrackJLogger::camJlcRaiseException(unsigned int exceptionId) {
    __android_log_print(ANDROID_LOG_INFO, kTrackLogTag, "jlc raise exception exceptionId = 0x%x",
                        exceptionId);
    if (!isCameraType(exceptionId)) {
        __android_log_print(ANDROID_LOG_ERROR, kTrackLogTag, "exception id in not camera type");
        return;
    }
    JlcExceptionRecord record{};
    record.timeSec = wallClockSec();
    record.exceptionId = exceptionId;
    record.opaque24 = kOpaque24;
    record.opaque28 = kOpaque28;
    if (!handToCollector(record)) {
        __android_log_print(ANDROID_LOG_ERROR, kTrackLogTag, "jlc_raise_exception failed");
    }
}

bool EventTrackJLogger::recordFeedback(size_t row, int64_t nowSec, int64_t& lastSec) {
    static_assert(kFeedbackRowCount == kCamHalFbRows);
    const JLogLock lock(mFbMutex);
    int64_t& recordSec = mFbRecordTime[row];
    lastSec = recordSec;
    // A clock that was set back delays feedback until it has caught up.
    if (elapsedSec(lastSec, nowSec) < kFeedbackIntervalSec) {
        return false;
    }
    recordSec = nowSec;
    return true;
}

void EventTrackJLogger::sendHalExcepFbData(int code, const char* detail) {
    const int64_t nowSec = wallClockSec();
    int64_t lastSec = 0;
    const int row = findCamHalFbRow(code);
    // Recorded before it is sent: of several threads with the same code one sends the payload, and
    // a failure counts too.
    if (row < 0 || !recordFeedback(static_cast<size_t>(row), nowSec, lastSec)) {
        __android_log_print(ANDROID_LOG_ERROR, kTrackLogTag,
                            "skip exp feedback, record time = %ld, now time = %ld",
                            static_cast<long>(lastSec), static_cast<long>(nowSec));
        return;
    }
    const ClientPackage package;
    char payload[kPayloadBytes] = {};
    snprintf(payload, sizeof(payload),
             "%s:NULL$$EventField@@%s$$FieldData@@0x%x$$pkgName@@%s$$camID@@%d$$"
             "operationMode@@0x%x$$detailData@@otherData = %s",
             gCamHalFbConf[row].category, gCamHalFbConf[row].desc, static_cast<unsigned int>(code),
             package.name(), mOpenID.load(memory_order_relaxed), mOpMode.load(memory_order_relaxed),
             detail != nullptr ? detail : "NULL");
    __android_log_print(ANDROID_LOG_INFO, kTrackLogTag, "final payload = %s", payload);

    const ScopedFile node(kFeedbackNode, "we");
    if (!node.isOpen()) {
        logNoNode(errno);
        return;
    }
    writePayload(node, payload);
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): callers have an instance
void EventTrackJLogger::sensorProbeFailedFb() {
    const ScopedFile node(kFeedbackNode, "r+e");
    if (!node.isOpen()) {
        logNoNode(errno);
        return;
    }
    char name[kSensorNameBytes + 1] = {};
    const size_t count = readName(node, name, kSensorNameBytes);
    __android_log_print(ANDROID_LOG_INFO, kTrackLogTag, "revCount = %d", static_cast<int>(count));
    if (name[0] == '\0') {
        return;
    }
    char payload[kPayloadBytes] = {};
    snprintf(payload, sizeof(payload),
             "%s:NULL$$EventField@@%s$$FieldData@@0x%x$$detailData@@sensorName = %s",
             kProbeFailureRow.category, kProbeFailureRow.desc,
             static_cast<unsigned int>(kProbeFailureRow.errCode), name);
    __android_log_print(ANDROID_LOG_INFO, kTrackLogTag, "payload = %s", payload);
    writePayload(node, payload);
}

}  // namespace JCam::Utils::JLog::Track
