// A disabled call, like most calls of a release build: the whole call of a macro, and the test
// alone, inlined and exported, against the load and the comparison that it needs.

#define JLOG_TAG "TestBench"

#include <atomic>
#include <cstdint>

#include <benchmark/benchmark.h>

#include "jlog/JLogger.h"
#include "jlog/JLogMacros.h"

namespace {

using namespace JCam::Utils::JLog;

std::atomic<uint32_t> sThreshold{LEVEL_ERROR};

/// The module passes, the level does not.
template <typename Test>
void ask(benchmark::State& state, Test test) {
    JLogger::setFilter(~0UL);
    JLogger::setLevel(LEVEL_ERROR);
    unsigned int module = MODULE_PREVIEW;
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(module);
        bool enabled = test(module);
        benchmark::DoNotOptimize(enabled);
    }
    JLogger::setFilter(0);
    JLogger::setLevel(0);
}

void floorOfTest(benchmark::State& state) {
    ask(state,
        [](unsigned int) { return sThreshold.load(std::memory_order_relaxed) >= LEVEL_DEBUG; });
}
void disabledMacro(benchmark::State& state) {
    ask(state, [](unsigned int module) {
        JLOGD(module, "module %u", module);
        return false;
    });
}
void inlinedTest(benchmark::State& state) {
    ask(state, [](unsigned int module) { return JLogger::wantsDetails(module, LEVEL_DEBUG); });
}
void exportedTest(benchmark::State& state) {
    ask(state,
        [](unsigned int module) { return JLogger::isLogDetailsEnabled(module, LEVEL_DEBUG); });
}

BENCHMARK(floorOfTest)->Name("test/floor")->Repetitions(10)->MinTime(0.05);
BENCHMARK(disabledMacro)->Name("test/macro")->Repetitions(10)->MinTime(0.05);
BENCHMARK(inlinedTest)->Name("test/inlined")->Repetitions(10)->MinTime(0.05);
BENCHMARK(exportedTest)->Name("test/exported")->Repetitions(10)->MinTime(0.05);

}  // namespace

/// A call site to inspect with objdump.
extern "C" __attribute__((noinline, used)) void jlogDisabledCall(unsigned int request) {
    JLOGD(MODULE_PREVIEW, "request %u", request);
}
