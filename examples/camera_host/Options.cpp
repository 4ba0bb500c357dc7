#include "Options.h"

#include <csignal>
#include <string_view>

#include <CLI/CLI.hpp>

#include "ExitStatus.h"

namespace CameraHost {

namespace {

/// An error message for a text that is not "key=value"; empty if it is.
std::string checkProperty(const std::string& text) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0 || text.find(' ') < equals) {
        return "'" + text + "' is not key=value";
    }
    return {};
}

/// 0 for an option that is not there.
int signalOf(std::string_view crash) {
    return crash == "segv"    ? SIGSEGV
           : crash == "abort" ? SIGABRT
           : crash == "bus"   ? SIGBUS
           : crash == "kill"  ? SIGKILL
                              : 0;
}

}  // namespace

std::optional<int> parseOptions(int argc, char** argv, Options& options) {
    std::vector<std::string> properties;
    CLI::App app(
            "A small camera HAL host: runs request pipelines that log, then checks the log files.");
    app.add_option("--mode", options.mode, "Logging mode, for example 20 or 0x14")
            ->check(CLI::Range(0, 0xff))
            ->capture_default_str();
    app.add_option("--mask", options.mask, "Enable mask of the initializer")->capture_default_str();
    app.add_option("--prop", properties,
                   "Set a system property before logging starts; repeatable, and stronger than "
                   "--mode, --folder and --blackbox. What the library reads when it is loaded "
                   "(vendor.debug.camera.jlog.level) comes too late here")
            ->type_name("KEY=VALUE")
            ->check(CLI::Validator(checkProperty, ""))
            ->expected(1)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_option("--folder", options.folder, "Folder of the log files")->capture_default_str();
    app.add_option("--blackbox", options.blackBox,
                   "Folder of the black box, which keeps what is not in a file yet when the "
                   "process ends without a crash file; best on a memory file system, such as "
                   "/dev/shm/NAME")
            ->type_name("FOLDER");
    app.add_option("--threads", options.threads, "Threads of the pipeline")
            ->check(CLI::Range(1, 256))
            ->capture_default_str();
    app.add_option("--seconds", options.seconds, "How long the pipeline runs")
            ->check(CLI::Range(1, 86400))
            ->capture_default_str();
    app.add_option("--rate", options.rate, "Requests per second and thread; 0: as fast as it can")
            ->check(CLI::Range(0, 100000))
            ->capture_default_str();
    CLI::Option* replay = app.add_option("--replay", options.replayFile,
                                         "Replay a logcat threadtime file instead, as fast as it "
                                         "can, on one thread per thread id of the file")
                                  ->check(CLI::ExistingFile);
    std::string crash;
    CLI::Option* const crashOption =
            app.add_option("--crash", crash,
                           "Let the host crash in the middle of its load, in a child process, then "
                           "check that its files hold every record: segv, abort or bus; or kill, "
                           "which leaves no crash file. With --blackbox another process recovers "
                           "the records first")
                    ->type_name("SIGNAL")
                    ->check(CLI::IsMember({"segv", "abort", "bus", "kill"}).description(""))
                    ->excludes(replay);
    CLI::Option* const storm =
            app.add_option("--storm", options.storm,
                           "Let so many child processes crash at full load, each by a random "
                           "signal, in a random thread and at a random moment, and check the "
                           "files of each")
                    ->type_name("N")
                    ->check(CLI::Range(1, 1000000).description(""))
                    ->excludes(replay)
                    ->excludes(crashOption);
    app.add_flag("--ends", options.ends,
                 "Let the children of the storm end in ways that leave no crash file: SIGKILL, "
                 "stack overflow, _exit, two faults at once and others. With --blackbox another "
                 "process then recovers the records of each, in half of the cases after some that "
                 "are killed while they do")
            ->needs(storm);
    app.add_flag(
               "--exceptions", options.exceptions,
               "Report camera exceptions for some four seconds more, while the pipeline runs, and "
               "show what reaches the log collector, the kernel node and the stats service. The "
               "Android log goes into logcat.txt in the log folder, too, which is the working "
               "directory")
            ->excludes(replay)
            ->excludes(crashOption)
            ->excludes(storm);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_FINE : EXIT_USAGE;
    }
    options.crashSignal = signalOf(crash);
    for (const std::string& property : properties) {
        const size_t equals = property.find('=');
        options.properties.emplace_back(property.substr(0, equals), property.substr(equals + 1));
    }
    return std::nullopt;
}

}  // namespace CameraHost
