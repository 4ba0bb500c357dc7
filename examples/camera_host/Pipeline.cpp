#define JLOG_TAG "CameraHost"
#include "Pipeline.h"

#include <array>
#include <chrono>

#include "jlog/JLogInitializer.h"
#include "jlog/JLogMacros.h"
#include "Metadata.h"

namespace CameraHost {

using namespace JCam::Utils::JLog;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::array kPreviewNodes{
        Node{MODULE_PREVIEW, "SensorNode"}, Node{MODULE_PREVIEW, "IspNode"},
        Node{MODULE_FEATURE_SAT, "SatNode"}, Node{MODULE_PREVIEW, "DisplayNode"}};
constexpr std::array kVideoNodes{Node{MODULE_VIDEO, "SensorNode"}, Node{MODULE_VIDEO, "IspNode"},
                                 Node{MODULE_VIDEO, "EncodeNode"}};
constexpr std::array kCaptureNodes{Node{MODULE_CAPTURE, "CaptureRawNode"},
                                   Node{MODULE_CAPTURE, "CaptureMergeNode"},
                                   Node{MODULE_CAPTURE, "CaptureJpegNode"}};
constexpr std::array kStreams{Stream{"Preview", MODULE_PREVIEW, 1, kPreviewNodes},
                              Stream{"Capture", MODULE_CAPTURE, 5, kCaptureNodes},
                              Stream{"Video", MODULE_VIDEO, 1, kVideoNodes}};

/// Longest wait for a flush while the camera runs: the camera matters more than its log.
constexpr int kFlushTimeoutSec = 1;

/// Between the clock readings is nothing but calls that log, if they do.
void timeMetadata(Ledger& ledger, unsigned int moduleId, const Request& request) {
    const uint64_t eventsBefore = ledger.events();
    const Clock::time_point begin = Clock::now();
    dumpMetadata(moduleId, request);
    const std::chrono::nanoseconds duration = Clock::now() - begin;
    if (const uint64_t calls = ledger.events() - eventsBefore; calls > 0) {
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

Pipeline::Pipeline(LedgerBook& ledgers, unsigned int threads, unsigned int rate)
        : mRate(rate), mThreadCount(threads), mLedgers(ledgers), mHostLedger(ledgers.add(0)) {}

void Pipeline::start() {
    mHostLedger.adoptThread();
    for (unsigned int i = 1; i <= mThreadCount; i++) {
        mThreads.emplace_back(
                [this, &ledger = mLedgers.add(i), &stream = kStreams[(i - 1) % kStreams.size()]](
                        const std::stop_token& stop) { runStream(stop, ledger, stream); });
    }
}

void Pipeline::tick(unsigned int second) {
    JLOGI(MODULE_COMMON, "%u s, %u requests", second, mRequests.load(std::memory_order_relaxed));
    JLogInitializer::updateLogLevel();
    JLogger::flush(kFlushTimeoutSec);
}

void Pipeline::stop() {
    for (std::jthread& thread : mThreads) {
        thread.request_stop();
    }
    mThreads.clear();  // joins
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
        if (mRate != 0) {
            due += period;
            std::unique_lock<std::mutex> lock(mMutex);
            mStopped.wait_until(lock, stop, due, [] { return false; });
        }
    }
}

void Pipeline::runRequest(Ledger& ledger, const Stream& stream) {
    // Relaxed: the number is only a name, nothing is published with it.
    const uint32_t number = mRequests.fetch_add(1, std::memory_order_relaxed) + 1;
    const uint64_t enters = ledger.enters() + wantedScopes(stream);
    const uint64_t exits = ledger.exits() + wantedScopes(stream);
    const uint64_t details = ledger.details() + (wantsMetadata(stream) ? 1U : 0U);
    takeThrough(ledger, stream, {number, stream.burst, stream.name});
    if (ledger.enters() != enters || ledger.exits() != exits || ledger.details() < details) {
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
