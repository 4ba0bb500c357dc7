#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/jlog/analysis/Analysis.h"
#include "tools/jlog/analysis/Selection.h"
#include "tools/jlog/export/UtcClock.h"

namespace JCam::Tool {

/// A row of a trace. Its scopes nest, and its times grow from one begin or end to the next.
struct Track {
    uint32_t thread = kNone;  // a thread, or else
    uint32_t name = kNone;    // a lane: no two of the scopes of this name in it overlap
    bool isUsed = false;      // a selected scope is in it
};

/// A series as a trace shows it. A scope lies on the track of its thread if it nests there. One
/// that is left on another thread, that outlives the scope it was entered in, or whose exit may be
/// lost, lies in a lane of its name. A lane is used again when it is free, so there are as many as
/// scopes overlap.
///
/// Stamps have microseconds. Begins and ends of a track that share one keep their order in the file
/// and get nanoseconds that grow.
class Timeline {
  public:
    /// Takes what the series has, track by track in order. Times are nanoseconds since 1970, UTC.
    class Writer {
      public:
        Writer() = default;
        Writer(const Writer&) = delete;
        Writer& operator=(const Writer&) = delete;
        virtual ~Writer() = default;

        /// `scope`: index into Analysis::scopes.
        virtual void begin(uint32_t scope, int64_t time) = 0;
        /// A scope that is still open ends with the log.
        virtual void end(uint32_t scope, int64_t time) = 0;
        /// `entry` is of kind DETAILS.
        virtual void details(const Entry& entry, int64_t time) = 0;
        /// What is to be told about the series at that time.
        virtual void note(std::string_view text, int64_t time) = 0;
    };

    /// The log has a record. `selection` outlives the timeline.
    Timeline(const Analysis& log, const Selection& selection);

    /// A name for the process.
    [[nodiscard]] std::string title() const {
        return mLog.files.start.empty() ? "jlog" : "jlog " + mLog.files.start;
    }
    /// The threads of the series in their order, then the lanes.
    [[nodiscard]] const std::vector<Track>& tracks() const { return mTracks; }
    /// Index into tracks(); kNone if the scope is not to be seen.
    [[nodiscard]] uint32_t trackOf(uint32_t scope) const { return mPlaces[scope].track; }
    [[nodiscard]] bool isInLane(uint32_t scope) const {
        return mPlaces[scope].track >= mLog.threads.size();
    }
    /// The scope that this one's request was in before, if that was on another thread; else kNone.
    /// Each scope is at most one other's predecessor.
    [[nodiscard]] uint32_t predecessorOf(uint32_t scope) const {
        return mPlaces[scope].predecessor;
    }
    [[nodiscard]] bool hasSuccessor(uint32_t scope) const { return mPlaces[scope].hasSuccessor; }
    /// Its exit may be missing because records are: it need not have been open for so long.
    [[nodiscard]] bool mayHaveLostExit(uint32_t scope) const {
        return mLog.scopes[scope].isOpen() && mLog.scopes[scope].enter < mLastLoss;
    }

    /// Reads the files again for details.
    void visit(Writer& writer, bool withDetails) const;

  private:
    struct Place {
        uint32_t track = kNone;
        uint32_t predecessor = kNone;
        bool hasSuccessor = false;
    };
    class Walk;

    void chooseScopes();
    void nestScopes();
    void placeInLanes();
    void followRequests();

    const Analysis& mLog;
    const Selection& mSelection;
    std::vector<Track> mTracks;
    std::vector<Place> mPlaces;  // of the scopes
    size_t mExitsWithoutEnter = 0;
    uint32_t mLastLoss = 0;  // ordinal of the first event behind it
};

}  // namespace JCam::Tool
