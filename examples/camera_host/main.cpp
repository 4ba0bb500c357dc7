#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include <cutils/properties.h>
#include <fmt/core.h>

#include "Check.h"
#include "Crash.h"
#include "ExceptionSession.h"
#include "ExitStatus.h"
#include "jlog/JLogger.h"
#include "jlog/JLogInitializer.h"
#include "LedgerBook.h"
#include "LogcatFile.h"
#include "Options.h"
#include "Pipeline.h"
#include "reader/LogFile.h"
#include "Recovery.h"
#include "Replay.h"
#include "Report.h"
#include "Storm.h"
#include "Witness.h"

namespace CameraHost {

using JCam::Reader::listLogFiles;
using JCam::Reader::LogFile;
using JCam::Utils::JLog::JLogger;
using JCam::Utils::JLog::JLogInitializer;
using Clock = std::chrono::steady_clock;

namespace {

constexpr char kModeProperty[] = "vendor.debug.camera.jlog.mode";
constexpr char kFolderProperty[] = "vendor.debug.camera.ulog.folder";
constexpr char kBlackBoxProperty[] = "vendor.debug.camera.jlog.blackbox";
constexpr char kLevelProperty[] = "persist.vendor.jovix.camera.log_level";
constexpr char kLevelVerbose[] = "4";

/// What a run leaves behind for the check, made by its threads while logging was up.
struct Run {
    explicit Run(size_t threads) : ledgers(threads) {}

