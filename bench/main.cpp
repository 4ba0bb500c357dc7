// Runs the benchmarks and ends with what they say: ratios inside this one run. Absolute times
// belong to the machine and the moment.

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace {

struct Ratio {
    const char* what;
    const char* numerator;
    const char* denominator;
};

constexpr Ratio kRatios[] = {
        {"enter call / its primitives", "call/enter", "call/enter_primitives"},
        {"details call / its primitives", "call/details", "call/details_primitives"},
        {"enter call with trace / its primitives", "call/enter_traced", "call/enter_primitives"},
        {"printf rendering / the library's", "render/printf", "render/library"},
};

/// Prints as usual and keeps the best time of each benchmark: on a shared machine, what is above it
/// is other people's work.
class BestTimes : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.error_occurred) {
                continue;
            }
            const double time = run.GetAdjustedRealTime();
            const auto [entry, isNew] = mTimes.try_emplace(run.run_name.function_name, time);
            entry->second = std::min(entry->second, time);
        }
    }

    void printRatios() const {
        for (const Ratio& ratio : kRatios) {
            const auto numerator = mTimes.find(ratio.numerator);
            const auto denominator = mTimes.find(ratio.denominator);
            if (numerator != mTimes.end() && denominator != mTimes.end()) {
                std::printf("%-40s %6.2f\n", ratio.what, numerator->second / denominator->second);
            }
        }
    }

  private:
    std::map<std::string, double> mTimes;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    BestTimes reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\nRatios of the best times of this run\n");
    reporter.printRatios();
    return 0;
}
