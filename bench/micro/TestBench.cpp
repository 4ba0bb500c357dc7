// A disabled call, which is what most calls of a release build are: the test that a call site asks
// first, exported and inlined, against two loads and two comparisons.

#include <atomic>
#include <cstdint>

#include <benchmark/benchmark.h>

#include "jlog/JLogger.h"

namespace {

using namespace JCam::Utils::JLog;

std::atomic<uint64_t> sWord{~uint64_t{0}};
std::atomic<uint32_t> sThreshold{LEVEL_ERROR};

/// The module passes, the level does not: no test can stop half way.
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
    ask(state, [](unsigned int module) {
        return (sWord.load(std::memory_order_relaxed) & module) != 0 &&
               sThreshold.load(std::memory_order_relaxed) >= LEVEL_DEBUG;
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
BENCHMARK(inlinedTest)->Name("test/inlined")->Repetitions(10)->MinTime(0.05);
BENCHMARK(exportedTest)->Name("test/exported")->Repetitions(10)->MinTime(0.05);

}  // namespace

/// The inlined test as a call site has it, to be looked at with objdump.
extern "C" __attribute__((noinline, used)) bool jlogInlinedTest(unsigned int moduleId,
                                                                JLogLevel level) {
    return JLogger::wantsDetails(moduleId, level);
}
