// One call of the front end in mode "own files", against the primitives that it needs: a
// compare-exchange that reserves, an atomic addition that ends the writing, a clock reading, the
// fence for the crash hook, and the copy of its texts, whose lengths the compiler does not know.
//
// With the flush thread on another core, that core owns the cache lines of every recycled buffer.
// The floor is then the same primitives in turn, on memory that another thread has read. With both
// on one core, the floor is the sum of the primitives measured one by one. A macro's call is
// compared with its formatting plus the call that it makes.

#define JLOG_TAG "IspNode"

#include <sched.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <numeric>
#include <optional>
#include <string>

#include <benchmark/benchmark.h>

#include <android/log.h>
#include <cutils/properties.h>

#include "jlog/JLogger.h"
#include "jlog/JLogInitializer.h"
#include "jlog/JLogMacros.h"
#include "load/Files.h"
#include "micro/OtherThread.h"

namespace {

using namespace JCam::Utils::JLog;
using Clock = std::chrono::steady_clock;

/// Calls timed together. They fit into one buffer, so none of them retires one.
constexpr int kBatch = 1000;
constexpr char kName[] = "processFrame";
constexpr char kTag[] = "IspNode";
constexpr char kText[] = "frame 4711: exposure 16666 us, gain 2.5, lens 0.35 dpt, (60)";
constexpr size_t kTextBytes = sizeof(kText) - 1;
static_assert(kTextBytes == 60);

/// Keeps this thread, and those that it starts, on its current core.
class OneCore {
  public:
    OneCore() {
        sched_getaffinity(0, sizeof(mBefore), &mBefore);
        cpu_set_t here;
        CPU_ZERO(&here);
        CPU_SET(static_cast<size_t>(sched_getcpu()), &here);
        sched_setaffinity(0, sizeof(here), &here);
    }
    ~OneCore() { sched_setaffinity(0, sizeof(mBefore), &mBefore); }
    OneCore(const OneCore&) = delete;
    OneCore& operator=(const OneCore&) = delete;

  private:
    cpu_set_t mBefore{};
};

/// A running file logger in a folder of its own. Its thread sleeps except for a flush.
class RunningLogger {
  public:
    explicit RunningLogger(const char* mode) {
        property_set("vendor.debug.camera.ulog.folder", mFolder.path().c_str());
        property_set("vendor.debug.camera.jlog.flushms", "1000000");
        property_set("vendor.debug.camera.jlog.mode", mode);
        // As on a device, without debug lines of the logger.
        __android_log_set_minimum_priority(ANDROID_LOG_FATAL);
        mLog.emplace(0);
    }

  private:
    JCam::Bench::ScratchFolder mFolder{""};
    std::optional<JLogInitializer> mLog;
};

/// Times batches of `call`; `between` runs untimed after each.
template <typename Call, typename Between>
void timeBatches(benchmark::State& state, Call call, Between between) {
    while (state.KeepRunning()) {
        const Clock::time_point begin = Clock::now();
        for (int i = 0; i < kBatch; ++i) {
            call(static_cast<unsigned int>(i));
        }
        const std::chrono::duration<double> time = Clock::now() - begin;
        state.SetIterationTime(time.count() / kBatch);
        between();
    }
}

void writeOut() {
    JLogger::flush(10);
}
void nothing() {}

void callEnter(benchmark::State& state, const char* mode) {
    const RunningLogger logger(mode);
    timeBatches(
            state, [](unsigned int i) { JLogger::logEnter(MODULE_PREVIEW, kName, i); }, writeOut);
}

void callEnterOneCore(benchmark::State& state) {
    const OneCore core;
    callEnter(state, "0x04");
}

void callDetails(benchmark::State& state) {
    const RunningLogger logger("0x04");
    timeBatches(
            state,
            [](unsigned int /*i*/) {
                JLogger::logNormalDetails(MODULE_PREVIEW, kTag, LEVEL_INFO, kText, kTextBytes);
            },
            writeOut);
}

std::atomic<uint64_t> sCounter{0};

void compareExchange() {
    uint64_t seen = sCounter.load(std::memory_order_relaxed);
    while (!sCounter.compare_exchange_weak(seen, seen + 1, std::memory_order_acquire,
                                           std::memory_order_relaxed)) {
    }
}
void add() {
    sCounter.fetch_add(1, std::memory_order_relaxed);
}
void readClock(timespec& now) {
    clock_gettime(CLOCK_REALTIME, &now);
    benchmark::DoNotOptimize(now);
}
void fence() {
    std::atomic_thread_fence(std::memory_order_seq_cst);
}

/// A wanted call of a macro, which formats its text.
void callMacro(benchmark::State& state) {
    const RunningLogger logger("0x04");
    JLogger::setLevel(LEVEL_INFO);
    timeBatches(
            state,
            [](unsigned int i) {
                JLOGI(MODULE_PREVIEW, "frame %u: exposure %d us, gain %.1f, lens %.2f dpt, (60)", i,
                      16666, 2.5, 0.35);
            },
            writeOut);
}

/// The formatting alone.
void formatText(benchmark::State& state) {
    timeBatches(
            state,
            [](unsigned int i) {
                char text[JLogger::kMaxTextChars + 1];
                const int length =
                        snprintf(text, sizeof(text),
                                 "frame %u: exposure %d us, gain %.1f, lens %.2f dpt, (60)", i,
                                 16666, 2.5, 0.35);
                benchmark::DoNotOptimize(text);
                benchmark::DoNotOptimize(length);
            },
            nothing);
}

void callDetailsOneCore(benchmark::State& state) {
    const OneCore core;
    callDetails(state);
}

/// Memory for texts, which another thread reads between batches, as the flush thread reads a
/// buffer. So the cache lines must come back from that thread's core.
class SharedBlock {
  public:
    explicit SharedBlock(size_t recordBytes)
            : mRecordBytes(recordBytes), mBytes(kBatch * recordBytes, '\1') {}

