#include "jlog/file/FileAloneJLogger.h"

#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <new>

#include <android/log.h>
#include <cutils/properties.h>

#include "jlog/file/BlackBox.h"
#include "jlog/file/BoxRecovery.h"
#include "jlog/file/CrashGate.h"
#include "jlog/file/FileLogTag.h"
#include "jlog/file/LocalTime.h"
#include "jlog/file/LogFolder.h"
#include "jlog/Wrapping.h"

namespace JCam::Utils::JLog::File {

namespace {

using std::chrono::milliseconds;

constexpr char kThreadName[] = "FileAloneJLogger";

/// Nice value of each boost level. To lower a nice value takes a capability or a resource limit
/// that allows it. A thread without either keeps its value, which is no error.
constexpr int kNiceByBoost[] = {19, 10, 0, -4};
constexpr int kMaxBoost = 3;
constexpr int kBusyBoost = 2;
static_assert(sizeof(kNiceByBoost) / sizeof(kNiceByBoost[0]) == kMaxBoost + 1);

/// Queue lengths that raise the boost: from this many on to kBusyBoost, above that to kMaxBoost.
constexpr size_t kBusyQueue = 4;
constexpr size_t kOverloadQueue = 10;

/// The longest wait for a writer between two looks. A record takes far less.
constexpr milliseconds kWritersWait(40);
constexpr milliseconds kFlushWait(1000);

constexpr uint32_t kStatusPasses = 4;
/// The end of a batch has a status line if batches are at least this far apart.
constexpr int32_t kStatusIntervalMs = 500;

/// Creates a thread under the default policy, whatever real-time one the creator has, that blocks
/// the host's signals. Only the signals of its own faults reach it; a write beyond the file size
/// limit fails instead of ending the process. Returns the error.
///
/// std::thread would throw that error, and the library is built without exceptions.
int createBackgroundThread(pthread_t* thread, void* (*entry)(void*), void* argument) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    const sched_param parameters = {};
    pthread_attr_setinheritsched(&attributes, PTHREAD_EXPLICIT_SCHED);
    pthread_attr_setschedpolicy(&attributes, SCHED_OTHER);
    pthread_attr_setschedparam(&attributes, &parameters);

    sigset_t blocked;
    sigset_t original;
    sigfillset(&blocked);
    for (const int fault : {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGSYS, SIGTRAP}) {
        sigdelset(&blocked, fault);
    }
    pthread_sigmask(SIG_SETMASK, &blocked, &original);
    const int error = pthread_create(thread, &attributes, entry, argument);
    pthread_sigmask(SIG_SETMASK, &original, nullptr);
    pthread_attr_destroy(&attributes);
    return error;
}

}  // namespace

FileAloneJLogger::FileAloneJLogger() {
    setLogWriter(&mWriter);
}

// Qualified: this class's own, whatever a subclass overrides.
FileAloneJLogger::~FileAloneJLogger() {
    FileAloneJLogger::onUninit();
    setLogWriter(nullptr);
}

void FileAloneJLogger::onInit() {
    char folder[kFolderPathBytes] = {};
    prepareLogFolder(folder);
    mWriter.mFolder = folder;
    // Without a file the thread runs all the same: it says so, and keeps memory from growing.
    mWriter.open(true, "", false);
    // Release: a thread that sees the logger running sees what was prepared for it.
    mRunning.store(true, std::memory_order_release);
    if (!startThread()) {
        mRunning.store(false, std::memory_order_release);
        mWriter.close();
    }
    initHook();
}

bool FileAloneJLogger::startThread() {
    setQueueBounded(false);
    pthread_t thread = {};
    const int error = createBackgroundThread(&thread, threadMain, this);
    if (error != 0) {
        setQueueBounded(true);
        __android_log_print(ANDROID_LOG_ERROR, kFileLogTag,
                            "Unable to start the flush thread (%s); only the newest records are "
                            "kept, in memory",
                            strerror(error));
        return false;
    }
    const JLogLock lock(mMutex);
    mThread = thread;
    return true;
}

