// Arms and disarms the crash hook, in ordinary code. CrashHandler.cpp has the handler.

#include <csignal>
#include <memory>
#include <new>
#include <utility>

#include <android/log.h>
#include <cutils/properties.h>

#include "jlog/file/CrashGate.h"
#include "jlog/file/CrashSignals.h"
#include "jlog/file/FileJLoggerBase.h"
#include "jlog/file/FileJLogWriter.h"
#include "jlog/file/FileLogTag.h"
#include "jlog/file/LocalTime.h"
#include "jlog/file/LogFolder.h"

namespace JCam::Utils::JLog::File {

std::atomic<FileJLoggerBase*> FileJLoggerBase::sActiveLogger{nullptr};

void FileJLoggerBase::initHook() {
    sActiveLogger.store(this, std::memory_order_seq_cst);
    const int32_t mode = property_get_int32("vendor.debug.camera.jlog.hookne", 2);
    if (mode < 1 || mNeHook.load(std::memory_order_relaxed) != 0) {
        return;
    }
    std::unique_ptr<FileJLogWriter> writer(new (std::nothrow) FileJLogWriter);
    if (writer == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kFileLogTag,
                            "Out of memory: no writer for crash files, the hook stays off");
        return;
    }
    char folder[kFolderPathBytes] = {};
    prepareLogFolder(folder);
    writer->mFolder = folder;
    writer->makeSignalSafe(mClockId);
    // Complete by now: the handler of another logger's hook may already work on this logger.
    mCrashWriter = std::move(writer);
    refreshUtcOffsets();
    CrashGate::forgetSignal();
    // Relaxed, with the fence behind it: the handler is installed after the fence, and finds
    // writers that fence before they publish.
    mNeHook.store(mode, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    for (size_t i = 0; i < kCrashSignals.size(); ++i) {
        registerSigAction(kCrashSignals[i].number, &mNewActions[i], &mOldActions[i]);
    }
}

void FileJLoggerBase::uninitHook() {
    if (mNeHook.load(std::memory_order_relaxed) < 1) {
        return;
    }
    mNeHook.store(0, std::memory_order_relaxed);
    for (size_t i = 0; i < kCrashSignals.size(); ++i) {
        sigaction(kCrashSignals[i].number, &mOldActions[i], nullptr);
    }
    std::atomic_thread_fence(std::memory_order_seq_cst);
    // The caller then stops the consumer and frees the buffers.
    CrashGate::awaitDumpEnd();
}

void FileJLoggerBase::setLogWriter(const FileJLogWriter* writer) {
    mLogWriter.store(writer, std::memory_order_seq_cst);
    if (writer == nullptr) {
        CrashGate::awaitDumpEnd();
    }
}

void FileJLoggerBase::registerSigAction(int sig, struct sigaction* act, struct sigaction* oldAct) {
    if (act == nullptr || oldAct == nullptr) {
        return;
    }
    sigaction(sig, nullptr, oldAct);
    act->sa_sigaction = sigHandler;
    act->sa_flags = SA_SIGINFO;
    act->sa_mask = oldAct->sa_mask;
    act->sa_restorer = oldAct->sa_restorer;
    sigaction(sig, act, nullptr);
}

}  // namespace JCam::Utils::JLog::File
