#include "CrashCheck.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include <fmt/format.h>

#include "Crash.h"
#include "RecordLine.h"
#include "TextCursor.h"

namespace CameraHost {

namespace {

enum class Kind : uint8_t { NORMAL = 1, CRASH = 2 };

/// Where each of the numbers from 1 on was found.
class Places {
  public:
    /// False if it was found in a file of this kind before.
    bool insert(uint64_t number, Kind kind) {
        if (number >= mKinds.size()) {
            mKinds.resize(number + 1);
        }
        const auto bit = static_cast<uint8_t>(kind);
        const bool isNew = (mKinds[number] & bit) == 0;
        mKinds[number] |= bit;
        return isNew;
    }
    [[nodiscard]] bool contains(uint64_t number) const {
        return number < mKinds.size() && mKinds[number] != 0;
    }
    [[nodiscard]] uint64_t countOnlyIn(Kind kind) const {
        return static_cast<uint64_t>(
                std::count(mKinds.begin(), mKinds.end(), static_cast<uint8_t>(kind)));
    }

  private:
    std::vector<uint8_t> mKinds;
};

class CrashReconciler {
  public:
    CrashReconciler(pid_t pid, int sig, const LedgerBook& ledgers);
    void visit(const FileLine& line);
    CrashFindings finish();

  private:
    struct Thread {
        const Ledger& ledger;
        Places texts;
        uint64_t enters = 0;
        uint64_t exits = 0;
    };

    void visitFirstLine(const FileLine& line);
    void visitScope(const FileLine& line, const RecordLine::Scope& scope, Thread& thread,
                    Kind kind);
    void visitDetails(const FileLine& line, const RecordLine& record, Thread& thread, Kind kind);
    void noteMissingSerials();
    void noteLost(uint64_t count, std::string_view what, const Thread& thread);

