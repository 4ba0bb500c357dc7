// jlog: what the log files of the camera logger say.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <memory>
#include <numeric>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "reader/LogFile.h"
#include "tools/jlog/analysis/WallClock.h"
#include "tools/jlog/commands/Commands.h"
#include "tools/jlog/Options.h"
#include "tools/jlog/Output.h"

namespace JCam::Tool {

namespace {

/// Shows on a terminal how much has been read, once that takes long.
class ProgressBar {
  public:
    explicit ProgressBar(uint64_t total) : mTotal(total), mIsTerminal(isatty(STDERR_FILENO) == 1) {}
    ~ProgressBar() {
        if (mIsShown) {
            fmt::print(stderr, "\r\x1b[K");
        }
    }
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    void add(uint64_t bytes) {
        mDone += bytes;
        const auto now = std::chrono::steady_clock::now();
        constexpr std::chrono::milliseconds kPatience(500);
        constexpr std::chrono::milliseconds kInterval(100);
        if (!mIsTerminal || now - mBegin < kPatience || now - mLast < kInterval || mTotal == 0) {
            return;
        }
        mLast = now;
        mIsShown = true;
        constexpr uint64_t kWidth = 40;
        const uint64_t done = std::min(mDone, mTotal);
        fmt::print(stderr, "\r{:3} % [{:-<{}}] {} of {} MB", done * 100 / mTotal,
                   std::string(done * kWidth / mTotal, '#'), kWidth, done / 1000000,
                   mTotal / 1000000);
    }

