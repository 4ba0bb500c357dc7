#include "tools/jlog/analysis/Analysis.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <unordered_map>
#include <utility>

#include "tools/jlog/analysis/Pairing.h"
#include "tools/jlog/analysis/RecordScan.h"
#include "tools/jlog/analysis/WallClock.h"

namespace JCam::Tool {

namespace {

/// The numbers of all parsers, as those of the series.
class Translation {
  public:
    /// Appends to the tables what blocks have and they have not.
    Translation(std::vector<Thread>& threads, std::vector<ScopeName>& names,
                std::vector<std::string>& tags)
            : mThreads(threads), mNames(names), mTags(tags) {
        for (const Thread& thread : threads) {
            mThreadNumbers.emplace(thread.tid, mThreadNumbers.size());
        }
        for (const ScopeName& name : names) {
            mNameNumbers.emplace(keyOf(name), mNameNumbers.size());
        }
        for (const std::string& tag : tags) {
            mTagNumbers.emplace(tag, mTagNumbers.size());
        }
    }

    struct Tables {
        std::vector<uint32_t> threads;
        std::vector<uint32_t> scopes;
        std::vector<uint32_t> tags;
    };

    /// Those of the parser of the block, with what is new in it.
    const Tables& of(const Block& block) {
        if (block.parser >= mTables.size()) {
            mTables.resize(block.parser + 1);
        }
        Tables& tables = mTables[block.parser];
        for (const int tid : block.discovered.tids) {
            tables.threads.push_back(
                    numberOf(mThreadNumbers, tid, [&] { mThreads.emplace_back().tid = tid; }));
        }
        for (const std::string& scope : block.discovered.scopes) {
            ScopeName name = parse(scope);
            std::string key = keyOf(name);
            tables.scopes.push_back(numberOf(mNameNumbers, std::move(key),
                                             [&] { mNames.push_back(std::move(name)); }));
        }
        for (const std::string& tag : block.discovered.tags) {
            tables.tags.push_back(numberOf(mTagNumbers, tag, [&] { mTags.push_back(tag); }));
        }
        return tables;
    }

  private:
    template <typename Map, typename Key, typename Add>
    static uint32_t numberOf(Map& map, Key key, const Add& add) {
        const auto [found, isNew] =
                map.try_emplace(std::move(key), static_cast<uint32_t>(map.size()));
        if (isNew) {
            add();
        }
        return found->second;
    }

    /// "Preview:4] +  :IspNode", which a parser has seen to be of that form.
    static ScopeName parse(std::string_view scope) {
        constexpr size_t kBehindId = sizeof("] +  :") - 1;
        ScopeName name;
        const size_t colon = scope.find(':');
        const size_t bracket = scope.find(']', colon);
        name.module = scope.substr(0, colon);
        name.moduleId = static_cast<uint32_t>(
                std::stoul(std::string(scope.substr(colon + 1, bracket - colon - 1)), nullptr, 16));
        name.name = scope.substr(bracket + kBehindId);
        return name;
    }

    static std::string keyOf(const ScopeName& name) {
        return name.module + ':' + std::to_string(name.moduleId) + ':' + name.name;
    }

    std::vector<Thread>& mThreads;
    std::vector<ScopeName>& mNames;
    std::vector<std::string>& mTags;
    std::unordered_map<int, uint32_t> mThreadNumbers;
    std::unordered_map<std::string, uint32_t> mNameNumbers;
    std::unordered_map<std::string, uint32_t> mTagNumbers;
    std::vector<Tables> mTables;  // of each parser
};

std::string_view bytesOf(const Block& block, const RawRecord& record) {
    return block.bytes.substr(record.offset, record.size);
}

std::string_view textOf(const Block& block, const RawRecord& record) {
    std::string_view text = bytesOf(block, record).substr(record.textOffset);
    text.remove_suffix(text.ends_with('\n') ? 1 : 0);
    return text;
}

/// Counts the lines of the files of a series, and makes what can be said of a record without those
/// before it.
class Lines {
  public:
    explicit Lines(size_t files) : mNext(files, 1) {}

