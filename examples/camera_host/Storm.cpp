#include "Storm.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <new>
#include <random>
#include <thread>

#include <fmt/format.h>

#include "CrashCheck.h"
#include "ExitStatus.h"
#include "jlog/JLogInitializer.h"
#include "LedgerBook.h"
#include "LogFiles.h"
#include "Pipeline.h"
#include "Report.h"
#include "SharedMapping.h"
#include "Witness.h"

namespace CameraHost {

namespace {

/// A child ends within milliseconds; one that takes so long never would.
constexpr std::chrono::seconds kHangBound(5);
constexpr int kMaxDelayUs = 60000;
constexpr uint64_t kReportEvery = 100;
constexpr size_t kMaxNotes = 20;

struct Attack {
    int sig;
    CrashPlace place;
    std::chrono::microseconds delay;
    unsigned int victim;  // index of the pipeline's thread
};

/// Logs until the attack, in the child.
int logAndCrash(const Options& options, const Attack& attack, LedgerBook& ledgers,
                std::atomic<int64_t>& signalledNs) {
    const JCam::Utils::JLog::JLogInitializer initializer(options.mask);
    const Witness witness;
    Pipeline pipeline(ledgers, options.threads, 0);
    pipeline.start();
    std::this_thread::sleep_for(attack.delay);
    const Ledger& victim = ledgers.all()[1 + attack.victim];
    while (victim.tid() == 0) {
        std::this_thread::yield();
    }
    crash(attack.sig, attack.place, victim.tid(), ledgers, signalledNs);
}

class Storm {
  public:
    explicit Storm(const Options& options) : mOptions(options), mFolder(options.folder) {}

    void strike();
    StormFindings finish();

  private:
    Attack draw();
    void judge(const Attack& attack, const ChildEnd& end, const LedgerBook& ledgers);
    int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(mRandom); }

    const Options& mOptions;
    const std::filesystem::path mFolder;
    std::mt19937 mRandom{std::random_device{}()};
    StormFindings mFindings;
};

Attack Storm::draw() {
    constexpr std::array kSignals{SIGABRT, SIGSEGV, SIGBUS};
    return {kSignals[static_cast<size_t>(pick(kSignals.size()))],
            static_cast<CrashPlace>(pick(kCrashPlaces)),
            std::chrono::microseconds(pick(kMaxDelayUs)),
            static_cast<unsigned int>(pick(static_cast<int>(mOptions.threads)))};
}

void Storm::strike() {
    const Attack attack = draw();
    LedgerBook ledgers(Pipeline::ledgersFor(mOptions.threads));
    const SharedMapping shared(sizeof(std::atomic<int64_t>));
    auto& signalledNs = *new (shared.get()) std::atomic<int64_t>(0);
    const ChildEnd end = runInChild(
            [&] { return logAndCrash(mOptions, attack, ledgers, signalledNs); }, kHangBound);
    mFindings.children++;
    mFindings.bySignal[attack.sig]++;
    mFindings.byPlace[static_cast<size_t>(attack.place)]++;
    if (!end.hung && signalledNs != 0) {
        mFindings.signalToEndNs.push_back(end.endedNs - signalledNs);
    }
    judge(attack, end, ledgers);
}

void Storm::judge(const Attack& attack, const ChildEnd& end, const LedgerBook& ledgers) {
    const std::vector<LogFile> files = findLogFiles(mFolder, end.pid);
    const CrashFindings found = reconcileCrash(end.pid, attack.sig, files, ledgers);
    mFindings.hangs += end.hung ? 1U : 0U;
    const bool isWrongEnd = !end.hung && end.sig != attack.sig;
    mFindings.wrongEnds += isWrongEnd ? 1U : 0U;
    mFindings.crashFiles += found.crashFiles;
    mFindings.badFirstLines += found.badFirstLines;
    mFindings.torn += found.findings.torn;
    mFindings.duplicated += found.findings.duplicated;
    mFindings.lost += found.findings.lost;
    mFindings.onlyInCrashFile += found.onlyInCrashFile;
    for (const Ledger& ledger : ledgers.all()) {
        mFindings.returned += ledger.markedEvents();
    }
    if (!end.hung && !isWrongEnd && found.isClean()) {
        for (const LogFile& file : files) {
            std::filesystem::remove(file.path);
        }
        return;
    }
    mFindings.unclean++;
    if (mFindings.notes.size() >= kMaxNotes) {
        return;
    }
    mFindings.notes.push_back(fmt::format("child {}, {} to {}: {}", end.pid, signalName(attack.sig),
                                          placeName(attack.place), describeEnd(end)));
    mFindings.notes.insert(mFindings.notes.end(), found.findings.notes.begin(),
                           found.findings.notes.end());
}

StormFindings Storm::finish() {
    std::sort(mFindings.signalToEndNs.begin(), mFindings.signalToEndNs.end());
    return std::move(mFindings);
}

}  // namespace

StormFindings runStorm(const Options& options) {
    Storm storm(options);
    for (uint64_t child = 1; child <= options.storm; child++) {
        storm.strike();
        if (child % kReportEvery == 0) {
            printStormProgress(child);
        }
    }
    return storm.finish();
}

}  // namespace CameraHost
