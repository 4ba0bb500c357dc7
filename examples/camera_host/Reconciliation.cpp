#include "Reconciliation.h"

#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>

#include <fmt/format.h>

#include "RecordLine.h"

namespace CameraHost {

namespace {

constexpr size_t kMaxNotes = 5;
constexpr size_t kMaxQuote = 100;

}  // namespace

void addNote(Findings& findings, std::string note) {
    if (findings.notes.size() < kMaxNotes) {
        findings.notes.push_back(std::move(note));
    }
}

void noteLine(Findings& findings, const FileLine& line, std::string_view what) {
    if (findings.notes.size() < kMaxNotes) {
        addNote(findings, fmt::format("{}:{}: {}: '{}'", line.file.path.filename().string(),
                                      line.number, what, line.text.substr(0, kMaxQuote)));
    }
}

void noteTorn(Findings& findings, const FileLine& line, std::string_view what) {
    findings.torn++;
    noteLine(findings, line, what);
}

namespace {

/// Parses a line of this process; one that does not parse is counted as torn.
std::optional<RecordLine> parseLine(Findings& findings, pid_t pid, const FileLine& line) {
    std::string_view reason;
    std::optional<RecordLine> parsed = parseRecordLine(pid, line, reason);
    if (!parsed.has_value()) {
        noteTorn(findings, line, reason);
    }
    return parsed;
}

/// Which of the numbers 1..n have been seen.
class NumberSet {
  public:
    explicit NumberSet(uint64_t n) : mSeen(n, false), mMissing(n) {}

    [[nodiscard]] bool contains(uint64_t number) const {
        return number >= 1 && number <= mSeen.size();
    }
    /// False if it was seen before.
    bool insert(uint64_t number) {
        if (mSeen[number - 1]) {
            return false;
        }
        mSeen[number - 1] = true;
        mMissing--;
        return true;
    }
    [[nodiscard]] uint64_t missing() const { return mMissing; }
    /// The first number that is missing, of which there is one.
    [[nodiscard]] uint64_t firstMissing() const {
        uint64_t i = 0;
        while (mSeen[i]) {
            i++;
        }
        return i + 1;
    }

  private:
    std::vector<bool> mSeen;
    uint64_t mMissing;
};

class PipelineReconciler {
  public:
    PipelineReconciler(pid_t pid, const LedgerBook& ledgers);
    void visit(const FileLine& line);
    Findings finish();

  private:
    struct Thread {
        uint32_t number;
        NumberSet texts;
    };

    void visitScope(const FileLine& line, const RecordLine::Scope& scope);
    void visitDetails(const FileLine& line, const RecordLine& parsed, Thread& thread);