    /// `block` is the next one.
    void begin(const Block& block) {
        uint64_t& next = mNext[block.file];
        next = (block.line != 0 ? block.line : next) + (block.hasMark ? 1 : 0);
        mReason = block.reasons.begin();
    }
    /// `record` is the next one of the block.
    Entry entryOf(const Block& block, const RawRecord& record) {
        Entry entry;
        entry.kind = record.kind;
        entry.level = record.level;
        entry.isTorn = record.isTorn;
        entry.request = record.request;
        entry.serial = record.serial;
        entry.lines = record.lines;
        entry.wall = entry.time = kNoTime;
        entry.bytes = bytesOf(block, record);
        entry.text = record.kind == Kind::SKIPPED ? *mReason++ : textOf(block, record);
        entry.file = block.file;
        entry.lineNumber = mNext[block.file];
        entry.offset = block.offset + record.offset;
        mNext[block.file] += record.lines;
        return entry;
    }

  private:
    std::vector<uint64_t> mNext;  // line of each file
    std::vector<std::string_view>::const_iterator mReason;
};

/// Finds warnings and errors that differ in their numbers.
class Complaints {
  public:
    explicit Complaints(std::vector<Complaint>& complaints) : mComplaints(complaints) {}

    void add(char level, uint32_t tag, std::string_view text, int64_t wall) {
        mKey.assign(1, level).append(std::to_string(tag)).append(1, ':');
        for (const char c : text) {
            if (c < '0' || c > '9') {
                mKey += c;
            } else if (mKey.back() != '0') {
                mKey += '0';
            }
        }
        auto found = mFound.find(mKey);
        if (found == mFound.end()) {
            // What has no pattern must not fill the memory.
            constexpr size_t kMaxPatterns = 10000;
            if (mFound.size() == kMaxPatterns) {
                return;
            }
            found = mFound.emplace(mKey, mComplaints.size()).first;
            mComplaints.push_back({level, tag, 0, std::string(text), wall});
        }
        mComplaints[found->second].count++;
    }

  private:
    std::vector<Complaint>& mComplaints;
    std::unordered_map<std::string, size_t> mFound;
    std::string mKey;  // here to keep its memory
};

WallClock makeClock(const Analysis& log) {
    const bool isWhole = !log.files.files.empty() && log.files.files.front().index <= 1;
    return {log.start, log.bootTime, isWhole};
}

/// The pass over all records that fills an analysis.
class FirstPass {
  public:
    FirstPass(Analysis& log, const Analysis::Stream* visitor)
            : mLog(log),
              mVisitor(visitor),
              mLines(log.files.files.size()),
              mTranslation(log.threads, log.names, log.tags),
              mPairing(log.scopes, log.names),
              mComplaints(log.complaints),
              mClock(makeClock(log)) {}

    void visit(Block& block) {
        if (!block.problem.empty()) {
            addProblem(mLog.files.files[block.file].path.string() + ": " + block.problem);
        }
        const Translation::Tables& tables = mTranslation.of(block);
        mLines.begin(block);
        for (const RawRecord& record : block.records) {
            uint32_t scope = kNone;
            if (record.kind == Kind::ENTER || record.kind == Kind::EXIT) {
                scope = visitScope(record, tables);
            } else if (record.kind == Kind::DETAILS) {
                scope = visitDetails(block, record, tables);
            } else if (record.kind == Kind::SIGNAL) {
                crashOf(block.file).cause = textOf(block, record);
            } else {
                mLog.health.skippedBytes += record.size;
            }
            mLog.health.torn += record.isTorn ? 1 : 0;
            if (record.thread != kNone) {
                mThread->lastRecord = {block.file, record.size, block.offset + record.offset};
                mLog.health.continuations += std::max(record.lines, 1U) - 1;
                mLog.health.records++;
            }
            if (mVisitor != nullptr) {
                tell(block, record, tables, scope);
            }
        }
        if (mLog.files.files[block.file].isCrash) {
            Crash& crash = crashOf(block.file);
            crash.ordinal = mLog.events;
            crash.time = mLog.lastTime;
        }
    }

