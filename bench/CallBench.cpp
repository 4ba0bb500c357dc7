// One call of the front end in mode "own files", against what it cannot do without: a lock and an
// unlock, two atomic additions, a clock reading, the copy of the text and the barrier that the
// crash hook asks for.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>

#include <benchmark/benchmark.h>

#include <android/log.h>
#include <cutils/properties.h>

#include "jlog/JLogger.h"
#include "jlog/JLogInitializer.h"

namespace {

using namespace JCam::Utils::JLog;
using Clock = std::chrono::steady_clock;

/// Calls timed together: they fit into one buffer, so that no retirement is among them.
constexpr int kBatch = 1000;
constexpr char kName[] = "processFrame";
constexpr char kTag[] = "IspNode";
constexpr char kText[] = "frame 4711: exposure 16666 us, gain 2.5, lens 0.35 dpt, (60)";
constexpr size_t kTextBytes = sizeof(kText) - 1;
static_assert(kTextBytes == 60);

/// A running file logger in a folder of its own, whose thread sleeps unless it is told to flush.
class RunningLogger {
  public:
    explicit RunningLogger(const char* mode)
            : mFolder(std::filesystem::temp_directory_path() / "jlog_bench"), mMode(mode) {
        std::filesystem::create_directories(mFolder);
        property_set("vendor.debug.camera.ulog.folder", mFolder.c_str());
        property_set("vendor.debug.camera.jlog.flushms", "1000000");
        // A device logs no debug lines of the logger either, unless one looks for a fault in it.
        __android_log_set_minimum_priority(ANDROID_LOG_WARN);
        mInitializer = std::make_unique<JLogInitializer>(0);
    }
    ~RunningLogger() {
        mInitializer.reset();
        std::filesystem::remove_all(mFolder);
    }
    RunningLogger(const RunningLogger&) = delete;
    RunningLogger& operator=(const RunningLogger&) = delete;

  private:
    struct Mode {
        explicit Mode(const char* mode) { property_set("vendor.debug.camera.jlog.mode", mode); }
    };
    std::filesystem::path mFolder;
    Mode mMode;
    std::unique_ptr<JLogInitializer> mInitializer;
};

/// Times batches of `call`; what is logged is written out between them, off the clock.
template <typename Call>
void timeBatches(benchmark::State& state, Call call) {
    while (state.KeepRunning()) {
        const Clock::time_point begin = Clock::now();
        for (int i = 0; i < kBatch; ++i) {
            call(static_cast<unsigned int>(i));
        }
        const std::chrono::duration<double> time = Clock::now() - begin;
        state.SetIterationTime(time.count() / kBatch);
        JLogger::flush(10);
    }
}

void callEnter(benchmark::State& state) {
    const RunningLogger logger("0x04");
    timeBatches(state, [](unsigned int i) { JLogger::logEnter(MODULE_PREVIEW, kName, i); });
}

void callEnterTraced(benchmark::State& state) {
    const RunningLogger logger("0x14");
    timeBatches(state, [](unsigned int i) { JLogger::logEnter(MODULE_PREVIEW, kName, i); });
}

void callDetails(benchmark::State& state) {
    const RunningLogger logger("0x04");
    timeBatches(state, [](unsigned int /*i*/) {
        JLogger::logNormalDetails(MODULE_PREVIEW, kTag, LEVEL_INFO, kText, kTextBytes);
    });
}

/// The primitives of a call that copies `bytes`.
void primitives(benchmark::State& state, size_t bytes) {
    std::mutex mutex;
    std::atomic<uint32_t> pending{0};
    std::string block(kBatch * 128UL, '\0');
    timeBatches(state, [&](unsigned int i) {
        mutex.lock();
        char* record = block.data() + (i * 128UL);
        pending.fetch_add(1, std::memory_order_relaxed);
        mutex.unlock();
        timespec now = {};
        clock_gettime(CLOCK_REALTIME, &now);
        memcpy(record, &now, sizeof(now));
        memcpy(record + sizeof(now), kText, bytes);
        benchmark::DoNotOptimize(record);
        std::atomic_thread_fence(std::memory_order_seq_cst);
        pending.fetch_sub(1, std::memory_order_release);
    });
}

void enterPrimitives(benchmark::State& state) {
    primitives(state, sizeof(kName));
}
void detailsPrimitives(benchmark::State& state) {
    primitives(state, kTextBytes);
}

void manual(benchmark::internal::Benchmark* benchmark) {
    benchmark->UseManualTime()->Iterations(2000)->Repetitions(10);
}

BENCHMARK(enterPrimitives)->Name("call/enter_primitives")->Apply(manual);
BENCHMARK(callEnter)->Name("call/enter")->Apply(manual);
BENCHMARK(callEnterTraced)->Name("call/enter_traced")->Apply(manual);
BENCHMARK(detailsPrimitives)->Name("call/details_primitives")->Apply(manual);
BENCHMARK(callDetails)->Name("call/details")->Apply(manual);

}  // namespace
