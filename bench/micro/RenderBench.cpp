// Renders the records of a full buffer, as the flush thread does: the library's writer against
// printf and strftime, and against the floor, a copy of the same lines. write(2) is replaced here,
// so no file takes part. And clears the records afterwards.

#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "jlog/file/FileJLoggerBase.h"
#include "jlog/file/FileJLogWriter.h"
#include "load/Files.h"
#include "load/HandWritten.h"
#include "micro/OtherThread.h"
#include "support/ReferenceWriter.h"

namespace {

using namespace JCam::Utils::JLog;
using File::FileJLogWriter;
using JCam::Bench::ScratchFolder;
using JCam::Support::ReferenceWriter;

/// Makes write(2) succeed without writing. Set while only the benchmark's writer writes.
bool sSwallowWrites = false;

/// A full buffer: enter, message and exit in turn.
class Scene : public File::FileJLoggerBase {
  public:
    Scene() {
        constexpr char kText[] = "frame 4711: exposure 16666 us, gain 2.5, lens 0.35 dpt, (60)";
        for (unsigned int request = 0; buffer().usedBytes() < File::kBufferBytes - 512; ++request) {
            onLogEnter(MODULE_PREVIEW, "processFrame", request);
            onLogDetails(MODULE_PREVIEW, "IspNode", LEVEL_INFO, kText, sizeof(kText) - 1);
            onLogExit(MODULE_PREVIEW, "processFrame", request);
            mLines += 3;
        }
    }

    /// Its records, as bytes.
    [[nodiscard]] std::span<char> bytes() {
        return {buffer().data, static_cast<size_t>(buffer().end() - buffer().data)};
    }
    uint32_t render(FileJLogWriter& writer) { return renderRecords(buffer(), writer); }

    /// Calls `visit` with the header of every record.
    template <typename Visit>
    void forEach(Visit visit) {
        for (const char* place = buffer().data; place < buffer().end();) {
            const auto* header = reinterpret_cast<const File::LogHeader*>(place);
            visit(*header);
            place += header->size();
        }
    }
    [[nodiscard]] int64_t lines() const { return mLines; }

  private:
    /// No other thread logs.
    Buffer& buffer() JLOG_NO_THREAD_SAFETY_ANALYSIS { return *mCurrent.get(); }

    int64_t mLines{0};
};

void printRecord(ReferenceWriter& writer, const File::LogHeader& header) {
    if (header.type() == File::RECORD_DETAILS) {
        writer.details(reinterpret_cast<const File::LogDetails&>(header));
    } else {
        writer.enterExit(reinterpret_cast<const File::LogEnterExit&>(header),
                         header.type() == File::RECORD_ENTER ? '+' : '-');
    }
}

/// A writer that writes nothing.
class SwallowingWriter {
  public:
    SwallowingWriter() {
        mWriter.mFolder = mFolder.path().string();
        sSwallowWrites = mWriter.open(true, "BENCH_", true);
    }
    ~SwallowingWriter() {
        mWriter.close();
        sSwallowWrites = false;
    }
    SwallowingWriter(const SwallowingWriter&) = delete;
    SwallowingWriter& operator=(const SwallowingWriter&) = delete;

    FileJLogWriter& get() { return mWriter; }

  private:
    const ScratchFolder mFolder{""};
    FileJLogWriter mWriter;
};

void renderByLibrary(benchmark::State& state) {
    Scene scene;
    SwallowingWriter writer;
    if (!sSwallowWrites) {
        state.SkipWithError("no file");
        return;
    }
    while (state.KeepRunning()) {
        scene.render(writer.get());
    }
    state.SetItemsProcessed(state.iterations() * scene.lines());
}

/// Clears the records of a buffer that another thread has written and this one has just rendered.
void clearRendered(benchmark::State& state) {
    using Clock = std::chrono::steady_clock;
    Scene scene;
    const std::span<char> bytes = scene.bytes();
    const std::string records(bytes.begin(), bytes.end());
    JCam::Bench::OtherThread caller([&] { memcpy(bytes.data(), records.data(), bytes.size()); });
    SwallowingWriter writer;
    while (state.KeepRunning()) {
        caller.run();
        scene.render(writer.get());
        const Clock::time_point begin = Clock::now();
        memset(bytes.data(), 0, bytes.size());
        benchmark::ClobberMemory();
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - begin).count());
    }
    caller.run();  // the scene has its records again
    state.SetItemsProcessed(state.iterations() * scene.lines());
}

void renderByPrintf(benchmark::State& state) {
    Scene scene;
    ReferenceWriter writer(getpid(), [](const char* text, size_t /*bytes*/) {
        benchmark::DoNotOptimize(text);
        benchmark::ClobberMemory();
    });
    while (state.KeepRunning()) {
        scene.forEach([&](const File::LogHeader& header) { printRecord(writer, header); });
    }
    writer.flush();
    state.SetItemsProcessed(state.iterations() * scene.lines());
}

/// The floor: copies the same lines, already rendered, one by one into a text buffer.
void copyLines(benchmark::State& state) {
    Scene scene;
    std::string text;
    ReferenceWriter writer(getpid(),
                           [&](const char* some, size_t bytes) { text.append(some, bytes); });
    scene.forEach([&](const File::LogHeader& header) { printRecord(writer, header); });
    writer.flush();
    std::vector<uint32_t> lengths;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = text.find('\n', begin) + 1;
        lengths.push_back(static_cast<uint32_t>(end - begin));
        begin = end;
    }
    char block[24576];
    while (state.KeepRunning()) {
        const char* from = text.data();
        char* out = block;
        for (const uint32_t length : lengths) {
            if (static_cast<size_t>(block + sizeof(block) - out) < length) {
                benchmark::DoNotOptimize(block);
                benchmark::ClobberMemory();
                out = block;
            }
            memcpy(out, from, length);
            out += length;
            from += length;
        }
        benchmark::DoNotOptimize(block);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * scene.lines());
}

/// Compares with HandWrittenLines.
void renderByHand(benchmark::State& state) {
    constexpr unsigned int kLines = 3000;
    const JCam::Bench::Workload work = {
            "", JCam::Bench::Workload::makeText(JCam::Bench::Workload::kTextBytes)};
    const JCam::Bench::HandWrittenLines source(work);
    char block[24576];
    while (state.KeepRunning()) {
        char* out = block;
        for (unsigned int i = 0; i < kLines; ++i) {
            if (static_cast<size_t>(block + sizeof(block) - out) <
                JCam::Bench::HandWrittenLines::kLongestLine) {
                benchmark::DoNotOptimize(block);
                benchmark::ClobberMemory();
                out = block;
            }
            out = source.putLine(out, i);
        }
        benchmark::DoNotOptimize(block);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * int64_t{kLines});
}

BENCHMARK(copyLines)->Name("render/copy")->Repetitions(5)->MinTime(0.05);
BENCHMARK(renderByHand)->Name("render/by_hand")->Repetitions(5)->MinTime(0.05);
BENCHMARK(renderByLibrary)->Name("render/library")->Repetitions(5)->MinTime(0.05);
BENCHMARK(clearRendered)->Name("render/clear")->UseManualTime()->Iterations(500)->Repetitions(5);
BENCHMARK(renderByPrintf)->Name("render/printf")->Repetitions(5)->MinTime(0.05);

}  // namespace

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): libc's names are reserved
extern "C" __attribute__((visibility("default"))) ssize_t write(int fd, const void* bytes,
                                                                size_t count) {
    if (sSwallowWrites) {
        return static_cast<ssize_t>(count);
    }
    return static_cast<ssize_t>(syscall(SYS_write, fd, bytes, count));
}