    void finish() {
        mLog.isMonotonic = mClock.isMonotonic();
        mLog.unclosed = mPairing.listUnclosed();
        // Of a crash file that has nothing of its own there is no block.
        for (uint32_t file = 0; file < mLog.files.files.size(); file++) {
            if (mLog.files.files[file].isCrash && !hasCrash(file)) {
                Crash& crash = crashOf(file);
                crash.ordinal = mLog.events;
                crash.time = mLog.lastTime;
            }
        }
        std::sort(mLog.crashes.begin(), mLog.crashes.end(),
                  [](const Crash& a, const Crash& b) { return a.file < b.file; });
        if (mVisitor != nullptr && mVisitor->onScope) {
            for (const uint32_t scope : mLog.unclosed) {
                mVisitor->onScope(mLog, mLog.scopes[scope]);
            }
        }
    }

  private:
    void tell(const Block& block, const RawRecord& record, const Translation::Tables& tables,
              uint32_t scope) {
        if (mVisitor->onRecord) {
            Entry entry = mLines.entryOf(block, record);
            if (record.thread != kNone) {
                entry.thread = tables.threads[record.thread];
                entry.name = record.kind == Kind::DETAILS ? tables.tags[record.name]
                                                          : tables.scopes[record.name];
                entry.wall = mWall;
                entry.time = mThread->lastTime;
            }
            mVisitor->onRecord(mLog, entry, scope == kNone ? nullptr : &mLog.scopes[scope]);
        }
        if (record.kind == Kind::EXIT) {
            if (mVisitor->onScope) {
                mVisitor->onScope(mLog, mLog.scopes[scope]);
            }
            mLog.scopes[scope] = {};
            mPairing.recycle(scope);
        }
    }

    /// Each block of a file has the same.
    void addProblem(std::string problem) {
        if (mLog.files.problems.empty() || mLog.files.problems.back() != problem) {
            mLog.files.problems.push_back(std::move(problem));
        }
    }

    [[nodiscard]] bool hasCrash(uint32_t file) const {
        return std::any_of(mLog.crashes.begin(), mLog.crashes.end(),
                           [&](const Crash& crash) { return crash.file == file; });
    }

    /// Parts of crash files may alternate.
    Crash& crashOf(uint32_t file) {
        const auto found = std::find_if(mLog.crashes.rbegin(), mLog.crashes.rend(),
                                        [&](const Crash& crash) { return crash.file == file; });
        if (found != mLog.crashes.rend()) {
            return *found;
        }
        mLog.crashes.emplace_back().file = file;
        return mLog.crashes.back();
    }

    /// `isGap`: serials are missing in front of the record.
    int64_t timeOf(const RawRecord& record, const Translation::Tables& tables, bool isGap) {
        mWall = mClock.wallOf(record.date, record.microseconds);
        mThread = &mLog.threads[tables.threads[record.thread]];
        int64_t time = mWall - mOffset;
        if (mLog.lastTime == kNoTime) [[unlikely]] {
            mLog.firstTime = mLog.lastTime = time;
        }
        if (wentBack(time)) [[unlikely]] {
            time = step();
        } else if (time > mLog.lastTime) {
            // Nothing but a clock that was set, or a device that slept, keeps scopes open for so
            // long, if no record is missing.
            constexpr int64_t kMaxSilence = 600000000;
            if (time - mLog.lastTime > kMaxSilence && mPairing.openCount() > 0 && !isGap)
                    [[unlikely]] {
                time = step();
            }
            mLog.lastTime = time;
        }
        if (mThread->lastTime == kNoTime) [[unlikely]] {
            mThread->firstTime = time;
        }
        mThread->lastTime = time;
        mThread->records++;
        return time;
    }

    [[nodiscard]] bool wentBack(int64_t time) const {
        // A signal handler's record may stand in front of the one that it interrupted.
        constexpr int64_t kTolerance = 10000;
        // A thread may be stopped between its look at the clock and its place in the file.
        constexpr int64_t kOtherTolerance = 2000000;
        return time < mLog.lastTime - kTolerance &&
               (time < mLog.lastTime - kOtherTolerance ||
                (mThread->lastTime != kNoTime && time < mThread->lastTime - kTolerance));
    }

