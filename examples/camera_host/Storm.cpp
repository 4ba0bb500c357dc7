#include "Storm.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <random>
#include <thread>

#include <fmt/format.h>

#include "ExitStatus.h"
#include "jlog/JLogInitializer.h"
#include "LedgerBook.h"
#include "Pipeline.h"
#include "reader/LogFile.h"
#include "Recovery.h"
#include "Report.h"
#include "Witness.h"

namespace CameraHost {

using namespace JCam::Reader;

namespace {

/// A child ends within milliseconds; one that takes so long never would.
constexpr std::chrono::seconds kHangBound(5);
constexpr int kMaxDelayUs = 60000;
constexpr int kMaxGapUs = 400;  // between two faults
/// How far threads may be ahead of the last flush where no crash file saves what is in memory: some
/// 1.5 MB. The black box has 4 MiB, and at full speed callers would outrun the flush thread.
constexpr uint64_t kMaxAhead = 20000;
/// A recovery that is to be killed is killed within so long.
constexpr int kMaxRecoveryUs = 8000;
constexpr int kMaxKills = 3;
constexpr uint64_t kReportEvery = 100;
constexpr size_t kMaxNotes = 20;

struct Attack {
    End end;
    int sig;
    CrashPlace place;
    std::chrono::microseconds delay;
    std::chrono::microseconds gap;
    unsigned int victim;  // index of the pipeline's thread
};

/// Logs until the attack, in the child.
int logAndEnd(const Options& options, const Attack& attack, const LedgerBook& ledgers) {
    const JCam::Utils::JLog::JLogInitializer initializer(options.mask);
    const Witness witness;
    const bool isCrash = attack.end == End::CRASH;
    Pipeline pipeline(ledgers, 0, isCrash ? 0 : kMaxAhead);
    pipeline.start();
    if (isCrash) {
        std::this_thread::sleep_for(attack.delay);
    } else {
        pipeline.flushFor(attack.end == End::KILL ? kHangBound : attack.delay);
    }
    const Ledger& victim = ledgers.all()[1 + attack.victim];
    while (victim.tid() == 0) {
        std::this_thread::yield();
    }
    if (isCrash) {
        crash(attack.sig, attack.place, victim.tid(), ledgers);
    }
    endProcess(attack.end, attack.sig, attack.place, victim.tid(), attack.gap);
}

void removeFiles(const std::vector<LogFile>& files) {
    for (const LogFile& file : files) {
        std::filesystem::remove(file.path);
    }
}

class Storm {
  public:
    explicit Storm(const Options& options) : mOptions(options) {}

    void strike();
    StormFindings finish();

  private:
    Attack draw();
    /// Returns false if a box is left.
    bool recover();
    void judge(const Attack& attack, const ChildEnd& end, const LedgerBook& ledgers,
               bool isRecovered);
    int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(mRandom); }

    const Options& mOptions;
    std::mt19937 mRandom{std::random_device{}()};
    StormFindings mFindings;
};

Attack Storm::draw() {
    constexpr std::array kSignals{SIGABRT, SIGSEGV, SIGBUS};
    const End end = mOptions.ends ? static_cast<End>(1 + pick(kEnds - 1)) : End::CRASH;
    const bool isCrash = end == End::CRASH || end == End::TWO_FAULTS;
    return {end,
            isCrash ? kSignals[static_cast<size_t>(pick(kSignals.size()))] : traitsOf(end).sig,
            static_cast<CrashPlace>(pick(kCrashPlaces)),
            std::chrono::microseconds(pick(kMaxDelayUs)),
            std::chrono::microseconds(pick(kMaxGapUs)),
            static_cast<unsigned int>(pick(static_cast<int>(mOptions.threads)))};
}

void Storm::strike() {
    const Attack attack = draw();
    const LedgerBook ledgers(mOptions.threads + 1);
    const bool isKill = attack.end == End::KILL;
    ChildEnd end = runInChild([&] { return logAndEnd(mOptions, attack, ledgers); },
                              isKill ? attack.delay : kHangBound);
    end.hung = end.hung && !isKill;
    if (attack.end != End::CRASH) {
        ledgers.mark();
    }
    const bool isRecovered = mOptions.blackBox.empty() || recover();
    mFindings.children++;
    mFindings.bySignal[attack.sig]++;
    mFindings.byPlace[static_cast<size_t>(attack.place)]++;
    if (attack.end == End::CRASH && !end.hung && ledgers.markedNs() != 0) {
        mFindings.signalToEndNs.push_back(end.endedNs - ledgers.markedNs());
    }
    judge(attack, end, ledgers, isRecovered);
}

bool Storm::recover() {
    for (int kills = pick(2) == 0 ? 0 : 1 + pick(kMaxKills); kills > 0; kills--) {
        const std::chrono::microseconds bound(pick(kMaxRecoveryUs));
        mFindings.killedRecoveries += recoverBoxes(mOptions, bound).hung ? 1U : 0U;
    }
    const Recovery recovery = recoverBoxes(mOptions, kRecoveryBound);
    if (recovery.isDone) {
        mFindings.recoveryNs.push_back(recovery.ns);
        return true;
    }
    mFindings.failedRecoveries++;
    // Beside the files of its process, and out of the way of the next recovery.
    for (const std::filesystem::path& box : listBoxes(mOptions.blackBox)) {
        std::filesystem::copy(box, mOptions.folder / box.filename(),
                              std::filesystem::copy_options::overwrite_existing);
        std::filesystem::remove(box);
    }
    return false;
}

void Storm::judge(const Attack& attack, const ChildEnd& end, const LedgerBook& ledgers,
                  bool isRecovered) {
    const std::vector<LogFile> files = listLogFiles(mOptions.folder, end.pid);
    const Findings found = checkFiles(files, ledgers, traitsOf(attack.end).runEnd, attack.sig);
    mFindings.hangs += end.hung ? 1U : 0U;
    const bool isWrongEnd = !end.hung && (end.sig != attack.sig || end.exitStatus != EXIT_FINE);
    mFindings.wrongEnds += isWrongEnd ? 1U : 0U;
    mFindings.sum += found;
    const uint64_t returned = ledgers.marked().events();
    mFindings.returned += returned;
    EndSum& sum = mFindings.byEnd[static_cast<size_t>(attack.end)];
    sum.children++;
    sum.returned += returned;
    sum.lost += found.lost;
    sum.onlyInBlackBox += found.onlyInBlackBox;
    const bool isClean = !end.hung && !isWrongEnd && isRecovered && found.isClean();
    mFindings.unclean += isClean ? 0U : 1U;
    if (isClean || mFindings.notes.size() >= kMaxNotes) {
        removeFiles(files);
        return;
    }
    const std::string_view what =
            attack.end == End::CRASH ? signalName(attack.sig) : traitsOf(attack.end).name;
    mFindings.notes.push_back(fmt::format("child {}, {} to {}: {}{}", end.pid, what,
                                          placeName(attack.place), describeEnd(end),
                                          isRecovered ? "" : "; its box is left"));
    mFindings.notes.insert(mFindings.notes.end(), found.notes.begin(), found.notes.end());
}

StormFindings Storm::finish() {
    std::sort(mFindings.signalToEndNs.begin(), mFindings.signalToEndNs.end());
    std::sort(mFindings.recoveryNs.begin(), mFindings.recoveryNs.end());
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
