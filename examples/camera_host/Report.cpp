#include "Report.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <numeric>
#include <span>
#include <string>

#include <fmt/core.h>
#include <fmt/ranges.h>

#include "jlog/JLogger.h"

namespace CameraHost {

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

/// The sum of a count over all threads.
uint64_t sumOf(const LedgerBook& ledgers, uint64_t (Ledger::*count)() const) {
    const std::span<const Ledger> all = ledgers.all();
    return std::accumulate(
            all.begin(), all.end(), uint64_t{0},
            [count](uint64_t sum, const Ledger& ledger) { return sum + (ledger.*count)(); });
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
    fmt::print("{:6.1f} s {:12} events\n", elapsed.count(), sumOf(ledgers, &Ledger::events));
    static_cast<void>(std::fflush(stdout));  // a pipe is to see it now
}

void printLogged(const LedgerBook& ledgers, std::string_view timedWhat) {
    fmt::print("events logged  enter {}, exit {}, details {}\n", sumOf(ledgers, &Ledger::enters),
               sumOf(ledgers, &Ledger::exits), sumOf(ledgers, &Ledger::details));
    const uint64_t calls = sumOf(ledgers, &Ledger::timedCalls);
    if (calls == 0) {
        fmt::print("ns per call    not measured: no timed call was enabled\n");
        return;
    }
    const auto ns = static_cast<double>(sumOf(ledgers, &Ledger::timedNs));
    fmt::print("ns per call    {:.0f} (mean wall time over {} calls on the logging threads: {})\n",
               ns / static_cast<double>(calls), calls, timedWhat);
}

void printFindings(const Findings& findings) {
    fmt::print("lines found    enter {}, exit {}, details {}\n", findings.enters, findings.exits,
               findings.details);
    fmt::print("check          lost {}, duplicated {}, torn {}\n", findings.lost,
               findings.duplicated, findings.torn);
    for (const std::string& note : findings.notes) {
        fmt::print("    {}\n", note);
    }
}

void printFiles(const std::vector<LogFile>& files) {
    for (const LogFile& file : files) {
        fmt::print("file           {}  {} bytes\n", file.path.string(), file.bytes);
    }
    if (files.empty()) {
        return;
    }
    fmt::print("last lines of {}:\n", files.back().path.filename().string());
    for (const std::string& line : lastLines(files.back(), kTailLines)) {
        fmt::print("    {}\n", line);
    }
}

void printChildEnd(const ChildEnd& end, int64_t signalToEndNs) {
    fmt::print("process {}  {}", end.pid, describeEnd(end));
    if (signalToEndNs >= 0) {
        fmt::print(", {:.1f} ms after the signal", toMs(signalToEndNs));
    }
    fmt::print("\n");
}

void printCrashFindings(const LedgerBook& ledgers, const CrashFindings& found) {
    fmt::print("calls returned enter {}, exit {}, details {}, before the signal\n",
               sumOf(ledgers, &Ledger::markedEnters), sumOf(ledgers, &Ledger::markedExits),
               sumOf(ledgers, &Ledger::markedDetails));
    fmt::print("records        {} in the crash file, {} of them in no other\n", found.inCrashFile,
               found.onlyInCrashFile);
    if (found.crashFiles != 1 || found.badFirstLines > 0) {
        fmt::print("crash files    {}, of which {} do not begin as they should\n", found.crashFiles,
                   found.badFirstLines);
    }
    printFindings(found.findings);
    fmt::print("               (threads log on while the crash file is written)\n");
}

void printCrashFiles(const std::vector<LogFile>& files) {
    for (const LogFile& file : files) {
        fmt::print("{:14} {}  {} bytes\n", isCrashFile(file) ? "crash file" : "file",
                   file.path.string(), file.bytes);
    }
    if (files.empty() || !isCrashFile(files.back())) {
        return;
    }
    for (const std::string& line : firstLines(files.back(), kHeadLines)) {
        fmt::print("    {}\n", line);
    }
    fmt::print("    ...\n");
    for (const std::string& line : lastLines(files.back(), kHeadLines)) {
        fmt::print("    {}\n", line);
    }
}

void printStormProgress(uint64_t children) {
    fmt::print("{:6} children have crashed\n", children);
    static_cast<void>(std::fflush(stdout));
}

void printStormFindings(const StormFindings& found) {
    fmt::print("children          {}", found.children);
    for (const auto& [sig, children] : found.bySignal) {
        fmt::print(", {} by {}", children, signalName(sig));
    }
    fmt::print("\n");
    for (size_t place = 0; place < found.byPlace.size(); place++) {
        fmt::print("                  {} in {}\n", found.byPlace[place],
                   placeName(static_cast<CrashPlace>(place)));
    }
    fmt::print("crash files       {}\n", found.crashFiles);
    fmt::print("hangs             {}\n", found.hangs);
    fmt::print("other ends        {} (not by the signal that was sent)\n", found.wrongEnds);
    fmt::print("bad first lines   {}\n", found.badFirstLines);
    fmt::print("torn lines        {}\n", found.torn);
    fmt::print("duplicated lines  {}\n", found.duplicated);
    fmt::print("lost records      {} of {} whose call had returned\n", found.lost, found.returned);
    fmt::print("                  {} were in the crash file alone\n", found.onlyInCrashFile);
    if (!found.signalToEndNs.empty()) {
        fmt::print("signal to end     median {:.1f} ms, longest {:.1f} ms\n",
                   toMs(found.signalToEndNs[found.signalToEndNs.size() / 2]),
                   toMs(found.signalToEndNs.back()));
    }
    fmt::print("check             {}\n", found.isClean() ? "passed" : "failed");
    for (const std::string& note : found.notes) {
        fmt::print("    {}\n", note);
    }
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