void FileAloneJLogger::onUninit() {
    uninitHook();
    // Acquire: meets the store of onInit(), so that what it prepared is visible here.
    if (!mRunning.load(std::memory_order_acquire)) {
        return;
    }
    pthread_t thread = {};
    {
        const JLogLock lock(mMutex);
        // Release, and under the mutex: the thread is either before its test or in a wait.
        mRunning.store(false, std::memory_order_release);
        mCond.notifyAll();
        thread = *mThread;
    }
    pthread_join(thread, nullptr);
    // The close is under the mutex, too: an onFlush() that comes now finds a stopped logger.
    const JLogLock lock(mMutex);
    mThread.reset();
    finishFlushLocked();
    mWriter.close();
}

void FileAloneJLogger::onFlush(int timeoutSec) {
    const JLogLock lock(mMutex);
    mFlushPending.store(true, std::memory_order_relaxed);
    // A bounded queue counts buffers: one that is nearly empty would push out a full one.
    if (currentHoldsRecordsLocked() && !isQueueBoundedLocked()) {
        retireCurrentLocked();
    }
    mCond.notifyAll();
    if (!mThread.has_value()) {
        return;
    }
    for (int second = 0; second < timeoutSec; ++second) {
        // By deadline: a wait that ends early does not count as a second.
        const auto deadline = std::chrono::steady_clock::now() + kFlushWait;
        while (mFlushPending.load(std::memory_order_relaxed)) {
            if (!mFlushDone.waitUntil(mMutex, deadline)) {
                break;
            }
        }
        if (!mFlushPending.load(std::memory_order_relaxed)) {
            return;
        }
    }
}

void* FileAloneJLogger::threadMain(void* logger) {
    static_cast<FileAloneJLogger*>(logger)->flushThreadEntry();
    return nullptr;
}

void FileAloneJLogger::flushThreadEntry() {
    prctl(PR_SET_NAME, kThreadName);
    FlushState state;
    setBoost(state, 0);
    state.flushIntervalMs = property_get_int32("vendor.debug.camera.jlog.flushms", 1000);
    __android_log_print(ANDROID_LOG_INFO, kFileLogTag,
                        "File ULogger is running; flushInterval = %d ms, neHook = %d",
                        state.flushIntervalMs, mNeHook.load(std::memory_order_relaxed));
    beginRecovery(state);
    size_t remaining = 0;
    while (addToPool(BufferPool::kMaxBuffers)) {
    }
    while (const Buffer* buffer = nextBuffer(state, &remaining)) {
        renderBuffer(*buffer, remaining, state);
        refreshReservationLine();
        refreshLocalTime();
        // Without a file there was no write that would have waited for a crash dump, and the dump
        // may have a file.
        CrashGate::awaitOpen();
        recycleFront();
        logDropped(state);
    }
    __android_log_print(ANDROID_LOG_INFO, kFileLogTag, "File ULogger stopped");
}

void FileAloneJLogger::beginRecovery(FlushState& state) const {
    // Also where this process has no box: that may be for want of the space which others take.
    char folder[kFolderPathBytes] = {};
    const BlackBox* box = mStore.box();
    if (box != nullptr) {
        box->folder().copy(folder, sizeof(folder) - 1);
    } else if (!boxFolder(folder)) {
        return;
    }
    state.recovery.reset(new (std::nothrow) BoxRecovery(folder, mWriter));
    if (state.recovery == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kFileLogTag,
                            "Black box left alone: %s (without memory)", folder);
    }
}

const FileAloneJLogger::Buffer* FileAloneJLogger::nextBuffer(FlushState& state, size_t* remaining) {
    state.passes = wrappingSum(state.passes, 1U);
    const JLogLock lock(mMutex);
    const Decision decision = decideLocked(state);
    if (decision == Decision::STOP) {
        finishFlushLocked();
        return nullptr;
    }
    if (decision == Decision::RENDER_QUEUED) {
        raiseBoostLocked(state);
        awaitFrontWritersLocked();
    }
    *remaining = mFullBuffers.size() - 1;
    return mFullBuffers.front();
}