  private:
    const uint64_t mTotal;
    const bool mIsTerminal;
    const std::chrono::steady_clock::time_point mBegin = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point mLast;
    uint64_t mDone = 0;
    bool mIsShown = false;
};

/// With a crash file that is named by itself, the log files of its process that lie beside it.
std::vector<std::filesystem::path> addBeside(std::vector<std::filesystem::path> paths) {
    const std::vector<std::filesystem::path> named = paths;
    for (const std::filesystem::path& path : named) {
        const std::optional<Reader::LogFile> crash = Reader::parseName(path);
        if (crash && crash->isCrash) {
            for (const Reader::LogFile& file :
                 Reader::listLogFiles((path.parent_path() / "."), crash->pid)) {
                if (!file.isCrash) {
                    paths.push_back(file.path);
                }
            }
        }
    }
    return paths;
}

/// The series of the process that the user wants.
std::vector<SeriesFiles> find(const std::vector<std::filesystem::path>& paths,
                              const Options& options) {
    std::vector<SeriesFiles> series = findSeries(paths);
    std::erase_if(series, [&](const SeriesFiles& files) {
        return options.pid && *options.pid != files.pid;
    });
    if (series.empty()) {
        throw std::runtime_error(fmt::format("no files of process {}", options.pid.value_or(0)));
    }
    return series;
}

uint64_t countBytes(const std::vector<SeriesFiles>& series) {
    return std::accumulate(
            series.begin(), series.end(), uint64_t{0},
            [](uint64_t sum, const SeriesFiles& files) { return sum + files.bytes(); });
}

uint64_t countBytes(const Logs& logs) {
    return std::accumulate(logs.begin(), logs.end(), uint64_t{0},
                           [](uint64_t sum, const auto& log) { return sum + log->files.bytes(); });
}

/// Files that cannot be read are told, and the others go on without them.
void tellProblems(const Logs& logs) {
    size_t unreadable = 0;
    for (const auto& log : logs) {
        for (const std::string& problem : log->files.problems) {
            fmt::print(stderr, "jlog: {}\n", problem);
        }
        if (log->health.records == 0 && log->health.skippedBytes > 0) {
            fmt::print(stderr, "jlog: {}: no record in it\n",
                       log->files.files.front().path.string());
            unreadable++;
        } else if (log->health.records == 0 && !log->files.problems.empty()) {
            unreadable++;
        }
    }
    if (unreadable == logs.size()) {
        throw std::runtime_error("nothing could be read");
    }
}

/// `logcat`: is read if there is one, since it may know when the monotonic clock began.
Logs analyse(const std::vector<std::filesystem::path>& paths, const Options& options,
             std::unique_ptr<Logcat>& logcat) {
    std::vector<SeriesFiles> series = find(paths, options);
    if (options.logcat) {
        logcat = std::make_unique<Logcat>(*options.logcat,
                                          parseStart(series.back().start).value_or(0));
    }
    ProgressBar progress(countBytes(series));
    Logs logs;
    for (SeriesFiles& files : series) {
        const std::optional<int64_t> bootTime = logcat ? logcat->bootTime(files.pid) : std::nullopt;
        logs.push_back(std::make_unique<Analysis>(
                std::move(files), [&](uint64_t bytes) { progress.add(bytes); }, bootTime));
    }
    tellProblems(logs);
    return logs;
}

/// A module that nobody has logged is a mistake: without a word of it, output would be empty.
void checkModule(const Logs& logs, const Selection& selection) {
    std::set<std::string> modules;
    for (const auto& log : logs) {
        for (const ScopeName& name : log->names) {
            if (selection.takesName(name)) {
                return;
            }
            modules.insert(name.module);
        }
    }
    throw std::runtime_error(fmt::format("no scope of module '{}', but of: {}", *selection.module,
                                         fmt::join(modules, ", ")));
}

/// `near`: a time of the logs, for times without a day.
Selection select(const Options& options, int64_t near) {
    Selection selection;
    selection.pid = options.pid;
    selection.tid = options.tid;
    selection.module = options.module;
    selection.level = options.level[0];
    const auto time = [&](const std::string& text, const char* option, int64_t& result) {
        if (text.empty()) {
            return;
        }
        const std::optional<int64_t> parsed = parseTime(text, near);
        if (!parsed) {
            throw std::invalid_argument(fmt::format(
                    "{}: '{}' is not [[YYYY-]MM-DD ]hh:mm[:ss[.ffffff]]", option, text));
        }
        result = *parsed;
    };
    time(options.since, "--since", selection.since);
    time(options.until, "--until", selection.until);
    if (selection.since > selection.until) {
        throw std::invalid_argument("--since is later than --until");
    }
    return selection;
}

int run(const Options& options) {
    if (options.command == Command::RECOVER) {
        return recover(options);
    }
    Output out;
    if (options.command == Command::FOLLOW) {
        return follow(options, out);
    }
    int status = EXIT_FINE;
    std::unique_ptr<Logcat> logcat;
    if (options.command == Command::DIFF) {
        const Logs before = analyse({options.oldPath}, options, logcat);
        const Logs after = analyse({options.newPath}, options, logcat);
        status = diff(before, after, select(options, firstTimeOf(after)), options, out);
        out.close();
        return status;
    }
    if (options.command == Command::EXPORT && options.format == "ndjson") {
        std::vector<SeriesFiles> series = find(options.paths, options);
        ProgressBar progress(countBytes(series));
        const Selection selection = select(options, parseStart(series.front().start).value_or(0));
        return exportNdjson(std::move(series), selection, options,
                            [&](uint64_t bytes) { progress.add(bytes); });
    }
    const bool isCrash = options.command == Command::CRASH;
    const Logs logs = analyse(isCrash ? addBeside(options.paths) : options.paths, options, logcat);
    const Selection selection = select(options, firstTimeOf(logs));
    if (selection.module) {
        checkModule(logs, selection);
    }
    switch (options.command) {
        case Command::REQUESTS:
            status = listRequests(logs, selection, options, out);
            break;
        case Command::SHOW:
            status = options.request ? showRequest(logs, selection, options, out)
                                     : showAround(logs, logcat.get(), selection, options, out);
            break;
        case Command::CRASH:
            status = showCrash(logs, logcat.get(), options, out);
            break;
        case Command::MERGE:
            status = merge(logs, logcat.get(), selection, options, out);
            break;
        case Command::EXPORT: {
            // The files are read once more.
            ProgressBar progress(countBytes(logs));
            for (const auto& log : logs) {
                log->onRead = [&](uint64_t bytes) { progress.add(bytes); };
            }
            status = exportTo(logs, selection, options);
            break;
        }
        default:
            status = report(logs, logcat.get(), selection, options, out);
            break;
    }
    out.close();
    return status;
}

}  // namespace

int64_t firstTimeOf(const Logs& logs) {
    for (const auto& log : logs) {
        if (log->firstTime != kNoTime) {
            return log->wallOf(log->firstTime, 0);
        }
    }
    return 0;
}

}  // namespace JCam::Tool

int main(int argc, char** argv) {
    using namespace JCam::Tool;
    std::signal(SIGPIPE, SIG_IGN);  // so that Output finds out
    try {
        Options options;
        const std::optional<int> status = parseOptions(argc, argv, options);
        return status ? *status : run(options);
    } catch (const std::invalid_argument& error) {
        fmt::print(stderr, "jlog: {} (see jlog --help)\n", error.what());
        return EXIT_USAGE;
    } catch (const std::exception& error) {
        const auto* const system = dynamic_cast<const std::system_error*>(&error);
        if (system != nullptr && system->code() == std::errc::broken_pipe) {
            return EXIT_FINE;  // the reader has seen what it wanted
        }
        fmt::print(stderr, "jlog: {}\n", error.what());
        return EXIT_UNREADABLE;
    }
}