    const pid_t mPid;
    const int mSignal;
    uint64_t mMaxSerial = 0;  // with a record of every thread whose call had not returned
    Places mSerials;
    std::unordered_map<int, Thread> mThreads;  // by thread id
    CrashFindings mResult;
};

CrashReconciler::CrashReconciler(pid_t pid, int sig, const LedgerBook& ledgers)
        : mPid(pid), mSignal(sig) {
    for (const Ledger& ledger : ledgers.all()) {
        mThreads.emplace(ledger.tid(), Thread{ledger, {}});
        mMaxSerial += ledger.enters() + ledger.exits() + 1;
    }
}

void CrashReconciler::visit(const FileLine& line) {
    const Kind kind = isCrashFile(line.file) ? Kind::CRASH : Kind::NORMAL;
    if (kind == Kind::CRASH && line.number == 1) {
        visitFirstLine(line);
        return;
    }
    if (isRotationMarker(line)) {
        return;
    }
    Findings& findings = mResult.findings;
    std::string_view reason;
    const std::optional<RecordLine> record = parseRecordLine(mPid, line, reason);
    if (!record.has_value()) {
        noteTorn(findings, line, reason);
        return;
    }
    const auto thread = mThreads.find(record->tid);
    if (thread == mThreads.end()) {
        noteTorn(findings, line, "a thread id that never logged");
        return;
    }
    mResult.inCrashFile += kind == Kind::CRASH ? 1U : 0U;
    if (record->scope.has_value()) {
        visitScope(line, *record->scope, thread->second, kind);
    } else {
        visitDetails(line, *record, thread->second, kind);
    }
}

void CrashReconciler::visitFirstLine(const FileLine& line) {
    mResult.crashFiles++;
    TextCursor cursor(line.text);
    uint64_t address = 0;
    if (!line.complete || !cursor.take(signalName(mSignal)) || !cursor.take(" : addr = 0x") ||
        !cursor.takeNumber(address, 16) || !cursor.rest().empty()) {
        mResult.badFirstLines++;
        noteLine(mResult.findings, line, "not the first line of a crash file");
    }
}

void CrashReconciler::visitScope(const FileLine& line, const RecordLine::Scope& scope,
                                 Thread& thread, Kind kind) {
    if (scope.serial == 0 || scope.serial > mMaxSerial) {
        noteTorn(mResult.findings, line, "a serial that was never given");
        return;
    }
    const bool isKnown = mSerials.contains(scope.serial);
    if (!mSerials.insert(scope.serial, kind)) {
        mResult.findings.duplicated++;
        noteLine(mResult.findings, line, "a serial for the second time");
    } else if (!isKnown) {
        (scope.sign == '+' ? thread.enters : thread.exits)++;
        (scope.sign == '+' ? mResult.findings.enters : mResult.findings.exits)++;
    }
}

void CrashReconciler::visitDetails(const FileLine& line, const RecordLine& record, Thread& thread,
                                   Kind kind) {
    uint32_t threadNumber = 0;
    uint64_t number = 0;
    if (!parseSeq(record.text, threadNumber, number) || threadNumber != thread.ledger.number() ||
        number == 0 || number > thread.ledger.details() + 1) {
        noteTorn(mResult.findings, line, "not a text that this thread logged");
        return;
    }
    const bool isKnown = thread.texts.contains(number);
    if (!thread.texts.insert(number, kind)) {
        mResult.findings.duplicated++;
        noteLine(mResult.findings, line, "a text for the second time");
    } else if (!isKnown) {
        mResult.findings.details++;
    }
}

void CrashReconciler::noteLost(uint64_t count, std::string_view what, const Thread& thread) {
    if (count > 0) {
        mResult.findings.lost += count;
        addNote(mResult.findings, fmt::format("{} {} of thread T{} are missing", count, what,
                                              thread.ledger.number()));
    }
}

void CrashReconciler::noteMissingSerials() {
    uint64_t returned = 0;
    for (const auto& [tid, thread] : mThreads) {
        returned += thread.ledger.markedEnters() + thread.ledger.markedExits();
    }
    // So many calls had returned, and so the serials up to this number had been given. A thread
    // that was in a call may have had one of them.
    uint64_t missing = 0;
    for (uint64_t serial = 1; serial <= returned; serial++) {
        missing += mSerials.contains(serial) ? 0U : 1U;
    }
    if (missing > mThreads.size()) {
        mResult.findings.lost += missing - mThreads.size();
        addNote(mResult.findings,
                fmt::format("{} serials up to {} are missing", missing, returned));
    }
}

CrashFindings CrashReconciler::finish() {
    for (const auto& [tid, thread] : mThreads) {
        uint64_t missing = 0;
        for (uint64_t number = 1; number <= thread.ledger.markedDetails(); number++) {
            missing += thread.texts.contains(number) ? 0U : 1U;
        }
        noteLost(missing, "texts", thread);
        const uint64_t enters = thread.ledger.markedEnters();
        const uint64_t exits = thread.ledger.markedExits();
        noteLost(enters - std::min(enters, thread.enters), "enter lines", thread);
        noteLost(exits - std::min(exits, thread.exits), "exit lines", thread);
        mResult.onlyInCrashFile += thread.texts.countOnlyIn(Kind::CRASH);
    }
    noteMissingSerials();
    mResult.onlyInCrashFile += mSerials.countOnlyIn(Kind::CRASH);
    return std::move(mResult);
}

}  // namespace

bool isCrashFile(const LogFile& file) {
    return file.path.filename().string().find("_NE_") != std::string::npos;
}

CrashFindings reconcileCrash(pid_t pid, int sig, const std::vector<LogFile>& files,
                             const LedgerBook& ledgers) {
    CrashReconciler reconciler(pid, sig, ledgers);
    forEachLine(files, [&reconciler](const FileLine& line) { reconciler.visit(line); });
    return reconciler.finish();
}

}  // namespace CameraHost
