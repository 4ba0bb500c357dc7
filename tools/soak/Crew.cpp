#include "Crew.h"

#include <unistd.h>

#include <memory>
#include <string_view>

#include "jlog/JLogger.h"
#include "jlog/JLogInitializer.h"
#include "KernelCalls.h"

namespace JCam::Soak {

using namespace Utils::JLog;

namespace {

/// With so many record buffers mapped, 64 MiB, callers wait for the flush thread: the queue has no
/// bound of its own, and callers are faster than a disk.
constexpr int kMaxMappedBuffers = 256;
constexpr std::chrono::milliseconds kQueueLook(1);

/// A thread makes up to 2 to the power of this many calls.
constexpr uint32_t kMaxLifeBits = 17;

/// Holds a copy of a text that ends where its memory does, with a NUL or without, so that
/// AddressSanitizer sees whoever reads on.
class TightText {
  public:
    TightText(size_t maxBytes, bool hasNul)
            : mMaxBytes(maxBytes), mBytes(std::make_unique<char[]>(maxBytes + (hasNul ? 1 : 0))) {}

    const char* hold(std::string_view text) {
        char* start = mBytes.get() + (mMaxBytes - text.size());
        text.copy(start, text.size());
        return start;
    }

  private:
    const size_t mMaxBytes;
    const std::unique_ptr<char[]> mBytes;  // zeros at first, and so the last stays one
};

/// Carries out the calls of one thread.
class Caller {
  public:
    /// False if a test has said no.
    bool make(const Call& call) { return call.isRecord() ? log(call) : command(call); }

  private:
    bool log(const Call& call) {
        const auto level = static_cast<JLogLevel>(call.number);
        if (call.asksFirst &&
            !(call.kind == CallKind::DETAILS ? JLogger::isLogDetailsEnabled(call.moduleId, level)
                                             : JLogger::isModuleEnabled(call.moduleId))) {
            return false;
        }
        const char* name = mName.hold(call.name);
        if (call.kind == CallKind::ENTER) {
            JLogger::logEnter(call.moduleId, name, call.number);
        } else if (call.kind == CallKind::EXIT) {
            JLogger::logExit(call.moduleId, name, call.number);
        } else {
            const char* text = call.text.empty() ? nullptr : mText.hold(call.text);
            JLogger::logNormalDetails(call.moduleId, name, level, text, call.text.size());
        }
        return true;
    }

    static bool command(const Call& call) {
        if (call.kind == CallKind::FLUSH) {
            JLogger::flush(static_cast<int>(call.number));
        } else if (call.kind == CallKind::SET_LEVEL) {
            JLogger::setLevel(call.number);
        } else if (call.kind == CallKind::SET_FILTER) {
            JLogger::setFilter(call.filter);
        } else {
            JLogInitializer::updateLogLevel();
        }
        return true;
    }

    TightText mName{kMaxNameBytes, true};
    // The length says where it ends.
    TightText mText{kMaxTextBytes, false};
};

}  // namespace

Crew::Crew(const Material& material, uint64_t seed) : mMaterial(material), mRandom(seed) {
    for (size_t slot = 0; slot < kThreads; ++slot) {
        startThread(slot);
    }
}

Crew::~Crew() {
    stop();
}

void Crew::startThread(size_t slot) {
    ThreadLedger& ledger = mLedgers.emplace_back(ThreadLedger{mRandom.next()});
    // As many that live shortly as such that live long.
    const uint64_t calls = 1 + (mRandom.next() >> (63 - mRandom.below(kMaxLifeBits)));
    mThreads[slot] = std::thread([this, slot, &ledger, calls] { log(slot, ledger, calls); });
}

void Crew::log(size_t slot, ThreadLedger& ledger, uint64_t calls) {
    ledger.tid = gettid();
    Caller caller;
    for (uint64_t index = 0; index < calls; ++index) {
        awaitTurn(slot);
        if (mStopping.load(std::memory_order_relaxed)) {
            break;
        }
        ledger.made.push_back(caller.make(makeCall(mMaterial, ledger.seed, index)));
    }
    const std::lock_guard lock(mMutex);
    mEnded.push_back(slot);
    mThreadEnded.notify_one();
}

bool Crew::mayLog(size_t slot) const {
    return slot < mActive.load(std::memory_order_relaxed) &&
           KernelCalls::mappedBuffers() < kMaxMappedBuffers;
}

void Crew::awaitTurn(size_t slot) {
    if (mayLog(slot)) [[likely]] {
        return;
    }
    std::unique_lock lock(mMutex);
    // Nobody tells when the queue gets shorter, so that is looked at now and then.
    while (!mayLog(slot) && !mStopping.load(std::memory_order_relaxed)) {
        if (slot < mActive.load(std::memory_order_relaxed)) {
            mTurnChanged.wait_for(lock, kQueueLook);
        } else {
            mTurnChanged.wait(lock);
        }
    }
}

void Crew::setActive(size_t threads) {
    const std::lock_guard lock(mMutex);
    mActive.store(threads, std::memory_order_relaxed);
    mTurnChanged.notify_all();
}

void Crew::tend(std::chrono::milliseconds duration) {
    const auto end = std::chrono::steady_clock::now() + duration;
    std::unique_lock lock(mMutex);
    while (mThreadEnded.wait_until(lock, end, [this] { return !mEnded.empty(); })) {
        const size_t slot = mEnded.back();
        mEnded.pop_back();
        lock.unlock();
        mThreads[slot].join();
        startThread(slot);
        if (std::chrono::steady_clock::now() >= end) {
            return;
        }
        lock.lock();
    }
}

void Crew::stop() {
    {
        const std::lock_guard lock(mMutex);
        mStopping.store(true, std::memory_order_relaxed);
        mTurnChanged.notify_all();
    }
    for (std::thread& thread : mThreads) {
        if (thread.joinable()) {
            thread.join();
        }
    }
}

}  // namespace JCam::Soak
