// The time from a fatal signal to the end of the process, with and without the crash hook, by the
// number of records in memory.

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <string>

#include <benchmark/benchmark.h>

#include <android/log.h>
#include <cutils/properties.h>

#include "jlog/file/FileJLoggerBase.h"

namespace {

using namespace JCam::Utils::JLog;
using Clock = std::chrono::steady_clock;

/// A logger without a flush thread: all records stay in memory.
class BufferingLogger : public File::FileJLoggerBase {
  public:
    using FileJLoggerBase::initHook;
};

/// Logs `records`, stores the time and raises a fatal signal. Does not return.
void logAndDie(int64_t records, std::atomic<int64_t>& signalledNs) {
    constexpr char kText[] = "frame 4711: exposure 16666 us, gain 2.5, lens 0.35 dpt, (60)";
    const rlimit noCore = {};
    setrlimit(RLIMIT_CORE, &noCore);
    BufferingLogger logger;
    logger.initHook();
    for (int64_t i = 0; i < records; ++i) {
        logger.onLogDetails(MODULE_PREVIEW, "IspNode", LEVEL_INFO, kText, sizeof(kText) - 1);
    }
    signalledNs = Clock::now().time_since_epoch().count();
    std::raise(SIGSEGV);
    _exit(1);
}

void signalToEnd(benchmark::State& state, const char* hookMode) {
    const std::filesystem::path folder = std::filesystem::temp_directory_path() / "jlog_bench";
    property_set("vendor.debug.camera.ulog.folder", folder.c_str());
    property_set("vendor.debug.camera.jlog.hookne", hookMode);
    __android_log_set_minimum_priority(ANDROID_LOG_WARN);
    void* shared = mmap(nullptr, sizeof(std::atomic<int64_t>), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    auto* signalledNs = new (shared) std::atomic<int64_t>(0);
    while (state.KeepRunning()) {
        const pid_t child = fork();
        if (child == 0) {
            logAndDie(state.range(0), *signalledNs);
        }
        int status = 0;
        waitpid(child, &status, 0);
        const int64_t endedNs = Clock::now().time_since_epoch().count();
        if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGSEGV) {
            state.SkipWithError("the child did not die as it should");
            break;
        }
        state.SetIterationTime(static_cast<double>(endedNs - *signalledNs) / 1e9);
        std::filesystem::remove_all(folder);
    }
    property_set("vendor.debug.camera.jlog.hookne", "");
    munmap(shared, sizeof(std::atomic<int64_t>));
}

void withHook(benchmark::State& state) {
    signalToEnd(state, "2");
}
void withoutHook(benchmark::State& state) {
    signalToEnd(state, "0");
}

void manual(benchmark::internal::Benchmark* benchmark) {
    benchmark->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20)->Repetitions(1);
    for (const int64_t records : {0, 1000, 10000, 100000, 1000000}) {
        benchmark->Arg(records);
    }
}

BENCHMARK(withoutHook)->Name("crash/without_hook")->Apply(manual);
BENCHMARK(withHook)->Name("crash/with_hook")->Apply(manual);

}  // namespace
