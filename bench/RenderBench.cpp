// Text from records: the library's writer against the same format by printf and strftime. Neither
// side pays for the file: write(2) is answered here.

#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "jlog/file/FileJLogWriter.h"
#include "support/Records.h"
#include "support/ReferenceWriter.h"

namespace {

using JCam::Support::Record;
using JCam::Support::ReferenceWriter;
using JCam::Utils::JLog::File::FileJLogWriter;

/// Set while the benchmark's writer owns the only file that is written.
bool sSwallowWrites = false;

/// A camera's log: enter, message and exit in turn, a microsecond apart.
struct Scene {
    static constexpr size_t kRounds = 256;
    static constexpr size_t kLines = 3 * kRounds;

    std::vector<Record> enters, messages, exits;

    Scene() {
        const std::string text = "frame 4711: exposure 16666 us, gain 2.5, lens at 0.35 dpt (60)";
        for (size_t i = 0; i < kRounds; ++i) {
            const auto microsecond = static_cast<long>(i) * 1000;
            const auto number = static_cast<unsigned int>(i);
            const timespec now = {1710512730, microsecond};
            enters.push_back(Record::enterExit(4350, now, number, 4, number, "processFrame"));
            messages.push_back(Record::details(4350, now, 3, "IspNode", text));
            exits.push_back(Record::enterExit(4350, now, number + 1, 4, number, "processFrame"));
        }
    }
};

void renderByLibrary(benchmark::State& state) {
    const Scene scene;
    FileJLogWriter writer;
    writer.mFolder = std::filesystem::temp_directory_path().string();
    if (!writer.open(true, "BENCH_", true)) {
        state.SkipWithError("no file");
        return;
    }
    sSwallowWrites = true;
    while (state.KeepRunning()) {
        for (size_t i = 0; i < Scene::kRounds; ++i) {
            writer.onLogEnter(&scene.enters[i].asEnterExit());
            writer.onLogDetails(&scene.messages[i].asDetails());
            writer.onLogExit(&scene.exits[i].asEnterExit());
        }
    }
    writer.close();
    sSwallowWrites = false;
    std::filesystem::remove(writer.mFilePath.c_str());
    state.SetItemsProcessed(state.iterations() * int64_t{Scene::kLines});
}

void renderByPrintf(benchmark::State& state) {
    const Scene scene;
    ReferenceWriter writer(getpid(), [](const char* text, size_t /*bytes*/) {
        benchmark::DoNotOptimize(text);
        benchmark::ClobberMemory();
    });
    while (state.KeepRunning()) {
        for (size_t i = 0; i < Scene::kRounds; ++i) {
            writer.enterExit(scene.enters[i].asEnterExit(), '+');
            writer.details(scene.messages[i].asDetails());
            writer.enterExit(scene.exits[i].asEnterExit(), '-');
        }
    }
    writer.flush();
    state.SetItemsProcessed(state.iterations() * int64_t{Scene::kLines});
}

// Interleaved repetitions: what the machine does meanwhile meets both sides.
BENCHMARK(renderByLibrary)->Name("render/library")->Repetitions(10);
BENCHMARK(renderByPrintf)->Name("render/printf")->Repetitions(10);

}  // namespace

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): libc's are reserved names
extern "C" __attribute__((visibility("default"))) ssize_t write(int fd, const void* bytes,
                                                                size_t count) {
    if (sSwallowWrites) {
        return static_cast<ssize_t>(count);
    }
    return static_cast<ssize_t>(syscall(SYS_write, fd, bytes, count));
}