    unsigned int mode = 0;  // the one that the library has chosen
    LedgerBook ledgers;
    std::string unheard;  // what has not reached the back end, in words; mostly nothing
    std::string_view timedWhat;
    std::vector<ExceptionStep> steps;  // of --exceptions
};

bool setProperty(const std::string& key, const std::string& value) {
    if (property_set(key.c_str(), value.c_str()) == 0) {
        return true;
    }
    fmt::print(stderr, "property {} does not take the value '{}'\n", key, value);
    return false;
}

/// The configuration of the library is its properties, and it reads them when logging starts.
bool setProperties(const Options& options) {
    bool done = setProperty(kModeProperty, fmt::format("0x{:x}", options.mode)) &&
                setProperty(kFolderProperty, options.folder) &&
                setProperty(kBlackBoxProperty, options.blackBox) &&
                setProperty(kLevelProperty, kLevelVerbose);
    for (const auto& [key, value] : options.properties) {
        done = done && setProperty(key, value);
    }
    return done;
}

/// The folder that a property names, as the library will read it.
std::filesystem::path getFolder(const char* property = kFolderProperty) {
    std::array<char, PROPERTY_VALUE_MAX> folder{};
    property_get(property, folder.data(), "");
    return folder.data();
}

/// Makes the folders above one of the library's, which creates the last component only.
bool makeParents(const std::filesystem::path& folder) {
    std::error_code error;
    if (folder.has_parent_path()) {
        std::filesystem::create_directories(folder.parent_path(), error);
    }
    if (error) {
        fmt::print(stderr, "cannot make {}: {}\n", folder.parent_path().string(), error.message());
    }
    return !error;
}

/// The log files of this process that were not there before: another one may have had its id.
std::vector<LogFile> newFiles(const std::filesystem::path& folder,
                              const std::vector<LogFile>& before) {
    std::vector<LogFile> files = listLogFiles(folder, getpid());
    std::erase_if(files, [&](const LogFile& file) {
        return std::any_of(before.begin(), before.end(),
                           [&](const LogFile& old) { return old.path == file.path; });
    });
    return files;
}

/// Makes the log folder the working directory, because files of the camera stack are relative to
/// that, and names its folders to the library so that they stay the same.
bool enterFolder() {
    std::filesystem::path folder = getFolder();
    std::filesystem::path box = getFolder(kBlackBoxProperty);
    std::error_code error;
    if (!box.empty()) {
        box = std::filesystem::absolute(box);
    }
    std::filesystem::create_directories(folder, error);
    if (!error) {
        folder = std::filesystem::canonical(folder, error);
    }
    if (!error) {
        std::filesystem::current_path(folder, error);
    }
    if (error) {
        fmt::print(stderr, "cannot work in '{}': {}\n", folder.string(), error.message());
    }
    return !error && setProperty(kFolderProperty, folder.string()) &&
           setProperty(kBlackBoxProperty, box.string());
}

void runPipeline(const Options& options, Run& run) {
    // Everything that is logged goes to this file, too, so it comes before the initializer.
    std::optional<LogcatFile> logcat;
    if (options.exceptions) {
        logcat.emplace("logcat.txt");
    }
    // An initializer comes first and goes last: nothing may log through it when it goes.
    const JLogInitializer initializer(options.mask);
    const Witness witness;
    run.mode = JLogger::sMode.load(std::memory_order_relaxed);
    printStart(options, run.mode);
    run.timedWhat =
            "macros with their formatting, back end, and this host's own number, count and hash; "
            "in groups of an enter, 8 details and an exit";

    Pipeline pipeline(run.ledgers, options.rate);
    pipeline.start();
    if (logcat.has_value()) {
        run.steps = runExceptionSession(
                {*logcat, printExceptionStep,
                 [&](const std::function<void()>& work) { pipeline.runRequestAround(work); }});
    }
    const Clock::time_point begin = Clock::now();
    for (unsigned int second = 1; second <= options.seconds; second++) {
        std::this_thread::sleep_until(begin + std::chrono::seconds(second));
        printProgress(Clock::now() - begin, run.ledgers);
        pipeline.tick(second);
    }
    pipeline.stop();
    if (pipeline.unheard() > 0) {
        run.unheard = fmt::format("of {} requests less has reached the back end than was logged",
                                  pipeline.unheard());
    }
}

void runReplay(const Options& options, const ReplayScript& script, Run& run) {
    const JLogInitializer initializer(options.mask);
    const Witness witness;
    run.mode = JLogger::sMode.load(std::memory_order_relaxed);
    printStart(options, run.mode);
    printScript(script);
    run.timedWhat = "details test, front end, back end, and this host's own number, count and hash";

    Replay replay(script, run.ledgers);
    const Clock::time_point begin = Clock::now();
    replay.start();
    while (!replay.waitSecond()) {
        printProgress(Clock::now() - begin, run.ledgers);
    }
    if (replay.logged() < script.messages) {
        fmt::print("replay: {} messages not logged, level or module is off\n",
                   script.messages - replay.logged());
    }
    if (const uint64_t heard = run.ledgers.counts().details; heard != replay.logged()) {
        run.unheard =
                fmt::format("of {} messages {} have reached the back end", replay.logged(), heard);
    }
}

/// Compares the files with what was logged, and prints the end of the program's output.
int conclude(const Run& run, const std::vector<LogFile>& files) {
    using namespace JCam::Utils::JLog;
    printLogged(run.ledgers, run.timedWhat);
    if (!run.unheard.empty()) {
        fmt::print("call sites     failed: {}\n", run.unheard);
        return EXIT_FAULT;
    }
    if ((run.mode & MODE_FILE_ALONE) == 0) {
        fmt::print("check          skipped: this mode has no files of our own\n");
        const int asked = property_get_int32(kModeProperty, 0);
        if (asked != MODE_FILE_ALONE && asked != (MODE_FILE_ALONE | MODE_TRACE)) {
            return EXIT_FINE;
        }
        fmt::print("mode 0x{:02x} was asked for, but the library chose mode 0x{:02x}\n", asked,
                   run.mode);
        return EXIT_FAULT;
    }
    if (files.empty()) {
        fmt::print("check          failed: no log file of this run is in the folder\n");
        return EXIT_FAULT;
    }
    const Findings findings = checkFiles(files, run.ledgers, RunEnd::STOP);
    printFindings(findings, run.ledgers, RunEnd::STOP);
    printFiles(files);
    return findings.isClean() ? EXIT_FINE : EXIT_FAULT;
}

/// Runs the pipeline in a child process that crashes half way, and checks what it leaves behind.
int runCrash(const Options& options) {
    const LedgerBook ledgers(options.threads + 1);
    const bool isKill = options.crashSignal == SIGKILL;
    // At full seconds requests begin; a moment later nodes are at work.
    const std::chrono::milliseconds half(500 * options.seconds + 5);
    constexpr std::chrono::seconds kHangBound(10);
    const ChildEnd end = runInChild(
            [&]() -> int {
                const JLogInitializer initializer(options.mask);
                const Witness witness;
                printStart(options, JLogger::sMode.load(std::memory_order_relaxed));
                Pipeline pipeline(ledgers, options.rate);
                pipeline.start();
                std::this_thread::sleep_for(half);
                fmt::print("half way       {}: {}\n",
                           isKill ? "the process is killed" : "a fault on the host's own thread",
                           signalName(options.crashSignal));
                static_cast<void>(std::fflush(stdout));
                crash(options.crashSignal, CrashPlace::HOST, 0, ledgers);
            },
            half + kHangBound);
    printChildEnd(end, ledgers.markedNs() != 0 ? end.endedNs - ledgers.markedNs() : -1);
    bool isRecovered = true;
    if (!options.blackBox.empty()) {
        isRecovered = recoverBoxes(options, kRecoveryBound).isDone;
        fmt::print("next start     {}\n", isRecovered ? "the black box is recovered and gone"
                                                      : "failed: a black box is left");
    }
    const std::vector<LogFile> files = listLogFiles(getFolder(), end.pid);
    const RunEnd runEnd = isKill ? RunEnd::SUDDEN : RunEnd::CRASH;
    const Findings found = checkFiles(files, ledgers, runEnd, options.crashSignal);
    printFindings(found, ledgers, runEnd);
    printFiles(files);
    return found.isClean() && isRecovered && end.sig == options.crashSignal ? EXIT_FINE
                                                                            : EXIT_FAULT;
}

int runHost(const Options& options) {
    ReplayScript script;
    if (!options.replayFile.empty()) {
        script = loadReplay(options.replayFile);
        if (script.messages == 0) {
            printScript(script);
            fmt::print(stderr, "{} has no line to replay\n", options.replayFile);
            return EXIT_USAGE;
        }
    }
    if (!setProperties(options)) {
        return EXIT_USAGE;
    }
    if (!makeParents(getFolder()) || !makeParents(getFolder(kBlackBoxProperty)) ||
        (options.exceptions && !enterFolder())) {
        return EXIT_USAGE;
    }
    if (options.crashSignal != 0) {
        return runCrash(options);
    }
    if (options.storm > 0) {
        const StormFindings found = runStorm(options);
        printStormFindings(found, options);
        return found.isClean() ? EXIT_FINE : EXIT_FAULT;
    }
    const std::filesystem::path folder = getFolder();
    const std::vector<LogFile> before = listLogFiles(folder, getpid());
    const bool isReplay = !options.replayFile.empty();
    Run run(isReplay ? script.threads.size() : options.threads + 1);
    if (isReplay) {
        runReplay(options, script, run);
    } else {
        runPipeline(options, run);
    }
    run.ledgers.mark();
    const bool asExpected =
            std::all_of(run.steps.begin(), run.steps.end(),
                        [](const ExceptionStep& step) { return step.reached == step.expected; });
    if (options.exceptions) {
        printExceptionSteps(run.steps);
    }
    const int status = conclude(run, newFiles(folder, before));
    return asExpected ? status : EXIT_FAULT;
}

}  // namespace

}  // namespace CameraHost

int main(int argc, char** argv) {
    try {
        CameraHost::Options options;
        const std::optional<int> status = CameraHost::parseOptions(argc, argv, options);
        return status.has_value() ? *status : CameraHost::runHost(options);
    } catch (const std::exception& error) {
        static_cast<void>(std::fprintf(stderr, "camera_host: %s\n", error.what()));
        return CameraHost::EXIT_FAULT;
    }
}
