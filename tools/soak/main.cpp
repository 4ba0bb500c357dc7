// Lets loggers of the library live under load, one after the other, for as long as wanted, and
// holds all that they write, and all that they keep, against what it should be.

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <random>
#include <string>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "Call.h"
#include "Fault.h"
#include "Generation.h"
#include "Summary.h"

namespace {

namespace fs = std::filesystem;
using namespace JCam::Soak;
using Clock = std::chrono::steady_clock;

enum ExitStatus : int {
    EXIT_FINE = 0,
    EXIT_FAULT = 1,
    EXIT_USAGE = 2,
};

struct Options {
    double minutes{1};
    uint64_t seed{std::random_device{}()};
    std::string folder{"soak"};
};

/// Below this the clean-up might delete what is to be checked: it begins at 280 MiB, and a
/// generation may have several files.
constexpr uint64_t kNeededBytes = uint64_t{2} << 30U;

/// A folder of this process, without anything that an earlier one of the same id has left.
fs::path makeFolder(const std::string& parent) {
    fs::path folder = fs::path(parent) / fmt::format("{}", getpid());
    fs::remove_all(folder);
    fs::create_directories(folder);
    if (fs::space(folder).available < kNeededBytes) {
        throw fs::filesystem_error("less than 2 GiB are free", folder,
                                   std::make_error_code(std::errc::no_space_on_device));
    }
    return folder;
}

/// Starts the program anew with a malloc that keeps nothing for its threads. What caches keep
/// counts as handed out, and what arenas keep stays resident; either would hide a small leak.
void forgoThreadCaches(char** argv) {
    constexpr char kTunables[] = "GLIBC_TUNABLES";
    if (getenv(kTunables) == nullptr) {
        setenv(kTunables, "glibc.malloc.tcache_count=0:glibc.malloc.arena_max=1", 1);
        execv("/proc/self/exe", argv);
    }
}

int soak(const Options& options) {
    const fs::path folder = makeFolder(options.folder);
    const Material material(options.seed);
    Summary summary;
    const Clock::time_point begin = Clock::now();
    const auto seconds = [begin] {
        return std::chrono::duration<double>(Clock::now() - begin).count();
    };
    constexpr double kProgressSeconds = 10;
    double nextProgress = kProgressSeconds;
    while (summary.generations() == 0 || seconds() < options.minutes * 60) {
        const uint64_t number = summary.generations() + 1;
        Generation generation(material, Random(options.seed, number).next(),
                              folder / fmt::format("{}", number));
        try {
            generation.run(summary.counts());
            summary.endGeneration();
        } catch (const Fault& fault) {
            fmt::print("\nFAULT in generation {} of seed {} ({}):\n{}\n", number, options.seed,
                       generation.describe(), fault.what());
            return EXIT_FAULT;
        }
        if (seconds() >= nextProgress) {
            summary.printProgress(seconds());
            static_cast<void>(std::fflush(stdout));
            nextProgress = seconds() + kProgressSeconds;
        }
    }
    fs::remove_all(folder);
    summary.print(seconds());
    if (summary.records() == 0) {
        fmt::print("FAULT: nothing was logged\n");
        return EXIT_FAULT;
    }
    return EXIT_FINE;
}

}  // namespace

int main(int argc, char** argv) {
    forgoThreadCaches(argv);
    try {
        Options options;
        CLI::App app(
                "Lets loggers of the library live under load, one generation after the other, and "
                "checks every byte of their files, and what of the process they keep.");
        app.add_option("minutes", options.minutes, "How long; the last generation lives to its end")
                ->check(CLI::Range(0.0, 1e6).description(""))
                ->capture_default_str();
        app.add_option("--seed", options.seed, "What the random choices come from; printed");
        app.add_option("--folder", options.folder,
                       "Where the log files go; after a fault they stay there")
                ->capture_default_str();
        CLI11_PARSE(app, argc, argv);
        // The checks compare times as they stand in the files.
        setenv("TZ", "UTC0", 1);
        fmt::print("seed {}\n", options.seed);
        return soak(options);
    } catch (const std::exception& error) {
        static_cast<void>(std::fprintf(stderr, "soak: %s\n", error.what()));
        return EXIT_USAGE;
    }
}
