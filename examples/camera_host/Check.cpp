#include "Check.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include <fmt/format.h>

#include "Crash.h"
#include "reader/Series.h"
#include "reader/Text.h"

namespace CameraHost {

namespace {

using JCam::Reader::Line;
using JCam::Reader::LogFile;
using JCam::Reader::Scope;

constexpr size_t kMaxNotes = 5;
constexpr size_t kMaxQuote = 200;  // a line that is damaged is quoted with the one before it

enum class Kind : uint8_t { NORMAL = 1, CRASH = 2, BLACK_BOX = 4 };

Kind kindOf(const LogFile& file) {
    return file.isBlackBox ? Kind::BLACK_BOX : file.isCrash ? Kind::CRASH : Kind::NORMAL;
}

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
    /// Those of the numbers up to `last` that were not found.
    [[nodiscard]] std::vector<uint64_t> missingUpTo(uint64_t last) const {
        std::vector<uint64_t> missing;
        for (uint64_t number = 1; number <= last; number++) {
            if (!contains(number)) {
                missing.push_back(number);
            }
        }
        return missing;
    }
    [[nodiscard]] uint64_t countOnlyIn(Kind kind) const {
        return static_cast<uint64_t>(
                std::count(mKinds.begin(), mKinds.end(), static_cast<uint8_t>(kind)));
    }

  private:
    std::vector<uint8_t> mKinds;
};

/// Reads "T<thread>:<number>" behind the last " seq=" of a text.
bool parseSeq(std::string_view text, uint32_t& thread, uint64_t& number) {
    using namespace JCam::Reader;
    text.remove_prefix(std::min(text.rfind(" seq="), text.size()));
    return take(text, " seq=T") && takeNumber(text, thread) && take(text, ":") &&
           takeNumber(text, number) && text.empty();
}

class FileCheck {
  public:
    FileCheck(const std::vector<LogFile>& files, const LedgerBook& ledgers, RunEnd end, int sig);
    Findings run();

  private:
    struct Thread {
        const Ledger& ledger;
        Places texts;
        EventCounts found;
    };

    /// The last record of a file that does not end with a newline.
    struct Tail {
        std::string note;
        std::string bytes;
    };

    void visit();
    void visitTorn();
    [[nodiscard]] bool isFirstLine() const;
    void visitLine(const Line& line);
    void visitScope(const Scope& scope, Thread& thread);
    void visitDetails(const Line& line, Thread& thread);
    /// Whether the current record is the first of its number.
    bool insert(Places& places, uint64_t number);
    uint64_t countLostTexts(const Thread& thread);
    uint64_t countLostScopes();

    void note(std::string text);
    [[nodiscard]] std::string describeRecord(std::string_view what) const;
    void noteRecord(std::string_view what) { note(describeRecord(what)); }
    void noteTorn(std::string_view what) {
        mFindings.torn++;
        noteRecord(what);
    }