    char* record(unsigned int i) { return mBytes.data() + (i * mRecordBytes); }
    /// Returns when the other thread has read everything.
    void letRead() { mReader.run(); }

  private:
    const size_t mRecordBytes;
    std::string mBytes;
    JCam::Bench::OtherThread mReader{
            [this] { benchmark::DoNotOptimize(std::accumulate(mBytes.begin(), mBytes.end(), 0)); }};
};

/// Copies a text whose length the compiler does not know; returns the end.
char* copyText(char* out, const char* text, size_t bytes) {
    benchmark::DoNotOptimize(bytes);
    memcpy(out, text, bytes);
    benchmark::DoNotOptimize(out);
    return out + bytes;
}

struct EnterTexts {
    static constexpr size_t kRecordBytes = 56;
    static void copy(char* out) { copyText(out, kName, sizeof(kName)); }
};
struct DetailsTexts {
    static constexpr size_t kRecordBytes = 120;
    static void copy(char* out) {
        copyText(copyText(out, kTag, sizeof(kTag)), kText, sizeof(kText));
    }
};

template <typename Primitive>
void primitive(benchmark::State& state, Primitive call) {
    timeBatches(
            state, [&](unsigned int /*i*/) { call(); }, nothing);
}

void primitiveClock(benchmark::State& state) {
    timespec now = {};
    primitive(state, [&] { readClock(now); });
}

/// Into memory that no other thread reads.
template <typename Texts>
void primitiveCopy(benchmark::State& state) {
    std::string block(kBatch * Texts::kRecordBytes, '\0');
    timeBatches(
            state, [&](unsigned int i) { Texts::copy(block.data() + i * Texts::kRecordBytes); },
            nothing);
}

/// The primitives in the order of a call.
template <typename Texts>
void inTurn(benchmark::State& state) {
    SharedBlock block(Texts::kRecordBytes);
    timeBatches(
            state,
            [&](unsigned int i) {
                compareExchange();
                timespec now = {};
                readClock(now);
                char* record = block.record(i);
                memcpy(record, &now, sizeof(now));
                Texts::copy(record + sizeof(now));
                fence();
                sCounter.fetch_sub(1, std::memory_order_release);
            },
            [&] { block.letRead(); });
}

void manual(benchmark::internal::Benchmark* benchmark) {
    benchmark->UseManualTime()->Iterations(1000)->Repetitions(5);
}

BENCHMARK_CAPTURE(primitive, compare_exchange, compareExchange)
        ->Name("primitive/compare_exchange")
        ->Apply(manual);
BENCHMARK_CAPTURE(primitive, add, add)->Name("primitive/add")->Apply(manual);
BENCHMARK(primitiveClock)->Name("primitive/clock")->Apply(manual);
BENCHMARK_CAPTURE(primitive, fence, fence)->Name("primitive/fence")->Apply(manual);
BENCHMARK(primitiveCopy<EnterTexts>)->Name("primitive/copy_enter")->Apply(manual);
BENCHMARK(primitiveCopy<DetailsTexts>)->Name("primitive/copy_details")->Apply(manual);
BENCHMARK(inTurn<EnterTexts>)->Name("primitives/enter")->Apply(manual);
BENCHMARK(inTurn<DetailsTexts>)->Name("primitives/details")->Apply(manual);
BENCHMARK_CAPTURE(callEnter, alone, "0x04")->Name("call/enter")->Apply(manual);
BENCHMARK_CAPTURE(callEnter, traced, "0x14")->Name("call/enter_traced")->Apply(manual);
BENCHMARK(callDetails)->Name("call/details")->Apply(manual);
BENCHMARK(callMacro)->Name("call/macro")->Apply(manual);
BENCHMARK(formatText)->Name("format/snprintf")->Apply(manual);
BENCHMARK(callEnterOneCore)->Name("call_one_core/enter")->Apply(manual);
BENCHMARK(callDetailsOneCore)->Name("call_one_core/details")->Apply(manual);

}  // namespace