    const pid_t mPid;
    NumberSet mSerials;
    std::unordered_map<int, Thread> mThreads;  // by thread id
    uint64_t mLoggedSum = 0;                   // of all contents
    uint64_t mFoundSum = 0;
    Findings mFindings;
};

uint64_t countScopes(const LedgerBook& ledgers) {
    uint64_t scopes = 0;
    for (const Ledger& ledger : ledgers.all()) {
        scopes += ledger.enters() + ledger.exits();
    }
    return scopes;
}

PipelineReconciler::PipelineReconciler(pid_t pid, const LedgerBook& ledgers)
        : mPid(pid), mSerials(countScopes(ledgers)) {
    for (const Ledger& ledger : ledgers.all()) {
        mThreads.emplace(ledger.tid(), Thread{ledger.number(), NumberSet(ledger.details())});
        mLoggedSum += ledger.contentSum();
    }
}

void PipelineReconciler::visit(const FileLine& line) {
    if (isRotationMarker(line)) {
        return;
    }
    const std::optional<RecordLine> parsed = parseLine(mFindings, mPid, line);
    if (!parsed.has_value()) {
        return;
    }
    const auto thread = mThreads.find(parsed->tid);
    if (thread == mThreads.end()) {
        noteTorn(mFindings, line, "a thread id that never logged");
    } else if (parsed->scope.has_value()) {
        visitScope(line, *parsed->scope);
    } else {
        visitDetails(line, *parsed, thread->second);
    }
}

void PipelineReconciler::visitScope(const FileLine& line, const RecordLine::Scope& scope) {
    if (!mSerials.contains(scope.serial)) {
        noteTorn(mFindings, line, "not an enter or exit line that was logged");
        return;
    }
    (scope.sign == '+' ? mFindings.enters : mFindings.exits)++;
    if (!mSerials.insert(scope.serial)) {
        mFindings.duplicated++;
        noteLine(mFindings, line, "a serial for the second time");
        return;
    }
    mFoundSum += scopeHash(scope.sign, scope.moduleId, scope.name, scope.requestNo);
}

void PipelineReconciler::visitDetails(const FileLine& line, const RecordLine& parsed,
                                      Thread& thread) {
    uint32_t threadNumber = 0;
    uint64_t number = 0;
    if (!parseSeq(parsed.text, threadNumber, number) || threadNumber != thread.number ||
        !thread.texts.contains(number)) {
        noteTorn(mFindings, line, "not a text that this thread logged");
        return;
    }
    mFindings.details++;
    if (!thread.texts.insert(number)) {
        mFindings.duplicated++;
        noteLine(mFindings, line, "a text for the second time");
        return;
    }
    mFoundSum += detailsHash(parsed.level, parsed.tag, parsed.text);
}

Findings PipelineReconciler::finish() {
    if (mSerials.missing() != 0) {
        mFindings.lost += mSerials.missing();
        addNote(mFindings, fmt::format("{} enter or exit lines are missing, the first is #{}",
                                       mSerials.missing(), mSerials.firstMissing()));
    }
    for (const auto& [tid, thread] : mThreads) {
        if (thread.texts.missing() != 0) {
            mFindings.lost += thread.texts.missing();
            addNote(mFindings, fmt::format("{} texts are missing, the first is seq=T{}:{}",
                                           thread.texts.missing(), thread.number,
                                           thread.texts.firstMissing()));
        }
    }
    // With a record missing the sums differ anyway.
    if (mFindings.lost == 0 && mFoundSum != mLoggedSum) {
        mFindings.torn++;
        addNote(mFindings, "all records are there, but the content of one or more has changed");
    }
    return std::move(mFindings);
}

}  // namespace

Findings reconcilePipeline(pid_t pid, const std::vector<LogFile>& files,
                           const LedgerBook& ledgers) {
    PipelineReconciler reconciler(pid, ledgers);
    forEachLine(files, [&reconciler](const FileLine& line) { reconciler.visit(line); });
    return reconciler.finish();
}

Findings reconcileReplay(pid_t pid, const std::vector<LogFile>& files,
                         const std::vector<uint64_t>& logged) {
    struct Counts {
        uint64_t logged = 0;
        uint64_t found = 0;
    };
    Findings findings;
    std::unordered_map<uint64_t, Counts> messages;
    for (const uint64_t hash : logged) {
        messages[hash].logged++;
    }
    forEachLine(files, [&](const FileLine& line) {
        if (isRotationMarker(line)) {
            return;
        }
        const std::optional<RecordLine> parsed = parseLine(findings, pid, line);
        if (!parsed.has_value()) {
            return;
        }
        const auto message = messages.find(detailsHash(parsed->level, parsed->tag, parsed->text));
        if (message == messages.end()) {
            noteTorn(findings, line, "a message that was not logged");
            return;
        }
        findings.details++;
        if (++message->second.found > message->second.logged) {
            findings.duplicated++;
            noteLine(findings, line, "a message more often than it was logged");
        }
    });
    for (const auto& [hash, counts] : messages) {
        findings.lost += counts.logged > counts.found ? counts.logged - counts.found : 0;
    }
    return findings;
}

}  // namespace CameraHost
