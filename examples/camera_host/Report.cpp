#include "Report.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

#include <fmt/core.h>
#include <fmt/ranges.h>

#include "jlog/JLogger.h"
#include "reader/MappedFile.h"

namespace CameraHost {

using namespace JCam::Reader;
using namespace JCam::Utils::JLog;

namespace {

constexpr size_t kTailLines = 5;
constexpr size_t kHeadLines = 3;

double toMs(int64_t ns) {
    return static_cast<double>(ns) / 1e6;
}

/// The back ends that a mode drives: one at most, and the trace.
std::string describeMode(unsigned int mode) {
    const bool hasTrace = (mode & MODE_TRACE) != 0;
    const char* const log = (mode & MODE_FILE_ALONE) != 0   ? "own files"
                            : (mode & MODE_FILE_MERGE) != 0 ? "ULog merge"
                            : (mode & MODE_DEFAULT) != 0    ? "Android log"
                                                            : "no log";
    return fmt::format("{}{}", log, hasTrace ? " and trace" : "");
}

/// The ids in hexadecimal, or a dash.
std::string describeIds(const std::vector<uint32_t>& ids) {
    std::string text;
    for (const uint32_t id : ids) {
        text += fmt::format("{}0x{:x}", text.empty() ? "" : " ", id);
    }
    return text.empty() ? "-" : text;
}

/// `node` is how far an attempt came.
std::string describeNode(const Reached& reached, const std::string& node) {
    return reached.node == NodeUse::ATTEMPTED   ? node
           : reached.node == NodeUse::HELD_BACK ? "held back, 30 s"
                                                : "-";
}

std::string describeStats(const Reached& reached) {
    return !reached.atoms.empty() ? fmt::format("atom {}", fmt::join(reached.atoms, " "))
           : reached.statsMissed  ? "service not running"
                                  : "-";
}

void printStepRow(const std::string& what, const Reached& reached, const std::string& node) {
    fmt::print("{:30} {:11} {:22} {:38} {}\n", what,
               reached.result != 0 ? fmt::format("0x{:x}", reached.result) : "-",
               describeIds(reached.raised), describeNode(reached, node), describeStats(reached));
}

void printCounts(std::string_view what, const EventCounts& counts, std::string_view when = "") {
    fmt::print("{} enter {}, exit {}, details {}{}\n", what, counts.enters, counts.exits,
               counts.details, when);
}

template <typename Lines>
void printIndented(const Lines& lines) {
    for (const auto& line : lines) {
        fmt::print("    {}\n", line);
    }
}

void printTimes(std::string_view what, const std::vector<int64_t>& sortedNs) {
    if (!sortedNs.empty()) {
        fmt::print("{:17} median {:.1f} ms, longest {:.1f} ms\n", what,
                   toMs(sortedNs[sortedNs.size() / 2]), toMs(sortedNs.back()));
    }
}

void printEnds(const StormFindings& found) {
    fmt::print("{:28} {:>8} {:>12} {:>10} {:>22}\n", "end", "children", "calls back", "lost",
               "in the black box alone");
    for (size_t i = 0; i < found.byEnd.size(); i++) {
        if (const EndSum& sum = found.byEnd[i]; sum.children > 0) {
            fmt::print("{:28} {:>8} {:>12} {:>10} {:>22}\n", traitsOf(static_cast<End>(i)).name,
                       sum.children, sum.returned, sum.lost, sum.onlyInBlackBox);
        }
    }
}

/// The first `count` lines of a text, or fewer if it has fewer.
std::vector<std::string_view> firstLines(std::string_view text, size_t count) {
    std::vector<std::string_view> lines;
    while (!text.empty() && lines.size() < count) {
        lines.push_back(text.substr(0, text.find('\n')));
        text.remove_prefix(std::min(text.size(), lines.back().size() + 1));
    }
    return lines;
}

/// Likewise the last ones.
std::vector<std::string_view> lastLines(std::string_view text, size_t count) {
    text.remove_suffix(text.ends_with('\n') ? 1 : 0);
    size_t begin = text.size();
    for (size_t lines = 0; lines < count && begin != std::string_view::npos; lines++) {
        begin = begin == 0 ? begin - 1 : text.rfind('\n', begin - 1);
    }
    return firstLines(text.substr(begin + 1), count);  // npos + 1 is 0
}

}  // namespace

void printStart(const Options& options, unsigned int mode) {
    fmt::print("process {}, mode 0x{:02x} ({}), mask 0x{:x}, details level {}\n", getpid(), mode,
               describeMode(mode), options.mask, JLogger::getDetailsLevel());
    if (!options.replayFile.empty()) {
        return;
    }
    if (options.rate == 0) {
        fmt::print("{} threads as fast as they can for {} s\n", options.threads, options.seconds);
    } else {
        fmt::print("{} threads, {} requests/s each, for {} s\n", options.threads, options.rate,
                   options.seconds);
    }
}

void printScript(const ReplayScript& script) {
    fmt::print("replay: messages {}, threads {}\n", script.messages, script.threads.size());
    if (script.fatal > 0) {
        fmt::print("replay: {} messages of level F, replayed as errors\n", script.fatal);
    }
    if (script.unreadable > 0) {
        fmt::print(
                "replay: {} lines cannot be read and are left out{}\n", script.unreadable,
                script.unreadable > script.firstUnreadable.size() ? "; the first of them:" : ":");
    }
    for (const ReplayScript::UnreadableLine& line : script.firstUnreadable) {
        fmt::print("    line {}: {}\n", line.number, line.reason);
    }
}

void printProgress(std::chrono::duration<double> elapsed, const LedgerBook& ledgers) {
    fmt::print("{:6.1f} s {:12} events\n", elapsed.count(), ledgers.counts().events());
    static_cast<void>(std::fflush(stdout));  // a pipe is to see it now
}

void printLogged(const LedgerBook& ledgers, std::string_view timedWhat) {
    printCounts("events logged ", ledgers.counts());
    uint64_t calls = 0;
    uint64_t ns = 0;
    for (const Ledger& ledger : ledgers.all()) {
        calls += ledger.timedCalls();
        ns += ledger.timedNs();
    }
    if (calls == 0) {
        fmt::print("ns per call    not measured: no timed call was enabled\n");
        return;
    }
    fmt::print("ns per call    {} (mean wall time over {} calls on the logging threads: {})\n",
               (ns + calls / 2) / calls, calls, timedWhat);
}

void printFindings(const Findings& findings, const LedgerBook& ledgers, RunEnd end) {
    if (end != RunEnd::STOP) {
        printCounts("calls returned", ledgers.marked(), ", before the signal");
    }
    if (findings.crashFiles > 0) {
        fmt::print("records        {} in the crash file, {} of them in no other\n",
                   findings.inCrashFile, findings.onlyInCrashFile);
    }
    if (findings.onlyInBlackBox > 0) {
        fmt::print("records        {} in the black box alone\n", findings.onlyInBlackBox);
    }
    if (findings.crashFiles != findings.expectedCrashFiles || findings.badFirstLines > 0) {
        fmt::print("crash files    {}, of which {} do not begin as they should\n",
                   findings.crashFiles, findings.badFirstLines);
    }
    printCounts("lines found   ", findings.found);
    fmt::print("check          lost {}, duplicated {}, torn {}\n", findings.lost,
               findings.duplicated, findings.torn);
    printIndented(findings.notes);
    if (end == RunEnd::CRASH) {
        fmt::print("               (threads log on while the crash file is written)\n");
    }
}

void printFiles(const std::vector<LogFile>& files) {
    for (const LogFile& file : files) {
        const std::string_view kind = file.isBlackBox ? "black box"
                                      : file.isCrash  ? "crash file"
                                                      : "file";
        fmt::print("{:14} {}  {} bytes\n", kind, file.path.string(),
                   std::filesystem::file_size(file.path));
    }
    if (files.empty()) {
        return;
    }
    const MappedFile mapped(files.back().path);
    if (files.back().isCrash) {
        printIndented(firstLines(mapped.bytes(), kHeadLines));
        fmt::print("    ...\n");
        printIndented(lastLines(mapped.bytes(), kHeadLines));
    } else {
        fmt::print("last lines of {}:\n", files.back().path.filename().string());
        printIndented(lastLines(mapped.bytes(), kTailLines));
    }
}

void printChildEnd(const ChildEnd& end, int64_t signalToEndNs) {
    fmt::print("process {}  {}", end.pid, describeEnd(end));
    if (signalToEndNs >= 0) {
        fmt::print(", {:.1f} ms after the signal", toMs(signalToEndNs));
    }
    fmt::print("\n");
}

void printStormProgress(uint64_t children) {
    fmt::print("{:6} children have ended\n", children);
    static_cast<void>(std::fflush(stdout));
}

void printStormFindings(const StormFindings& found, const Options& options) {
    if (options.ends) {
        printEnds(found);
    }
    fmt::print("children          {}", found.children);
    if (!options.ends) {
        for (const auto& [sig, children] : found.bySignal) {
            fmt::print(", {} by {}", children, signalName(sig));
        }
        for (size_t place = 0; place < found.byPlace.size(); place++) {
            fmt::print("\n                  {} in {}", found.byPlace[place],
                       placeName(static_cast<CrashPlace>(place)));
        }
    }
    fmt::print("\n");
    const Findings& sum = found.sum;
    fmt::print("crash files       {}\n", sum.crashFiles);
    fmt::print("hangs             {}\n", found.hangs);
    fmt::print("other ends        {} (not as was to be)\n", found.wrongEnds);
    fmt::print("bad first lines   {}\n", sum.badFirstLines);
    fmt::print("torn lines        {}\n", sum.torn);
    fmt::print("duplicated lines  {}\n", sum.duplicated);
    fmt::print("lost records      {} of {} whose call had returned\n", sum.lost, found.returned);
    fmt::print("                  {} were in the crash file alone\n", sum.onlyInCrashFile);
    if (!options.blackBox.empty()) {
        fmt::print("                  {} were in the file of a black box alone\n",
                   sum.onlyInBlackBox);
        fmt::print("recoveries        {}, {} failed; {} more were killed\n",
                   found.recoveryNs.size() + found.failedRecoveries, found.failedRecoveries,
                   found.killedRecoveries);
        printTimes("start to recovery", found.recoveryNs);
    }
    printTimes("signal to end", found.signalToEndNs);
    fmt::print("check             {}\n", found.isClean() ? "passed" : "failed");
    printIndented(found.notes);
}

void printExceptionStep(std::string_view what) {
    fmt::print("-- {}\n", what);
    static_cast<void>(std::fflush(stdout));  // the step's lines on the Android log come next
}

void printExceptionSteps(const std::vector<ExceptionStep>& steps) {
    fmt::print("\n{:30} {:11} {:22} {:38} {}\n", "step", "result", "log collector", "kernel node",
               "stats service");
    size_t unexpected = 0;
    for (const ExceptionStep& step : steps) {
        printStepRow(step.what, step.reached, step.node);
        if (step.reached != step.expected) {
            unexpected++;
            printStepRow("    expected was", step.expected, "attempted");
        }
    }
    fmt::print("check          {} steps, {} not as expected\n", steps.size(), unexpected);
}

}  // namespace CameraHost
