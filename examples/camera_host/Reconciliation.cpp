#include "Reconciliation.h"

#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>

#include <fmt/format.h>

#include "TextCursor.h"
#include "ThreadtimeLine.h"

namespace CameraHost {

namespace {

constexpr size_t kMaxNotes = 5;
constexpr size_t kMaxQuote = 100;

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

/// The line that a rotation writes ahead of everything else into its new file.
bool isRotationMarker(const FileLine& line) {
    return line.number == 1 && line.complete && line.text == "-- CONTINUED --";
}

/// Parses a line of this process; one that does not parse is counted as torn.
std::optional<ThreadtimeLine> parseLine(Findings& findings, pid_t pid, const FileLine& line) {
    // "MM-DD hh:mm:ss.uuuuuu ": our files always have microseconds.
    constexpr size_t kDateBytes = 21;
    std::string_view reason;
    const std::optional<ThreadtimeLine> parsed = parseThreadtimeLine(line.text, reason);
    if (!line.complete) {
        reason = "no newline at the end";
    } else if (parsed.has_value() && line.text[kDateBytes] != ' ') {
        reason = "no microseconds";
    } else if (parsed.has_value() && parsed->pid != pid) {
        reason = "another process id";
    }
    if (!reason.empty()) {
        noteTorn(findings, line, reason);
        return std::nullopt;
    }
    return parsed;
}

/// The text of an enter or exit line: "R AppRequest:REQ M[NAME:ID] +  :SCOPE #SERIAL".
struct ScopeText {
    uint32_t requestNo;
    uint32_t moduleId;
    char sign;
    std::string_view name;
    uint32_t serial;
};

std::optional<ScopeText> parseScopeText(std::string_view text) {
    ScopeText result{};
    TextCursor cursor(text);
    if (!cursor.take("R AppRequest:") || !cursor.takeNumber(result.requestNo) ||
        !cursor.take(" M[")) {
        return std::nullopt;
    }
    TextCursor module(cursor.rest());
    if (!module.take(module.rest().substr(0, module.rest().find(':'))) || !module.take(":") ||
        !module.takeNumber(result.moduleId, 16) || !module.take("] ")) {
        return std::nullopt;
    }
    result.sign = module.take("+  :") ? '+' : '-';
    if (result.sign == '-' && !module.take("-  :")) {
        return std::nullopt;
    }
    const size_t hash = module.rest().rfind(" #");
    if (hash == std::string_view::npos) {
        return std::nullopt;
    }
    result.name = module.rest().substr(0, hash);
    TextCursor serial(module.rest().substr(hash + 2));
    if (!serial.takeNumber(result.serial) || !serial.rest().empty()) {
        return std::nullopt;
    }
    return result;
}

/// Reads "T<thread>:<number>" behind the " seq=" of a text. Two of them are two texts in one line.
bool parseSeq(std::string_view text, uint32_t& thread, uint64_t& number) {
    constexpr std::string_view kSeq = " seq=";
    const size_t start = text.find(kSeq);
    if (start == std::string_view::npos || start != text.rfind(kSeq)) {
        return false;
    }
    TextCursor cursor(text.substr(start + kSeq.size()));
    return cursor.take("T") && cursor.takeNumber(thread) && cursor.take(":") &&
           cursor.takeNumber(number) && cursor.rest().empty();
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
    PipelineReconciler(pid_t pid, const std::deque<Ledger>& ledgers);
    void visit(const FileLine& line);
    Findings finish();

  private:
    struct Thread {
        uint32_t number;
        NumberSet texts;
    };

    void visitScope(const FileLine& line, const ThreadtimeLine& parsed);
    void visitDetails(const FileLine& line, const ThreadtimeLine& parsed, Thread& thread);

    const pid_t mPid;
    NumberSet mSerials;
    std::unordered_map<int, Thread> mThreads;  // by thread id
    uint64_t mLoggedSum = 0;                   // of all contents
    uint64_t mFoundSum = 0;
    Findings mFindings;
};

uint64_t countScopes(const std::deque<Ledger>& ledgers) {
    uint64_t scopes = 0;
    for (const Ledger& ledger : ledgers) {
        scopes += ledger.enters() + ledger.exits();
    }
    return scopes;
}

PipelineReconciler::PipelineReconciler(pid_t pid, const std::deque<Ledger>& ledgers)
        : mPid(pid), mSerials(countScopes(ledgers)) {
    for (const Ledger& ledger : ledgers) {
        mThreads.emplace(ledger.tid(), Thread{ledger.number(), NumberSet(ledger.details())});
        mLoggedSum += ledger.contentSum();
    }
}

void PipelineReconciler::visit(const FileLine& line) {
    if (isRotationMarker(line)) {
        return;
    }
    const std::optional<ThreadtimeLine> parsed = parseLine(mFindings, mPid, line);
    if (!parsed.has_value()) {
        return;
    }
    const auto thread = mThreads.find(parsed->tid);
    if (thread == mThreads.end()) {
        noteTorn(mFindings, line, "a thread id that never logged");
    } else if (parsed->tag == "JLog") {
        visitScope(line, *parsed);
    } else {
        visitDetails(line, *parsed, thread->second);
    }
}

void PipelineReconciler::visitScope(const FileLine& line, const ThreadtimeLine& parsed) {
    const std::optional<ScopeText> text = parseScopeText(parsed.text);
    if (!text.has_value() || parsed.level != 'D' || !mSerials.contains(text->serial)) {
        noteTorn(mFindings, line, "not an enter or exit line that was logged");
        return;
    }
    (text->sign == '+' ? mFindings.enters : mFindings.exits)++;
    if (!mSerials.insert(text->serial)) {
        mFindings.duplicated++;
        noteLine(mFindings, line, "a serial for the second time");
        return;
    }
    mFoundSum += scopeHash(text->sign, text->moduleId, text->name, text->requestNo);
}

void PipelineReconciler::visitDetails(const FileLine& line, const ThreadtimeLine& parsed,
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
                           const std::deque<Ledger>& ledgers) {
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
        const std::optional<ThreadtimeLine> parsed = parseLine(findings, pid, line);
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
