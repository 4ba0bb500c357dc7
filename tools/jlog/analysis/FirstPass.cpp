#include "tools/jlog/analysis/FirstPass.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "reader/Records.h"
#include "tools/jlog/analysis/Block.h"
#include "tools/jlog/analysis/Complaints.h"
#include "tools/jlog/analysis/EntryMaker.h"
#include "tools/jlog/analysis/Pairing.h"
#include "tools/jlog/analysis/RecordScan.h"
#include "tools/jlog/analysis/Translation.h"

namespace JCam::Tool {

namespace {

/// The pass over all records that fills an analysis.
class FirstPass {
  public:
    FirstPass(Analysis& log, const Analysis::Stream* visitor)
            : mLog(log),
              mVisitor(visitor),
              mEntries(log.files.files.size()),
              mTranslation(log.threads, log.names, log.tags),
              mPairing(log.scopes, log.names),
              mComplaints(log.complaints),
              mClock(makeClock(log)) {}

    void visit(Block& block) {
        if (!block.problem.empty()) {
            addProblem(mLog.files.files[block.file].path.string() + ": " + block.problem);
        }
        const Translation::Tables& tables = mTranslation.of(block);
        mEntries.begin(block);
        for (const RawRecord& record : block.records) {
            uint32_t scope = kNone;
            if (record.kind == Kind::ENTER || record.kind == Kind::EXIT) {
                scope = visitScope(record, tables);
            } else if (record.kind == Kind::DETAILS) {
                scope = visitDetails(block, record, tables);
            } else if (record.kind == Kind::SIGNAL) {
                setCause(crashOf(block.file), block.textOf(record));
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
            endHere(crashOf(block.file));
        }
    }

    void finish() {
        mLog.isMonotonic = mClock.isMonotonic();
        mLog.unclosed = mPairing.listUnclosed();
        // Of a crash file that has nothing of its own there is no block.
        for (uint32_t file = 0; file < mLog.files.files.size(); file++) {
            if (mLog.files.files[file].isCrash && !hasCrash(file)) {
                endHere(crashOf(file));
            }
        }
        rankCrashes();
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
            Entry entry = mEntries.entryOf(block, record);
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

    void endHere(Crash& crash) const {
        crash.ordinal = mLog.events;
        crash.time = mLog.lastTime;
        crash.threads = mLog.threads;
    }

    static void setCause(Crash& crash, std::string_view line) {
        const std::optional<Reader::CrashCause> cause = Reader::parseCause(line);
        const bool isBox = cause && cause->box;
        crash.cause = isBox ? cause->box->remark : line;
        crash.box = isBox ? cause->box->name : "";
    }

    /// The records of one box may be in two files.
    void rankCrashes() {
        const auto rank = [&](const Crash& crash) {
            return std::pair(!mLog.files.files[crash.file].isBlackBox, crash.file);
        };
        std::sort(mLog.crashes.rbegin(), mLog.crashes.rend(),
                  [&](const Crash& a, const Crash& b) { return rank(a) < rank(b); });
        std::set<std::string> boxes;
        std::erase_if(mLog.crashes, [&](const Crash& crash) {
            return !crash.box.empty() && !boxes.insert(crash.box).second;
        });
        std::reverse(mLog.crashes.begin(), mLog.crashes.end());
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
            if (time - mLog.lastTime > kMaxSilence && !isGap) [[unlikely]] {
                time = mPairing.openCount() > 0 ? step() : noteSilence(time);
            }
            mLog.lastTime = time;
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

    int64_t noteSilence(int64_t time) {
        constexpr size_t kMaxSilences = 1000;
        if (mLog.silences.size() < kMaxSilences) {
            mLog.silences.push_back({mWall, time - mLog.lastTime});
        }
        return time;
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
        return record.kind == Kind::ENTER ? mPairing.enter(event) : mPairing.exit(event);
    }

    uint32_t visitDetails(const Block& block, const RawRecord& record,
                          const Translation::Tables& tables) {
        timeOf(record, tables, false);
        constexpr uint32_t kMaxText = 1023;  // characters that the logger keeps of a text
        if (record.size - record.textOffset > kMaxText) {
            mLog.health.cutTexts++;
        }
        if (record.level == 'W' || record.level == 'E' || record.level == 'F') {
            mComplaints.add(record.level, tables.tags[record.name], block.textOf(record), mWall);
        }
        return mVisitor != nullptr ? mPairing.innermost(tables.threads[record.thread]) : kNone;
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
    EntryMaker mEntries;
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

}  // namespace

void readRecords(Analysis& log, const Analysis::Stream* visitor,
                 const Analysis::Progress& progress) {
    FirstPass pass(log, visitor);
    scanRecords(log.files, [&](Block& block) {
        pass.visit(block);
        if (progress) {
            progress(block.bytes.size());
        }
    });
    pass.finish();
}

WallClock makeClock(const Analysis& log) {
    const bool isWhole = !log.files.files.empty() && log.files.files.front().index <= 1;
    return {log.start, log.bootTime, isWhole};
}

}  // namespace JCam::Tool
