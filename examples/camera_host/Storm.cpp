#include "Storm.h"

#include <algorithm>
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
#include "Report.h"
#include "Witness.h"

namespace CameraHost {

using namespace JCam::Reader;

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
int logAndCrash(const Options& options, const Attack& attack, const LedgerBook& ledgers) {
    const JCam::Utils::JLog::JLogInitializer initializer(options.mask);
    const Witness witness;
    Pipeline pipeline(ledgers, 0);
    pipeline.start();
    std::this_thread::sleep_for(attack.delay);
    const Ledger& victim = ledgers.all()[1 + attack.victim];
    while (victim.tid() == 0) {
        std::this_thread::yield();
    }
    crash(attack.sig, attack.place, victim.tid(), ledgers);
}

class Storm {
  public:
    explicit Storm(const Options& options) : mOptions(options) {}

    void strike();
    StormFindings finish();

  private:
    Attack draw();
    void judge(const Attack& attack, const ChildEnd& end, const LedgerBook& ledgers);
    int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(mRandom); }

    const Options& mOptions;
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
    const LedgerBook ledgers(mOptions.threads + 1);
    const ChildEnd end =
            runInChild([&] { return logAndCrash(mOptions, attack, ledgers); }, kHangBound);
    mFindings.children++;
    mFindings.bySignal[attack.sig]++;
    mFindings.byPlace[static_cast<size_t>(attack.place)]++;
    if (!end.hung && ledgers.markedNs() != 0) {
        mFindings.signalToEndNs.push_back(end.endedNs - ledgers.markedNs());
    }
    judge(attack, end, ledgers);
}

void Storm::judge(const Attack& attack, const ChildEnd& end, const LedgerBook& ledgers) {
    const std::vector<LogFile> files = listLogFiles(mOptions.folder, end.pid);
    const Findings found = checkFiles(files, ledgers, attack.sig);
    mFindings.hangs += end.hung ? 1U : 0U;
    const bool isWrongEnd = !end.hung && end.sig != attack.sig;
    mFindings.wrongEnds += isWrongEnd ? 1U : 0U;
    mFindings.sum += found;
    mFindings.returned += ledgers.marked().events();
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
    mFindings.notes.insert(mFindings.notes.end(), found.notes.begin(), found.notes.end());
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