FileAloneJLogger::Decision FileAloneJLogger::decideLocked(FlushState& state) {
    while (mFullBuffers.empty()) {
        if (stopDueLocked()) {
            return Decision::STOP;
        }
        if (state.boostLevel > 0) {
            changeBoostLocked(state, state.boostLevel - 1);
            if (!mFullBuffers.empty()) {
                break;
            }
        }
        if (const Buffer* current = mCurrent.get();
            current != nullptr && !mStore.isSafest(*current)) {
            retireCurrentLocked();
            break;
        }
        finishFlushLocked();
        // Relaxed, as in stopDueLocked(): the store that matters happens under the mutex.
        if (mRunning.load(std::memory_order_relaxed)) {
            pauseLocked(state);
        }
        if (!mFullBuffers.empty()) {
            break;
        }
        if (stopDueLocked()) {
            return Decision::STOP;
        }
        if (!currentHoldsRecordsLocked()) {
            continue;
        }
        if (retireCurrentLocked() == 0) {
            return Decision::RENDER_COMPLETE;
        }
        waitForFrontWritersLocked();
    }
    return Decision::RENDER_QUEUED;
}

bool FileAloneJLogger::stopDueLocked() const {
    return !mRunning.load(std::memory_order_relaxed) && !currentHoldsRecordsLocked();
}

bool FileAloneJLogger::isIdleLocked() const {
    return mFullBuffers.empty() && mRunning.load(std::memory_order_relaxed) &&
           !mFlushPending.load(std::memory_order_relaxed);
}

void FileAloneJLogger::finishFlushLocked() {
    if (mFlushPending.load(std::memory_order_relaxed)) {
        mFlushPending.store(false, std::memory_order_relaxed);
        mFlushDone.notifyAll();
    }
}

void FileAloneJLogger::pauseLocked(FlushState& state) {
    const auto deadline =
            std::chrono::steady_clock::now() + milliseconds(std::max(state.flushIntervalMs, 0));
    recoverLocked(state, deadline);
    if (state.flushIntervalMs >= 1 && isIdleLocked()) {
        mCond.waitUntil(mMutex, deadline);
    }
    mMutex.unlock();
    if (state.flushIntervalMs < 1) {
        sched_yield();
    }
    refreshLocalTime();
    mMutex.lock();
}

void FileAloneJLogger::recoverLocked(FlushState& state,
                                     std::chrono::steady_clock::time_point deadline) {
    // At the lowest priority alone.
    while (state.recovery != nullptr && state.boostLevel == 0 && isIdleLocked()) {
        mMutex.unlock();
        if (!state.recovery->step()) {
            state.recovery.reset();
        }
        mMutex.lock();
        if (std::chrono::steady_clock::now() >= deadline) {
            return;
        }
    }
}

void FileAloneJLogger::refreshLocalTime() {
    // Without the mutex: the time-zone code may wait for a lock of its own.
    if (mNeHook.load(std::memory_order_relaxed) >= 1) {
        refreshUtcOffsets();
    }
}

void FileAloneJLogger::raiseBoostLocked(FlushState& state) {
    if (state.boostLevel >= kMaxBoost) {
        return;
    }
    const size_t queued = mFullBuffers.size();
    if (queued > kOverloadQueue || mFlushPending.load(std::memory_order_relaxed)) {
        changeBoostLocked(state, kMaxBoost);
    } else if (queued >= kBusyQueue && state.boostLevel != kBusyBoost) {
        changeBoostLocked(state, kBusyBoost);
    }
}

void FileAloneJLogger::changeBoostLocked(FlushState& state, int level) {
    // Not under the mutex: this thread is the first to lose its core, and callers may need it.
    mMutex.unlock();
    setBoost(state, level);
    mMutex.lock();
}

void FileAloneJLogger::setBoost(FlushState& state, int level) {
    state.boostLevel = level;
    // On Linux PRIO_PROCESS with a thread id changes that thread alone.
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kNiceByBoost[level]);
}

void FileAloneJLogger::awaitFrontWritersLocked() {
    while (mFullBuffers.front()->writersPending() > 0) {
        waitForFrontWritersLocked();
    }
}