    /// The clock was set: time goes on from the last record.
    int64_t step() {
        mOffset = mWall - mLog.lastTime;
        mLog.steps.push_back({mLog.health.records, mLog.events, mLog.lastTime, mOffset});
        return mLog.lastTime;
    }

    /// Records are missing between the last scope event and this one: what was taken since for a
    /// clock that was set forward was their time.
    void takeBackSteps() {
        while (!mLog.steps.empty() && mLog.steps.back().ordinal == mLog.events) {
            const size_t count = mLog.steps.size();
            const int64_t before = count > 1 ? mLog.steps[count - 2].offset : 0;
            if (mLog.steps.back().offset < before) {
                break;
            }
            mOffset = before;
            mLog.steps.pop_back();
        }
    }

    uint32_t visitScope(const RawRecord& record, const Translation::Tables& tables) {
        const bool isGap = checkSerial(record.serial);
        if (isGap) [[unlikely]] {
            takeBackSteps();
        }
        const int64_t time = timeOf(record, tables, isGap);
        const Pairing::Event event{tables.threads[record.thread], tables.scopes[record.name],
                                   record.request, mLog.events++, time};
        if (record.kind == Kind::ENTER) {
            mThread->scopes++;
            return mPairing.enter(event);
        }
        return mPairing.exit(event);
    }

    uint32_t visitDetails(const Block& block, const RawRecord& record,
                          const Translation::Tables& tables) {
        timeOf(record, tables, false);
        const uint32_t scope = mPairing.innermost(tables.threads[record.thread]);
        if (scope != kNone) {
            mLog.names[mLog.scopes[scope].name].details++;
        }
        constexpr uint32_t kMaxText = 1023;  // characters that the logger keeps of a text
        if (record.size - record.textOffset > kMaxText) {
            mLog.health.cutTexts++;
        }
        if (record.level == 'W' || record.level == 'E' || record.level == 'F') {
            mComplaints.add(record.level, tables.tags[record.name], textOf(block, record), mWall);
        }
        return scope;
    }

    /// Whether serials are missing in front of this one.
    bool checkSerial(uint32_t serial) {
        const uint32_t ahead = serial - mExpected;
        bool isGap = false;
        if (ahead != 0 || mLog.runs.empty()) [[unlikely]] {
            isGap = startRun(serial, ahead);
        }
        mExpected = serial + 1;
        return isGap;
    }

    bool startRun(uint32_t serial, uint32_t ahead) {
        uint32_t lost = 0;
        if (!mLog.runs.empty()) {
            // A line that looks like a scope, but is none, may have any serial.
            const bool isReturn = serial == mBeforeJump;
            if (isReturn && mLog.runs.back().lost > 0) {
                mLog.health.lost -= std::exchange(mLog.runs.back().lost, 0);
                mLog.health.oddSerials++;
                mLog.lastLoss = mLossBefore;
                mLog.firstLoss = mLossBefore == 0 ? kNone : mLog.firstLoss;
            } else if (ahead > UINT32_MAX / 2) {
                mLog.health.oddSerials++;
            } else if (!isReturn) {
                lost = ahead;
                mLog.health.lost += lost;
                mLossBefore = std::exchange(mLog.lastLoss, mLog.events);
                mLog.firstLoss = std::min(mLog.firstLoss, mLog.events);
            }
        }
        mBeforeJump = mExpected;
        mLog.runs.push_back({mLog.events, serial, lost});
        return lost > 0;
    }

