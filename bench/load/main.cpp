// Puts one logger under one load and prints the figures as one JSON object. bench/campaign.py runs
// it for all loggers and compares.

#include <cstdio>
#include <exception>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "BufferContender.h"
#include "Bursts.h"
#include "Field.h"
#include "Files.h"
#include "HandWritten.h"
#include "JlogContender.h"
#include "Resources.h"
#include "RingContender.h"
#include "Sustained.h"
#include "Workload.h"
#ifdef JCAM_BENCH_SPDLOG
#include "SpdlogContender.h"
#endif
#ifdef JCAM_BENCH_GLOG
#include "GlogContender.h"
#endif

namespace {

using namespace JCam::Bench;
using nlohmann::json;

constexpr const char* kLoggers[] = {
        "jlog",   "boxed", "ring", "buffers",
#ifdef JCAM_BENCH_SPDLOG
        "spdlog",
#endif
#ifdef JCAM_BENCH_GLOG
        "glog",
#endif
};

struct Options {
    std::string logger{"jlog"};
    std::string folder;
    BurstOptions burst;
    FieldOptions field;
    unsigned int lines{1000000};
    size_t textBytes{Workload::kTextBytes};
    bool messagesOnly{false};
    unsigned int seconds{10};
};

/// Calls `measure` with the contender `name` as its template argument.
template <typename Measure>
json withLogger(const std::string& name, Measure measure) {
#ifdef JCAM_BENCH_SPDLOG
    if (name == "spdlog") {
        return measure.template operator()<SpdlogContender>();
    }
#endif
#ifdef JCAM_BENCH_GLOG
    if (name == "glog") {
        return measure.template operator()<GlogContender>();
    }
#endif
    if (name == "boxed") {
        return measure.template operator()<BoxedContender>();
    }
    if (name == "ring") {
        return measure.template operator()<RingContender>();
    }
    if (name == "buffers") {
        return measure.template operator()<BufferContender>();
    }
    return measure.template operator()<JlogContender>();
}

json run(const CLI::App& command, const Options& options) {
    const ScratchFolder folder(options.folder);
    const Workload work = {folder.path(), Workload::makeText(options.textBytes),
                           options.messagesOnly};
    const std::string& name = command.get_name();
    if (name == "handwritten") {
        return measureHandWritten(work, options.lines);
    }
    if (name == "bursts") {
        return withLogger(options.logger, [&]<typename Logger>() {
            Logger logger(work);
            return Bursts<Logger>(logger, work, options.burst).run();
        });
    }
    if (name == "sustained") {
        return withLogger(options.logger, [&]<typename Logger>() {
            return measureSustained<Logger>(work, options.burst.threads, options.lines);
        });
    }
    if (name == "field") {
        return withLogger(options.logger, [&]<typename Logger>() {
            return measureField<Logger>(work, options.field);
        });
    }
    return withLogger(options.logger, [&]<typename Logger>() {
        return measureResources<Logger>(work, options.seconds);
    });
}

int measure(int argc, char** argv) {
    CLI::App app("Puts one logger under one load and prints the outcome as JSON.");
    Options options;
    app.add_option("--folder", options.folder, "Where the log files go; /dev/shm if that is there");
    app.require_subcommand(1);
    const auto addLogger = [&](CLI::App* command) {
        command->add_option("--logger", options.logger)
                ->check(CLI::IsMember(
                        std::vector<std::string>(std::begin(kLoggers), std::end(kLoggers))));
    };
    const auto addThreads = [&](CLI::App* command) {
        command->add_option("--threads", options.burst.threads)->check(CLI::Range(1U, 1024U));
    };
    const auto addEvents = [&](CLI::App* command) {
        command->add_option("--text-bytes", options.textBytes)->check(CLI::Range(0U, 1023U));
        command->add_flag("--messages-only", options.messagesOnly);
    };
    const auto addLines = [&](CLI::App* command) {
        command->add_option("--lines", options.lines)->check(CLI::Range(1U, 100000000U));
        addEvents(command);
    };

    CLI::App* bursts = app.add_subcommand("bursts", "What a call costs its caller");
    addLogger(bursts);
    addThreads(bursts);
    addEvents(bursts);
    bursts->add_option("--calls", options.burst.calls, "Of each thread in one burst")
            ->check(CLI::Range(1U, 1000000U));
    bursts->add_option("--bursts", options.burst.bursts)->check(CLI::Range(1U, 100000U));
    bursts->add_option("--pause-ms", options.burst.pauseMs,
                       "Between bursts; 0 waits until everything is written")
            ->check(CLI::Range(0U, 10000U));

    CLI::App* field = app.add_subcommand("field", "What a call costs many threads that log evenly");
    addLogger(field);
    field->add_option("--threads", options.field.threads)->check(CLI::Range(1U, 1024U));
    field->add_option("--rate", options.field.callsPerSecond, "Calls a second of all threads")
            ->check(CLI::Range(1000U, 1000000U));
    field->add_option("--seconds", options.field.seconds)->check(CLI::Range(1U, 3600U));

    CLI::App* sustained = app.add_subcommand("sustained", "How many lines reach the file");
    addLogger(sustained);
    addThreads(sustained);
    addLines(sustained);

    CLI::App* handWritten =
            app.add_subcommand("handwritten", "The physical limit: a loop that renders and writes");
    addLines(handWritten);

    CLI::App* resources =
            app.add_subcommand("resources", "What idling and a steady load take, and bursts leave");
    addLogger(resources);
    resources->add_option("--seconds", options.seconds, "Of idling")->check(CLI::Range(1U, 3600U));

    CLI11_PARSE(app, argc, argv);
    const json outcome = run(*app.get_subcommands().front(), options);
    std::cout << outcome.dump() << '\n';
    return outcome.value("lines_lost", 0) == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return measure(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "jlog_loadbench: %s\n", error.what());
        return 1;
    }
}