void FileAloneJLogger::waitForFrontWritersLocked() {
    // The last writer ends its record and notifies without the mutex. If it does so after the look,
    // the ticket is from before, and the wait ends at once.
    const JLogCondition::Ticket ticket = mCond.ticket();
    if (mFullBuffers.front()->awaitWriters() > 0) {
        mCond.waitFor(mMutex, kWritersWait, ticket);
    }
}

void FileAloneJLogger::renderBuffer(const Buffer& buffer, size_t remaining, FlushState& state) {
    // Before the records are rendered, so that they reach the next file; before each buffer, since
    // under a heavy load a batch may have no end.
    mWriter.leaveDeletedFile();
    if (mWriter.mFd < 0) {
        __android_log_print(ANDROID_LOG_ERROR, kFileLogTag, "%s", kNoFileText);
        return;
    }
    const uint32_t records = renderRecords(buffer, mWriter);
    state.logsWritten = wrappingSum(state.logsWritten, records);
    if (buffer.slot == nullptr) {
        state.outsideBox = wrappingSum(state.outsideBox, records);
    }
    // Whether or not the batch goes on, the text goes out before its buffer is recycled: a record
    // is in the file, or a crash dump finds it in a buffer.
    mWriter.flush(remaining == 0);
    const bool batchEndsWithStatus =
            remaining == 0 && (state.flushIntervalMs >= kStatusIntervalMs ||
                               mFlushPending.load(std::memory_order_relaxed));
    const bool isStatusDue = state.passes % kStatusPasses == 0 || batchEndsWithStatus;
    if (isStatusDue) {
        logStatus(state, remaining);
    }
    if (const BlackBox* box = mStore.box()) {
        logBox(*box, state, isStatusDue, remaining == 0);
    }
}

void FileAloneJLogger::logDropped(FlushState& state) const {
    const uint32_t dropped = droppedInHandlers();
    if (dropped != state.droppedTold) {
        __android_log_print(ANDROID_LOG_WARN, kFileLogTag,
                            "Records of signal handlers dropped so far: %u", dropped);
        state.droppedTold = dropped;
    }
}

void FileAloneJLogger::logBox(const BlackBox& box, FlushState& state, bool isStatusDue,
                              bool isBatchEnd) {
    if (const char* damage = box.damage(); damage != nullptr && !state.boxDamageTold) {
        __android_log_print(ANDROID_LOG_ERROR, kFileLogTag, "Black box %s %s", box.path().c_str(),
                            damage);
        state.boxDamageTold = true;
    }
    const bool isNews = isBatchEnd && state.outsideBox != state.outsideBoxTold;
    if (!isStatusDue && !isNews) {
        return;
    }
    __android_log_print(isNews ? ANDROID_LOG_WARN : ANDROID_LOG_DEBUG, kFileLogTag,
                        "Black box: %zu of %zu blocks in use, %u records were outside so far (%s)",
                        box.blocksInUse(), kBoxSlots, state.outsideBox, box.path().c_str());
    if (isNews) {
        state.outsideBoxTold = state.outsideBox;
    }
}

void FileAloneJLogger::logStatus(const FlushState& state, size_t remaining) const {
    if (mClockId != CLOCK_MONOTONIC) {
        __android_log_print(ANDROID_LOG_DEBUG, kFileLogTag,
                            "File ULogger: %u logs written, %zu buffers queueing (%s)",
                            state.logsWritten, remaining, mWriter.mFilePath.c_str());
        return;
    }
    char mono[40] = {};
    char real[40] = {};
    getTimeStamp(CLOCK_MONOTONIC, mono, sizeof(mono));
    getTimeStamp(CLOCK_REALTIME, real, sizeof(real));
    __android_log_print(ANDROID_LOG_DEBUG, kFileLogTag,
                        "File ULogger: %u logs written, %zu buffers queueing; mono = %s, real = %s "
                        "(%s)",
                        state.logsWritten, remaining, mono, real, mWriter.mFilePath.c_str());
}

}  // namespace JCam::Utils::JLog::File
