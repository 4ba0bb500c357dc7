#include "Generation.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "Crew.h"
#include "Fault.h"
#include "jlog/DefaultJLogger.h"
#include "jlog/JLogger.h"
#include "jlog/JLogInitializer.h"
#include "KernelCalls.h"
#include "support/Await.h"
#include "support/Properties.h"

namespace JCam::Soak {

using namespace Utils::JLog;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

namespace {

/// The current buffer, and three in the pool.
constexpr int kBuffersAtRest = 4;
constexpr int kFlushBoundSec = 60;

void expect(bool holds, const std::string& what) {
    if (!holds) {
        throw Fault(what);
    }
}

/// The initializers of the host, the last one on top. That they only count is looked at as they
/// come and go.
class Initializers {
  public:
    Initializers() {
        push();
        mLogger = JLogger::getLogger();
    }
    /// The way that popOthers() and popLast() go, without a look.
    ~Initializers() {
        while (!mAll.empty()) {
            mAll.pop_back();
        }
    }
    Initializers(const Initializers&) = delete;
    Initializers& operator=(const Initializers&) = delete;

    void push() {
        mAll.push_back(std::make_unique<JLogInitializer>(ENABLE_JLOG));
        ++mMade;
    }
    /// One more or, if there are others than the first, one less.
    void change(Random& random) {
        if (mAll.size() > 1 && random.oneIn(2)) {
            mAll.pop_back();
        } else {
            push();
        }
        expect(JLogger::getLogger() == mLogger, "a further initializer has changed the logger");
    }
    /// All but the first one go.
    void popOthers() {
        while (mAll.size() > 1) {
            mAll.pop_back();
        }
        expect(JLogger::getLogger() == mLogger, "the logger went before its last initializer");
    }
    void popLast() {
        mAll.pop_back();
        expect(JLogger::getLogger() == getDefaultJLogger(), "the last initializer left its logger");
    }
    [[nodiscard]] uint64_t made() const { return mMade; }

  private:
    std::vector<std::unique_ptr<JLogInitializer>> mAll;
    uint64_t mMade{0};
    JLogger* mLogger{nullptr};
};

/// Lets the crew log by fits and starts, for so long or until so much has been written.
void direct(Crew& crew, Initializers& initializers, Random& random, milliseconds duration,
            uint64_t bytes) {
    // None is a pause, in which the flush thread goes idle; the longest is above the longest flush
    // interval.
    constexpr std::array<size_t, 5> kActive{0, 0, 1, 4, Crew::kThreads};
    constexpr std::array<uint32_t, 7> kPhaseMs{2, 10, 20, 50, 100, 200, 400};
    constexpr milliseconds kLongPause(1200);
    // The writer may be a phase behind.
    constexpr milliseconds kStep(20);
    const Clock::time_point end = Clock::now() + duration;
    const uint64_t lastByte = KernelCalls::writtenBytes() + bytes;
    const auto isOver = [&] {
        return Clock::now() >= end || KernelCalls::writtenBytes() >= lastByte;
    };
    while (!isOver()) {
        const size_t active = random.pick(kActive);
        const milliseconds phase =
                active == 0 && random.oneIn(8) ? kLongPause : milliseconds(random.pick(kPhaseMs));
        crew.setActive(active);
        const Clock::time_point phaseEnd = Clock::now() + phase;
        while (Clock::now() < phaseEnd && !isOver()) {
            crew.tend(std::min(kStep, phase));
        }
        if (random.oneIn(2)) {
            initializers.change(random);
        }
    }
}

/// With nobody logging, a flush leaves nothing for later, and no more buffers than may stay.
void rest() {
    const Clock::time_point begin = Clock::now();
    JLogger::flush(kFlushBoundSec);
    expect(Clock::now() - begin < std::chrono::seconds(kFlushBoundSec),
           fmt::format("not flushed within {} s", kFlushBoundSec));
    expect(Support::await([] { return KernelCalls::mappedBuffers() <= kBuffersAtRest; }),
           fmt::format("at rest {} record buffers are mapped, not {} at most",
                       KernelCalls::mappedBuffers(), kBuffersAtRest));
}

}  // namespace

Generation::Generation(const Material& material, uint64_t seed, std::filesystem::path folder)
        : mMaterial(material), mSeed(seed), mFolder(std::move(folder)), mPlan(drawPlan(seed)) {}

Generation::Plan Generation::drawPlan(uint64_t seed) {
    constexpr std::array<uint32_t, 5> kFlushMs{0, 1, 20, 200, 1000};
    constexpr std::array<uint32_t, 6> kHooks{2, 2, 2, 2, 1, 0};
    // Enough for a second and a third file, or not so much that all the time goes to the check.
    constexpr uint64_t kManyBytes = uint64_t{420} << 20U;
    constexpr uint64_t kFewBytes = uint64_t{128} << 20U;
    Random random(seed);
    Plan plan = {};
    plan.mode = random.oneIn(2) ? MODE_FILE_ALONE : MODE_FILE_ALONE | MODE_TRACE;
    plan.flushMs = random.pick(kFlushMs);
    plan.monotonic = random.oneIn(2);
    plan.hook = random.pick(kHooks);
    plan.milliseconds = 1000 + random.below(3000);
    plan.bytes = random.oneIn(4) ? kManyBytes : kFewBytes;
    return plan;
}

std::string Generation::describe() const {
    return fmt::format("mode 0x{:02x}, flush interval {} ms, {} clock, crash hook {}", mPlan.mode,
                       mPlan.flushMs, mPlan.monotonic ? "monotonic" : "real-time", mPlan.hook);
}

void Generation::run(GenerationCounts& counts) {
    const Support::Properties properties{
            {"vendor.debug.camera.jlog.mode", fmt::format("0x{:x}", mPlan.mode)},
            {"vendor.debug.camera.jlog.flushms", std::to_string(mPlan.flushMs)},
            {"vendor.debug.camera.jlog.monoclock", mPlan.monotonic ? "1" : "0"},
            {"vendor.debug.camera.jlog.hookne", std::to_string(mPlan.hook)},
            {"vendor.debug.camera.ulog.folder", mFolder.string()},
            {"persist.vendor.jovix.camera.log_level", "4"}};
    Random random(mSeed, 1);
    Initializers initializers;
    expect(JLogger::isFileModeEnabled() && JLogger::isModeEnabled(MODE_FILE_ALONE),
           "the mode is not the one that was asked for");

    Crew crew(mMaterial, random.next());
    direct(crew, initializers, random, milliseconds(mPlan.milliseconds), mPlan.bytes);
    crew.stop();
    rest();
    const uint64_t writtenBytes = KernelCalls::writtenBytes();
    initializers.popOthers();
    initializers.popLast();
    expect(KernelCalls::writtenBytes() == writtenBytes, "a flush had left records for the end");
    expect(KernelCalls::mappedBuffers() == 0,
           fmt::format("the logger is gone, and {} record buffers are mapped",
                       KernelCalls::mappedBuffers()));

    SeriesCheck(mMaterial, crew.ledgers(), KernelCalls::takeWrites(), mPlan.monotonic,
                counts.series)
            .check(mFolder);
    counts.threads += crew.ledgers().size();
    counts.initializers += initializers.made();
    std::filesystem::remove_all(mFolder);
}

}  // namespace JCam::Soak
