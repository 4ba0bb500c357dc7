#include "tools/jlog/export/Timeline.h"

#include <algorithm>
#include <functional>
#include <queue>
#include <unordered_map>
#include <utility>

#include <fmt/format.h>

namespace JCam::Tool {

namespace {

/// Until it is known which one.
constexpr uint32_t kSomeLane = kNone - 1;
/// Viewers refuse a slice below that many others.
constexpr size_t kMaxDepth = 512;
/// A request does not rest that long: its number is used again.
constexpr int64_t kMaxRestMicroseconds = 10'000'000;

}  // namespace

Timeline::Timeline(const Analysis& log, const Selection& selection)
        : mLog(log), mSelection(selection) {
    for (uint32_t thread = 0; thread < log.threads.size(); ++thread) {
        mTracks.push_back({.thread = thread});
    }
    for (const SerialRun& run : log.runs) {
        mLastLoss = run.lost > 0 ? run.ordinal : mLastLoss;
    }
    chooseScopes();
    nestScopes();
    placeInLanes();
    followRequests();
}

void Timeline::chooseScopes() {
    mPlaces.resize(mLog.scopes.size());
    for (uint32_t i = 0; i < mLog.scopes.size(); ++i) {
        const Scope& scope = mLog.scopes[i];
        if (!mSelection.takesScope(mLog, scope)) {
            continue;
        }
        if (scope.enter == kNone) {
            ++mExitsWithoutEnter;
        } else {
            const bool nests = !mLog.names[scope.name].crossesThreads && !mayHaveLostExit(i);
            mPlaces[i].track = nests ? scope.thread : kSomeLane;
        }
    }
}

void Timeline::nestScopes() {
    std::vector<std::vector<uint32_t>> stacks(mLog.threads.size());
    mLog.forEachEvent([&](uint32_t scope, bool isEnter) {
        const uint32_t track = mPlaces[scope].track;
        if (track == kNone || track == kSomeLane) {
            return;
        }
        std::vector<uint32_t>& stack = stacks[track];
        if (!isEnter) {
            for (; stack.back() != scope; stack.pop_back()) {
                mPlaces[stack.back()].track = kSomeLane;
            }
            stack.pop_back();
        } else if (stack.size() < kMaxDepth) {
            stack.push_back(scope);
        } else {
            mPlaces[scope].track = kSomeLane;
        }
    });
}

void Timeline::placeInLanes() {
    using FreeLane = std::pair<uint32_t, uint32_t>;  // from which ordinal on, and the track
    using Lanes = std::priority_queue<FreeLane, std::vector<FreeLane>, std::greater<>>;
    std::unordered_map<uint32_t, Lanes> lanesOfName;
    for (uint32_t i = 0; i < mPlaces.size(); ++i) {
        Place& place = mPlaces[i];
        const Scope& scope = mLog.scopes[i];
        if (place.track == kSomeLane) {
            Lanes& lanes = lanesOfName[scope.name];
            if (!lanes.empty() && lanes.top().first < scope.enter) {
                place.track = lanes.top().second;
                lanes.pop();
            } else {
                place.track = static_cast<uint32_t>(mTracks.size());
                mTracks.push_back({.name = scope.name});
            }
            lanes.emplace(scope.exit, place.track);
        }
        if (place.track != kNone) {
            mTracks[place.track].isUsed = true;
        }
    }
}

void Timeline::followRequests() {
    std::unordered_map<uint32_t, uint32_t> lastScopes;  // of the requests
    for (uint32_t i = 0; i < mPlaces.size(); ++i) {
        if (mPlaces[i].track == kNone || isInLane(i)) {
            continue;
        }
        const Scope& scope = mLog.scopes[i];
        const auto [found, isFirst] = lastScopes.try_emplace(scope.request, i);
        const uint32_t before = std::exchange(found->second, i);
        const Scope& last = mLog.scopes[before];
        const int64_t lastTime = last.isOpen() ? last.begin : last.end;
        if (!isFirst && last.thread != scope.thread &&
            scope.begin - lastTime <= kMaxRestMicroseconds) {
            mPlaces[i].predecessor = before;
            mPlaces[before].hasSuccessor = true;
        }
    }
}

/// Gives times to what is visited.
class Timeline::Walk {
  public:
    Walk(const Timeline& timeline, Writer& writer)
            : mTimeline(timeline),
              mLog(timeline.mLog),
              mWriter(writer),
              mClock(mLog),
              mTimes(timeline.mTracks.size(), INT64_MIN) {}

    void notes() {
        const int64_t first = mClock.nanoseconds(mLog.firstTime);
        if (mLog.health.lost > 0) {
            mWriter.note(fmt::format("lost enters and exits: {}", mLog.health.lost), first);
        }
        if (mTimeline.mExitsWithoutEnter > 0) {
            mWriter.note(fmt::format("exits without an enter, left out: {}",
                                     mTimeline.mExitsWithoutEnter),
                         first);
        }
        int64_t offset = 0;
        for (const ClockStep& step : mLog.steps) {
            const int64_t change = step.offset - std::exchange(offset, step.offset);
            mWriter.note(fmt::format("the clock was set by {:+.6f} s",
                                     static_cast<double>(change) / 1e6),
                         mClock.nanoseconds(step.time));
        }
        for (const Crash& crash : mLog.crashes) {
            mWriter.note((mLog.isBlackBox(crash) ? "black box: " : "crash ") + crash.cause,
                         crash.time == kNoTime ? first : mClock.nanoseconds(crash.time));
        }
    }

    void scopeEvent(uint32_t i, bool isEnter) {
        const uint32_t track = mTimeline.trackOf(i);
        if (track == kNone) {
            return;
        }
        const Scope& scope = mLog.scopes[i];
        if (isEnter) {
            mWriter.begin(i, nextTime(track, scope.begin));
        } else {
            mWriter.end(i, nextTime(track, scope.end));
        }
    }

    void record(const Entry& entry, uint32_t scope) {
        if (entry.kind == Kind::DETAILS) {
            if (mTimeline.mSelection.takes(mLog, entry, scope)) {
                mWriter.details(entry, nextTime(entry.thread, entry.time));
            }
        } else if (scope != kNone) {
            scopeEvent(scope, entry.kind == Kind::ENTER);
        }
    }

    /// Those entered last, first: they are within the others.
    void endOpenScopes() {
        for (auto i = static_cast<uint32_t>(mLog.scopes.size()); i-- > 0;) {
            if (mLog.scopes[i].isOpen() && mTimeline.trackOf(i) != kNone) {
                mWriter.end(i, nextTime(mTimeline.trackOf(i), mLog.lastTime));
            }
        }
    }

  private:
    int64_t nextTime(uint32_t track, int64_t time) {
        int64_t& last = mTimes[track];
        last = std::max(mClock.nanoseconds(time), last + 1);
        return last;
    }

    const Timeline& mTimeline;
    const Analysis& mLog;
    Writer& mWriter;
    UtcClock mClock;
    std::vector<int64_t> mTimes;  // the last one of each track
};

void Timeline::visit(Writer& writer, bool withDetails) const {
    Walk walk(*this, writer);
    walk.notes();
    if (withDetails) {
        mLog.forEachRecord(
                [&walk](const Entry& entry, uint32_t scope) { walk.record(entry, scope); });
    } else {
        mLog.forEachEvent(
                [&walk](uint32_t scope, bool isEnter) { walk.scopeEvent(scope, isEnter); });
    }
    walk.endOpenScopes();
}

}  // namespace JCam::Tool