    const LedgerBook& mLedgers;
    const RunEnd mEnd;
    const int mSignal;
    const uint64_t mInCall;  // records of a thread whose call had not returned, at most
    uint64_t mMaxSerial = 0;
    Places mSerials;
    std::unordered_map<int, Thread> mThreads;  // by thread id
    uint64_t mContentSum = 0;
    JCam::Reader::Series mSeries;
    const JCam::Reader::Record* mRecord = nullptr;  // the current one
    const LogFile* mFile = nullptr;                 // its file...
    Kind mKind = Kind::NORMAL;                      // ... and what that is
    std::vector<Tail> mTails;                       // that no black-box file has shown whole
    Findings mFindings;
};

FileCheck::FileCheck(const std::vector<LogFile>& files, const LedgerBook& ledgers, RunEnd end,
                     int sig)
        : mLedgers(ledgers),
          mEnd(end),
          mSignal(sig),
          mInCall(end != RunEnd::STOP ? 1 : 0),
          mSeries(files) {
    for (const Ledger& ledger : ledgers.all()) {
        mThreads.emplace(ledger.tid(), Thread{ledger, {}, {}});
        mMaxSerial += ledger.counts().enters + ledger.counts().exits + mInCall;
    }
    for (const LogFile& file : files) {
        const Kind kind = kindOf(file);
        mFindings.crashFiles += kind == Kind::CRASH ? 1U : 0U;
        // A recovery that was killed may have made a file and no more.
        const bool mayBeEmpty = kind == Kind::BLACK_BOX || end == RunEnd::TWO_CRASHES;
        const bool hasFirstLine =
                kind != Kind::NORMAL && !(mayBeEmpty && std::filesystem::is_empty(file.path));
        mFindings.badFirstLines += hasFirstLine ? 1U : 0U;
    }
    if (end == RunEnd::CRASH || (end == RunEnd::TWO_CRASHES && mFindings.crashFiles > 0)) {
        mFindings.expectedCrashFiles = 1;
    }
}

void FileCheck::note(std::string text) {
    if (mFindings.notes.size() < kMaxNotes) {
        mFindings.notes.push_back(std::move(text));
    }
}

std::string FileCheck::describeRecord(std::string_view what) const {
    std::string_view quote = mRecord->bytes;
    quote.remove_suffix(quote.ends_with('\n') ? 1 : 0);
    return fmt::format("{}:{}: {}: '{}'", mFile->path.filename().string(), mRecord->lineNumber,
                       what, quote.substr(0, kMaxQuote));
}

void FileCheck::visit() {
    if (const LogFile* const file = &mSeries.file(); file != mFile) {
        mFile = file;
        mKind = kindOf(*file);
    }
    if (mKind == Kind::BLACK_BOX) {
        std::erase_if(mTails,
                      [&](const Tail& tail) { return mRecord->bytes.starts_with(tail.bytes); });
    }
    if (mRecord->isTorn) {
        visitTorn();
    } else if (mRecord->line) {
        visitLine(*mRecord->line);
    } else if (isFirstLine()) {
        mFindings.badFirstLines--;
    } else {
        noteTorn(mRecord->crash ? "another signal" : mRecord->skipped);
    }
}

void FileCheck::visitTorn() {
    constexpr std::string_view kWhat = "no newline at the end";
    if (mKind == Kind::NORMAL || (mKind == Kind::CRASH && mEnd == RunEnd::TWO_CRASHES)) {
        mTails.push_back({describeRecord(kWhat), std::string(mRecord->bytes)});
    } else {
        noteTorn(kWhat);
    }
}

bool FileCheck::isFirstLine() const {
    const auto& cause = mRecord->crash;
    return mKind == Kind::CRASH ? cause && cause->signal == signalName(mSignal)
                                : mKind == Kind::BLACK_BOX && cause && cause->box &&
                                          cause->box->pid == mFile->pid;
}

void FileCheck::visitLine(const Line& line) {
    const auto thread = mThreads.find(line.origin.tid);
    if (thread == mThreads.end()) {
        noteTorn("a thread id that never logged");
        return;
    }
    mFindings.inCrashFile += mKind == Kind::CRASH ? 1U : 0U;
    if (line.scope) {
        visitScope(*line.scope, thread->second);
    } else {
        visitDetails(line, thread->second);
    }
}

bool FileCheck::insert(Places& places, uint64_t number) {
    const bool isFirst = !places.contains(number);
    if (!places.insert(number, mKind)) {
        mFindings.duplicated++;
        noteRecord("for the second time");
    }
    return isFirst;
}

void FileCheck::visitScope(const Scope& scope, Thread& thread) {
    if (scope.serial == 0 || scope.serial > mMaxSerial) {
        noteTorn("a serial that was never given");
    } else if (insert(mSerials, scope.serial)) {
        (scope.sign == '+' ? thread.found.enters : thread.found.exits)++;
        mContentSum += scopeHash(scope.sign, scope.moduleId, scope.name, scope.requestNo);
    }
}

void FileCheck::visitDetails(const Line& line, Thread& thread) {
    uint32_t threadNumber = 0;
    uint64_t number = 0;
    if (!parseSeq(line.text, threadNumber, number) || threadNumber != thread.ledger.number() ||
        number == 0 || number > thread.ledger.counts().details + mInCall) {
        noteTorn("not a text that this thread logged");
    } else if (insert(thread.texts, number)) {
        thread.found.details++;
        mContentSum += detailsHash(line.level, line.tag, line.text);
    }
}

uint64_t FileCheck::countLostTexts(const Thread& thread) {
    const std::vector<uint64_t> missing = thread.texts.missingUpTo(thread.ledger.marked().details);
    if (!missing.empty()) {
        note(fmt::format("{} texts are missing, the first is seq=T{}:{}", missing.size(),
                         thread.ledger.number(), missing.front()));
    }
    return missing.size();
}

uint64_t FileCheck::countLostScopes() {
    // So many calls had returned, and so the serials up to this number had been given. A thread
    // that was in a call may have had one of them.
    const EventCounts returned = mLedgers.marked();
    const std::vector<uint64_t> missing = mSerials.missingUpTo(returned.enters + returned.exits);
    const uint64_t inCalls = mInCall * mThreads.size();
    const uint64_t bySerial = missing.size() - std::min<uint64_t>(missing.size(), inCalls);
    if (bySerial > 0) {
        note(fmt::format("{} enter or exit lines are missing, the first is #{}", bySerial,
                         missing.front()));
    }
    uint64_t byThread = 0;
    for (const auto& [tid, thread] : mThreads) {
        const EventCounts& marked = thread.ledger.marked();
        const uint64_t lost = marked.enters - std::min(marked.enters, thread.found.enters) +
                              marked.exits - std::min(marked.exits, thread.found.exits);
        if (lost > 0) {
            note(fmt::format("{} enter or exit lines of thread T{} are missing", lost,
                             thread.ledger.number()));
        }
        byThread += lost;
    }
    return std::max(bySerial, byThread);
}

Findings FileCheck::run() {
    while ((mRecord = mSeries.next())) {
        visit();
    }
    for (const Tail& tail : mTails) {
        mFindings.torn++;
        note(tail.note);
    }
    mFindings.lost = countLostScopes();
    mFindings.onlyInCrashFile = mSerials.countOnlyIn(Kind::CRASH);
    mFindings.onlyInBlackBox = mSerials.countOnlyIn(Kind::BLACK_BOX);
    uint64_t loggedSum = 0;
    for (const auto& [tid, thread] : mThreads) {
        mFindings.found += thread.found;
        mFindings.lost += countLostTexts(thread);
        mFindings.onlyInCrashFile += thread.texts.countOnlyIn(Kind::CRASH);
        mFindings.onlyInBlackBox += thread.texts.countOnlyIn(Kind::BLACK_BOX);
        loggedSum += thread.ledger.contentSum();
    }
    // With a record missing the sums differ anyway.
    if (mEnd == RunEnd::STOP && mFindings.lost == 0 && mContentSum != loggedSum) {
        mFindings.torn++;
        note("all records are there, but the content of one or more has changed");
    }
    return std::move(mFindings);
}

}  // namespace

Findings& Findings::operator+=(const Findings& other) {
    found += other.found;
    lost += other.lost;
    duplicated += other.duplicated;
    torn += other.torn;
    crashFiles += other.crashFiles;
    expectedCrashFiles += other.expectedCrashFiles;
    badFirstLines += other.badFirstLines;
    inCrashFile += other.inCrashFile;
    onlyInCrashFile += other.onlyInCrashFile;
    onlyInBlackBox += other.onlyInBlackBox;
    return *this;
}

Findings checkFiles(std::vector<LogFile> files, const LedgerBook& ledgers, RunEnd end, int sig) {
    // Black boxes last, by then all tails are known.
    std::stable_sort(files.begin(), files.end(),
                     [](const LogFile& a, const LogFile& b) { return kindOf(a) < kindOf(b); });
    return FileCheck(files, ledgers, end, sig).run();
}

}  // namespace CameraHost