    Analysis& mLog;
    const Analysis::Stream* const mVisitor;
    Lines mLines;
    Translation mTranslation;
    Pairing mPairing;
    Complaints mComplaints;
    WallClock mClock;
    Thread* mThread = nullptr;  // of the current record
    int64_t mWall = 0;          // of the current record
    int64_t mOffset = 0;
    uint32_t mExpected = 0;  // the next serial
    uint32_t mBeforeJump = 0;
    uint32_t mLossBefore = 0;  // Analysis::lastLoss before the last one
};

/// The open scopes of each thread, when it is known already what closes what.
class Stacks {
  public:
    explicit Stacks(const Analysis& log) : mLog(log), mStacks(log.threads.size()) {}

    void enter(uint32_t scope) {
        if (!mLog.names[mLog.scopes[scope].name].crossesThreads) {
            std::vector<uint32_t>& stack = mStacks[mLog.scopes[scope].thread];
            if (stack.size() == Pairing::kMaxDepth) {
                stack.erase(stack.begin(), stack.begin() + Pairing::kMaxDepth / 2);
            }
            stack.push_back(scope);
        }
    }
    void exit(uint32_t scope) {
        const Scope& closed = mLog.scopes[scope];
        std::vector<uint32_t>& stack = mStacks[closed.thread];
        const auto found = std::find(stack.rbegin(), stack.rend(), scope);
        if (closed.enter != kNone && found != stack.rend()) {
            // What was entered after it stays open, but encloses nothing any more.
            const auto from = found.base() - 1;
            stack.erase(from, closed.crossedThreads() ? from + 1 : stack.end());
        }
    }
    [[nodiscard]] uint32_t innermost(uint32_t thread) const {
        return mStacks[thread].empty() ? kNone : mStacks[thread].back();
    }

  private:
    const Analysis& mLog;
    std::vector<std::vector<uint32_t>> mStacks;
};

}  // namespace

Analysis::Analysis(SeriesFiles seriesFiles, std::optional<int64_t> knownBootTime)
        : files(std::move(seriesFiles)), start(parseStart(files.start)), bootTime(knownBootTime) {}

Analysis::Analysis(SeriesFiles seriesFiles, const Progress& progress,
                   std::optional<int64_t> knownBootTime)
        : Analysis(std::move(seriesFiles), knownBootTime) {
    uint64_t bytes = 0;
    for (const Piece& piece : files.pieces) {
        bytes += piece.end - piece.begin;
    }
    // At full load. What is not used costs address space alone.
    constexpr uint64_t kBytesPerScope = 400;
    scopes.reserve(bytes / kBytesPerScope);
    readAll(nullptr, progress);
    if (std::any_of(names.begin(), names.end(),
                    [](const ScopeName& name) { return name.crossesThreads; })) {
        pairAgain();
    }
}

void Analysis::stream(SeriesFiles seriesFiles, const Stream& visitor, const Progress& progress) {
    Analysis log(std::move(seriesFiles), std::nullopt);
    log.readAll(&visitor, progress);
}

void Analysis::readAll(const Stream* visitor, const Progress& progress) {
    FirstPass pass(*this, visitor);
    scanRecords(files, [&](Block& block) {
        pass.visit(block);
        if (progress) {
            progress(block.bytes.size());
        }
    });
    pass.finish();
}

std::vector<uint32_t> Analysis::scopesByOrdinal() const {
    std::vector<uint32_t> owners(events, kNone);
    for (uint32_t i = 0; i < scopes.size(); i++) {
        if (scopes[i].enter != kNone) {
            owners[scopes[i].enter] = i;
        }
        if (scopes[i].exit != kNone) {
            owners[scopes[i].exit] = i;
        }
    }
    return owners;
}

void Analysis::pairAgain() {
    const std::vector<uint32_t> owners = scopesByOrdinal();
    const std::vector<Scope> before = std::exchange(scopes, {});
    scopes.reserve(before.size());
    Pairing pairing(scopes, names);
    for (uint32_t ordinal = 0; ordinal < events; ordinal++) {
        const Scope& scope = before[owners[ordinal]];
        if (scope.enter == ordinal) {
            pairing.enter({scope.thread, scope.name, scope.request, ordinal, scope.begin});
        } else {
            pairing.exit({scope.exitThread, scope.name, scope.request, ordinal, scope.end});
        }
    }
    unclosed = pairing.listUnclosed();
}

uint32_t Analysis::serialOf(uint32_t ordinal) const {
    const auto behind = std::upper_bound(
            runs.begin(), runs.end(), ordinal,
            [](uint32_t wanted, const SerialRun& run) { return wanted < run.ordinal; });
    return behind == runs.begin() ? kNone : behind[-1].serial + (ordinal - behind[-1].ordinal);
}

int64_t Analysis::wallOf(int64_t time, uint32_t ordinal) const {
    const auto behind = std::upper_bound(
            steps.begin(), steps.end(), ordinal,
            [](uint32_t wanted, const ClockStep& step) { return wanted < step.ordinal; });
    return behind == steps.begin() ? time : time + behind[-1].offset;
}

Fate Analysis::fateOf(const Scope& scope) const {
    if (scope.isClosed()) {
        return Fate::CLOSED;
    }
    if (scope.isOpen()) {
        return lastLoss > scope.enter ? Fate::EXIT_LOST : Fate::IN_FLIGHT;
    }
    return firstLoss <= scope.exit   ? Fate::ENTER_LOST
           : runs.front().serial > 1 ? Fate::BEFORE_LOG
                                     : Fate::NO_ENTER;
}

std::string Analysis::read(const Place& place) const {
    std::string bytes(place.size, '\0');
    if (place.file >= files.files.size()) {
        return {};
    }
    std::ifstream file(files.files[place.file].path, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(place.offset));
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<size_t>(file.gcount()));
    return bytes;
}

