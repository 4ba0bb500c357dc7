#define JLOG_TAG "CameraHost"
#include "Pipeline.h"

#include <array>
#include <chrono>
#include <thread>

#include "jlog/JLogInitializer.h"
#include "jlog/JLogMacros.h"
#include "Metadata.h"

namespace CameraHost {

using namespace JCam::Utils::JLog;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::array kPreviewNodes{
        Node{MODULE_PREVIEW, "SensorNode", 2000us}, Node{MODULE_PREVIEW, "IspNode", 8000us},
        Node{MODULE_FEATURE_SAT, "SatNode", 3000us}, Node{MODULE_PREVIEW, "DisplayNode", 500us}};
constexpr std::array kVideoNodes{Node{MODULE_VIDEO, "SensorNode", 2000us},
                                 Node{MODULE_VIDEO, "IspNode", 6000us},
                                 Node{MODULE_VIDEO, "EncodeNode", 5000us}};
constexpr std::array kCaptureNodes{Node{MODULE_CAPTURE, "CaptureRawNode", 5000us},
                                   Node{MODULE_CAPTURE, "CaptureMergeNode", 12000us},
                                   Node{MODULE_CAPTURE, "CaptureJpegNode", 7000us}};
constexpr std::array kStreams{Stream{"Preview", MODULE_PREVIEW, 1, kPreviewNodes},
                              Stream{"Capture", MODULE_CAPTURE, 5, kCaptureNodes},
                              Stream{"Video", MODULE_VIDEO, 1, kVideoNodes}};

/// Longest wait for a flush while the camera runs: the camera matters more than its log.
constexpr int kFlushTimeoutSec = 1;

/// Between the clock readings is nothing but calls that log, if they do.
void timeMetadata(Ledger& ledger, unsigned int moduleId, const Request& request) {
    const uint64_t eventsBefore = ledger.counts().events();
    const Clock::time_point begin = Clock::now();
    dumpMetadata(moduleId, request);
    const std::chrono::nanoseconds duration = Clock::now() - begin;
    if (const uint64_t calls = ledger.counts().events() - eventsBefore; calls > 0) {
        ledger.addTiming(calls, static_cast<uint64_t>(duration.count()));
    }
}

bool wantsMetadata(const Stream& stream) {
    return JLogger::wantsDetails(stream.moduleId, LEVEL_VERBOSE);
}

/// Scopes that a request enters on its way, those of modules that are off left out.
uint64_t wantedScopes(const Stream& stream) {
    uint64_t scopes = 0;
    for (const Node& node : stream.nodes) {
        scopes += JLogger::wantsScope(node.moduleId()) ? 1U : 0U;
    }
    scopes += JLogger::wantsScope(stream.moduleId) ? 1U : 0U;
    scopes += wantsMetadata(stream) ? 1U : 0U;
    return scopes;
}

}  // namespace

void Pipeline::start() {
    mLedgers.all().front().adoptThread();
    for (Ledger& ledger : mLedgers.all().subspan(1)) {
        const Stream& stream = kStreams[mThreads.size() % kStreams.size()];
        mThreads.emplace_back([this, &ledger, &stream](const std::stop_token& stop) {
            runStream(stop, ledger, stream);
        });
    }
}

void Pipeline::tick(unsigned int second) {
    JLOGI(MODULE_COMMON, "%u s, %u requests", second, mRequests.load(std::memory_order_relaxed));
    JLogInitializer::updateLogLevel();
    JLogger::flush(kFlushTimeoutSec);
}

void Pipeline::flushFor(std::chrono::microseconds time) {
    const Clock::time_point end = Clock::now() + time;
    do {
        const uint64_t events = mLedgers.counts().events();
        JLogger::flush(kFlushTimeoutSec);
        mFlushed.store(events, std::memory_order_relaxed);
        std::this_thread::sleep_for(1ms);
    } while (Clock::now() < end);
}

void Pipeline::runRequestAround(const std::function<void()>& work) {
    const uint32_t number = beginRequest();
    JLOG_SCOPE(MODULE_PREVIEW, "Preview", number);
    JLOG_SCOPE(MODULE_PREVIEW, "SensorNode", number);
    work();
}

void Pipeline::stop() {
    for (std::jthread& thread : mThreads) {
        thread.request_stop();
    }
    mThreads.clear();  // joins
}

void Pipeline::awaitFlush(const std::stop_token& stop) const {
    // Relaxed: an estimate.
    while (mMaxAhead != 0 && !stop.stop_requested() &&
           mLedgers.counts().events() > mFlushed.load(std::memory_order_relaxed) + mMaxAhead) {
        std::this_thread::sleep_for(50us);
    }
}

void Pipeline::runStream(const std::stop_token& stop, Ledger& ledger, const Stream& stream) {
    ledger.adoptThread();
    const auto period = mRate == 0 ? Clock::duration::zero()
                                   : Clock::duration(std::chrono::seconds(stream.burst)) / mRate;
    Clock::time_point due = Clock::now();
    while (!stop.stop_requested()) {
        for (unsigned int i = 0; i < stream.burst; i++) {
            runRequest(ledger, stream);
        }
        awaitFlush(stop);
        if (mRate != 0) {
            due += period;
            std::unique_lock<std::mutex> lock(mMutex);
            mStopped.wait_until(lock, stop, due, [] { return false; });
        }
    }
}

void Pipeline::runRequest(Ledger& ledger, const Stream& stream) {
    const uint32_t number = beginRequest();
    EventCounts expected = ledger.counts();
    expected.enters += wantedScopes(stream);
    expected.exits += wantedScopes(stream);
    expected.details += wantsMetadata(stream) ? 1U : 0U;
    takeThrough(ledger, stream, {number, stream.burst, stream.name, mRate != 0});
    const EventCounts heard = ledger.counts();
    if (heard.enters != expected.enters || heard.exits != expected.exits ||
        heard.details < expected.details) {
        mUnheard.fetch_add(1, std::memory_order_relaxed);
    }
}

void Pipeline::takeThrough(Ledger& ledger, const Stream& stream, const Request& request) {
    JLOG_SCOPE(stream.moduleId, stream.name, request.number);
    for (const Node& node : stream.nodes) {
        node.process(request);
    }
    timeMetadata(ledger, stream.moduleId, request);
}

}  // namespace CameraHost
