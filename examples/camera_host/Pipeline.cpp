#include "Pipeline.h"

#include <array>
#include <chrono>

#include "CallSite.h"
#include "jlog/JLogInitializer.h"

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

// How often, in requests, the rarer messages come: often enough to be seen in a short run.
constexpr uint32_t kInfoEvery = 30;
constexpr uint32_t kWarnEvery = 45;
constexpr uint32_t kErrorEvery = 60;

/// Longest wait for a flush while the camera runs: the camera matters more than its log.
constexpr int kFlushTimeoutSec = 1;

void runNode(Ledger& ledger, const Stream& stream, const Node& node, uint32_t request) {
    const NodeScope scope(ledger, node.moduleId, node.name, request);
    details(ledger, node.moduleId, node.name, LEVEL_VERBOSE, "request {}: input is here", request);
    if (stream.moduleId == MODULE_CAPTURE) {
        details(ledger, node.moduleId, node.name, LEVEL_DEBUG_HIGH,
                "request {}: one of a burst of {}", request, stream.burst);
        details(ledger, node.moduleId, node.name, LEVEL_DEBUG,
                "request {}: full-size buffer taken from the pool", request);
    }
    if (request % kErrorEvery == 0) {
        details(ledger, node.moduleId, node.name, LEVEL_ERROR,
                "request {}: statistics are damaged, those of request {} are used", request,
                request - 1);
    } else if (request % kWarnEvery == 0) {
        details(ledger, node.moduleId, node.name, LEVEL_WARN, "request {}: statistics are late",
                request);
    } else if (request % kInfoEvery == 0) {
        details(ledger, node.moduleId, node.name, LEVEL_INFO, "{} stream at request {}",
                stream.name, request);
    }
    details(ledger, node.moduleId, node.name, LEVEL_DEBUG, "request {}: done", request);
}

/// Logs the metadata of a request as a block of lines: one test for all of them, then the calls in
/// a row. With nothing but library calls between two clock readings it is also what is timed.
void dumpMetadata(Ledger& ledger, const Stream& stream, uint32_t request) {
    static constexpr std::array kEntries{
            "ae.state = converged",  "af.state = focused",  "awb.state = converged",
            "ae.antibanding = auto", "flash.state = ready", "lens.state = stationary",
            "tonemap.mode = fast",   "noise.mode = fast",
    };
    constexpr char kName[] = "Metadata";
    if (!areScopesEnabled() || !JLogger::isLogDetailsEnabled(stream.moduleId, LEVEL_VERBOSE)) {
        return;
    }
    std::array<LogText, kEntries.size()> texts;
    uint64_t number = ledger.details();
    for (size_t i = 0; i < kEntries.size(); i++) {
        formatText(texts[i], ledger.number(), ++number, "request {}: {}",
                   fmt::make_format_args(request, kEntries[i]));
    }

    const Clock::time_point begin = Clock::now();
    JLogger::logEnter(stream.moduleId, kName, request);
    ledger.countEnter();
    for (const LogText& text : texts) {
        JLogger::logNormalDetails(stream.moduleId, kName, LEVEL_VERBOSE, text.chars.data(),
                                  text.length);
        ledger.countDetails();
    }
    JLogger::logExit(stream.moduleId, kName, request);
    ledger.countExit();
    const std::chrono::nanoseconds duration = Clock::now() - begin;

    ledger.addContent(scopeHash('+', stream.moduleId, kName, request));
    for (const LogText& text : texts) {
        ledger.addContent(detailsHash(levelLetter(LEVEL_VERBOSE), kName, text.view()));
    }
    ledger.addContent(scopeHash('-', stream.moduleId, kName, request));
    ledger.addTiming(texts.size() + 2, static_cast<uint64_t>(duration.count()));
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
    details(mHostLedger, MODULE_COMMON, "CameraHost", LEVEL_INFO, "{} s, {} requests", second,
            mRequests.load(std::memory_order_relaxed));
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
    const uint32_t request = mRequests.fetch_add(1, std::memory_order_relaxed) + 1;
    const NodeScope scope(ledger, stream.moduleId, stream.name, request);
    for (const Node& node : stream.nodes) {
        runNode(ledger, stream, node, request);
    }
    dumpMetadata(ledger, stream, request);
}

}  // namespace CameraHost
