// Runs after a fatal signal, by the rules of CrashHandler.cpp, but for what the header sets apart.

#include "jlog/file/CrashGate.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>

namespace JCam::Utils::JLog::File {

namespace {

/// poll is on POSIX's list for signal handlers; the functions that only sleep are not. May end
/// early.
void pause() {
    constexpr int kPollMs = 5;
    poll(nullptr, 0, kPollMs);
}

int64_t nowMs() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

}  // namespace

std::atomic<uint32_t> CrashGate::sHolder{kOpen};
std::atomic<int> CrashGate::sSignal{0};
std::atomic<uint32_t> CrashGate::sProgress{1};
std::atomic<uint32_t> CrashGate::sStalledAt{0};
std::atomic<pid_t> CrashGate::sWriter{0};

CrashGate::Role CrashGate::enter(pid_t tid, int sig) {
    const auto self = static_cast<uint32_t>(tid);
    reportProgress();  // before the gate is shut, so that no thread has waited in vain yet
    uint32_t holder = kOpen;
    // A gate whose dump has ended may be taken over: the crash writer is free.
    while (!sHolder.compare_exchange_weak(holder, self, std::memory_order_seq_cst)) {
        if (isDumper(holder)) {
            return holder == self ? Role::NESTED : Role::LATE;
        }
        if (holder == (self | kDumped) && sSignal.load(std::memory_order_relaxed) == sig) {
            return Role::AGAIN;
        }
    }
    return Role::DUMP;
}

void CrashGate::endDump(pid_t tid, int sig) {
    sSignal.store(sig, std::memory_order_relaxed);
    auto holder = static_cast<uint32_t>(tid);
    // Release: a thread that sees the end of the dump sees its files closed.
    sHolder.compare_exchange_strong(holder, holder | kDumped, std::memory_order_release,
                                    std::memory_order_relaxed);
}

void CrashGate::reopen(pid_t tid) {
    uint32_t holder = static_cast<uint32_t>(tid) | kDumped;
    // Release: the dump has read its last buffer.
    sHolder.compare_exchange_strong(holder, kOpen, std::memory_order_release,
                                    std::memory_order_relaxed);
}

template <typename Predicate>
uint32_t CrashGate::awaitWhile(Predicate isShut) {
    // A process that was stopped in between has not waited all that time.
    constexpr int64_t kMaxRoundMs = 50;
    uint32_t lastProgress = 0;
    int64_t stalledMs = 0;
    for (int64_t lastMs = nowMs();;) {
        // In this order: a thread that sees the gate shut sees the progress reported before.
        const uint32_t holder = sHolder.load(std::memory_order_seq_cst);
        const uint32_t progress = sProgress.load(std::memory_order_relaxed);
        if (!isShut(holder) || sStalledAt.load(std::memory_order_relaxed) == progress) {
            return holder;
        }
        const int64_t now = nowMs();
        stalledMs = progress == lastProgress ? stalledMs + std::min(now - lastMs, kMaxRoundMs) : 0;
        if (stalledMs >= kStallMs) {
            sStalledAt.store(progress, std::memory_order_relaxed);
            return holder;
        }
        lastProgress = progress;
        lastMs = now;
        pause();
    }
}

void CrashGate::awaitDumpEnd() {
    awaitWhile(isDumper);
}

bool CrashGate::awaitOpen() {
    uint32_t holder = awaitWhile([](uint32_t shutBy) { return shutBy != kOpen; });
    if (isDumper(holder)) {
        return false;
    }
    if (holder != kOpen) {
        sHolder.compare_exchange_strong(holder, kOpen, std::memory_order_seq_cst);
    }
    return true;
}

void CrashGate::awaitWrite(pid_t tid) {
    for (const int64_t end = nowMs() + kWriteWaitMs; nowMs() < end;) {
        const pid_t writer = sWriter.load(std::memory_order_seq_cst);
        // This thread's own write, if the signal came in one, is complete: the kernel does not
        // break off a write to a file for a signal that has a handler.
        if (writer == 0 || writer == tid) {
            return;
        }
        pause();
    }
}

CrashGate::Passage::Passage() {
    const pid_t self = gettid();
    for (bool isStalled = false;;) {
        pid_t none = 0;
        mRegistered = sWriter.compare_exchange_strong(none, self, std::memory_order_seq_cst);
        // After the registration: either the handler sees that, or this thread sees the gate shut.
        if (isStalled || sHolder.load(std::memory_order_seq_cst) == kOpen) {
            return;
        }
        if (mRegistered) {
            sWriter.store(0, std::memory_order_release);
        }
        isStalled = !awaitOpen();
    }
}

CrashGate::Passage::~Passage() {
    if (mRegistered) {
        sWriter.store(0, std::memory_order_release);
    }
}

}  // namespace JCam::Utils::JLog::File