void Analysis::forEachEvent(const std::function<void(uint32_t, bool)>& visit) const {
    const std::vector<uint32_t> owners = scopesByOrdinal();
    for (uint32_t ordinal = 0; ordinal < events; ordinal++) {
        visit(owners[ordinal], scopes[owners[ordinal]].enter == ordinal);
    }
}

void Analysis::forEachRecord(const Visit& visit, const Progress& progress) const {
    const std::vector<uint32_t> owners = scopesByOrdinal();
    Stacks stacks(*this);
    WallClock clock = makeClock(*this);
    std::vector<Thread> knownThreads = threads;
    std::vector<ScopeName> knownNames = names;
    std::vector<std::string> knownTags = tags;
    Translation translation(knownThreads, knownNames, knownTags);
    Lines lines(files.files.size());
    uint32_t ordinal = 0;
    uint64_t records = 0;
    auto step = steps.begin();
    int64_t offset = 0;
    scanRecords(files, [&](Block& block) {
        const Translation::Tables& tables = translation.of(block);
        lines.begin(block);
        for (const RawRecord& raw : block.records) {
            Entry entry = lines.entryOf(block, raw);
            uint32_t scope = kNone;
            if (raw.thread != kNone) {
                if (step != steps.end() && step->record == records) {
                    offset = step->offset;
                    step++;
                }
                records++;
                entry.thread = tables.threads[raw.thread];
                entry.wall = clock.wallOf(raw.date, raw.microseconds);
                entry.time = entry.wall - offset;
                const bool isDetails = raw.kind == Kind::DETAILS;
                entry.name = isDetails ? tables.tags[raw.name] : tables.scopes[raw.name];
                if (entry.thread >= threads.size() ||
                    entry.name >= (isDetails ? tags.size() : names.size())) {
                    continue;  // somebody has written into the file since the first pass
                }
                if (isDetails) {
                    scope = stacks.innermost(entry.thread);
                } else {
                    const bool isEnter = raw.kind == Kind::ENTER;
                    scope = ordinal < owners.size() ? owners[ordinal] : kNone;
                    if (scope != kNone && (scopes[scope].name != entry.name ||
                                           (scopes[scope].enter == ordinal) != isEnter)) {
                        scope = kNone;  // the same
                    }
                    if (scope != kNone) {
                        isEnter ? stacks.enter(scope) : stacks.exit(scope);
                    }
                    ordinal++;
                }
            }
            visit(entry, scope);
        }
        if (progress) {
            progress(block.bytes.size());
        }
    });
}

}  // namespace JCam::Tool
