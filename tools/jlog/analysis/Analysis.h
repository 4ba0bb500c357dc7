#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/jlog/analysis/Entry.h"
#include "tools/jlog/analysis/SeriesFiles.h"

namespace JCam::Tool {

/// Who logs a scope: "Preview", 4, "IspNode". Two modules may share a name.
struct ScopeName {
    std::string module;
    uint32_t moduleId = 0;
    std::string name;
    /// Entered on one thread and left on another at least once: scopes of this name do not nest
    /// into those of their thread.
    bool crossesThreads = false;
};

/// "Preview", or "(null):6" for a module that the logger has no name for.
[[nodiscard]] std::string moduleOf(const ScopeName& name);

/// Where a record is.
struct Place {
    uint32_t file = kNone;  // index into SeriesFiles::files
    uint32_t size = 0;      // bytes
    uint64_t offset = 0;
};

struct Thread {
    int tid = 0;
    uint64_t records = 0;
    int64_t lastTime = kNoTime;
    Place lastRecord;
};

/// From an enter to its exit. Times are in microseconds, see Entry::time.
struct Scope {
    int64_t begin = kNoTime;  // of the enter; kNoTime if that is not in the log
    int64_t end = kNoTime;    // of the exit; kNoTime if that is not in the log
    uint32_t request = 0;
    uint32_t name = kNone;        // index into Analysis::names
    uint32_t thread = kNone;      // that entered; that left, if the enter is not in the log
    uint32_t exitThread = kNone;  // that left; kNone without exit
    uint32_t enter = kNone;       // ordinal of the enter among the scope events of the series
    uint32_t exit = kNone;        // ordinal of the exit

    [[nodiscard]] bool isClosed() const { return enter != kNone && exit != kNone; }
    [[nodiscard]] bool isOpen() const { return exit == kNone; }
    [[nodiscard]] bool crossedThreads() const { return isClosed() && thread != exitThread; }
};

/// From the event with this ordinal on the serials count from `serial`.
struct SerialRun {
    uint32_t ordinal = 0;
    uint32_t serial = 0;
    uint32_t lost = 0;  // serials between the run before and this one
};

/// The wall clock was set between two records.
struct ClockStep {
    uint64_t record = 0;   // its ordinal among the records of the series
    uint32_t ordinal = 0;  // of the next scope event
    int64_t time = 0;      // Entry::time of the record behind it
    int64_t offset = 0;    // Entry::wall - Entry::time from here on
};

/// Warnings and errors that differ in numbers only.
struct Complaint {
    char level = 'W';
    uint32_t tag = kNone;  // index into Analysis::tags
    uint64_t count = 0;
    std::string text;  // of the first
    int64_t firstWall = 0;
};

/// What a process left when a signal killed it, or in its black box.
struct Crash {
    uint32_t file = kNone;        // index into SeriesFiles::files
    std::string cause;            // "SIGSEGV : addr = 0x10"; empty if the file says nothing
    std::string box;              // Reader::BlackBox::name; empty for a signal
    uint32_t ordinal = 0;         // scope events from here on came after it
    int64_t time = kNoTime;       // of the last record before it
    std::vector<Thread> threads;  // as they were then: others may have logged on
};

/// Whether the records can be trusted to be all, and whole.
struct Health {
    uint64_t records = 0;
    uint64_t continuations = 0;  // lines
    uint64_t torn = 0;
    uint64_t skippedBytes = 0;  // that are no record
    uint64_t cutTexts = 0;      // texts of 1023 characters, where the logger cuts
    uint64_t lost = 0;          // serials that no record has
    uint64_t oddSerials = 0;    // that are not above the one before
};

/// Nobody had anything to log, or the clock was set forward: nothing tells the two apart.
struct Silence {
    int64_t end = 0;  // Entry::wall of the record behind it
    int64_t duration = 0;
};

/// What became of a scope.
enum class Fate : uint8_t {
    CLOSED,
    IN_FLIGHT,   // no exit yet
    EXIT_LOST,   // no exit, but serials behind its enter are missing
    NO_ENTER,    // an exit without enter
    ENTER_LOST,  // an exit without enter, but serials in front of it are missing
    BEFORE_LOG,  // opened before the log begins
};

/// What the files of a series say. One pass over the bytes makes it, on all cores, and, if a scope
/// was left on another thread than entered, one over the scopes.
class Analysis {
  public:
    /// Called now and then with the bytes that were read since the last call.
    using Progress = std::function<void(uint64_t bytes)>;

    /// `bootTime`: Entry::wall when the monotonic clock read 0, if somebody knows. Without it,
    /// stamps of that clock are set right by the time in the name of the files.
    explicit Analysis(SeriesFiles seriesFiles, const Progress& progress = {},
                      std::optional<int64_t> bootTime = {});

    SeriesFiles files;
    std::optional<int64_t> start;  // Entry::wall, of the name of the files
    std::optional<int64_t> bootTime;
    std::vector<Thread> threads;     // in the order they appear
    std::vector<ScopeName> names;    // in the order they appear
    std::vector<std::string> tags;   // in the order they appear
    std::vector<Scope> scopes;       // in the order of their first event
    std::vector<uint32_t> unclosed;  // indices of the scopes without enter or without exit
    std::vector<SerialRun> runs;
    uint32_t firstLoss = kNone;  // the ordinal of the first run that has lost serials
    uint32_t lastLoss = 0;       // of the last; 0 if there is none
    std::vector<ClockStep> steps;
    Health health;
    int64_t firstTime = kNoTime;
    int64_t lastTime = kNoTime;
    uint32_t events = 0;  // enters and exits
    std::vector<Silence> silences;
    bool isMonotonic = false;           // stamps are of that clock; Entry::wall is computed
    std::vector<Complaint> complaints;  // in the order they appear
    /// Black boxes, then what signals killed, the oldest first: the last one knows best.
    std::vector<Crash> crashes;

    [[nodiscard]] uint32_t serialOf(uint32_t ordinal) const;
    /// `time`, an Entry::time near the scope event `ordinal`, on the wall.
    [[nodiscard]] int64_t wallOf(int64_t time, uint32_t ordinal) const;

    [[nodiscard]] bool isBlackBox(const Crash& crash) const {
        return files.files[crash.file].isBlackBox;
    }
    [[nodiscard]] Fate fateOf(const Scope& scope) const;
    /// The bytes of a record; empty if they cannot be read any more.
    [[nodiscard]] std::string read(const Place& place) const;

    /// Each enter and exit in its order, with the index of its scope.
    void forEachEvent(const std::function<void(uint32_t scope, bool isEnter)>& visit) const;

    /// Reads the files again. `scope`: for ENTER and EXIT the scope that the record opens or
    /// closes, for DETAILS the innermost open scope of its thread, which is inferred: kNone if
    /// there is none. Index into `scopes`.
    using Visit = std::function<void(const Entry& entry, uint32_t scope)>;
    void forEachRecord(const Visit& visit) const;
    Progress onRead;  // is told while forEachRecord() reads

    /// What stream() calls. `log` has the tables so far, and of the scopes those that are open.
    struct Stream {
        /// With the scope that it opens or closes, or that it is in; nullptr if there is none.
        std::function<void(const Analysis& log, const Entry& entry, const Scope* scope)> onRecord;
        /// When it is closed, or, at the end, still open.
        std::function<void(const Analysis& log, const Scope& scope)> onScope;
    };
    /// Reads a series once, in memory that depends on the names in it and not on its size. The
    /// first scopes of a name that crosses threads may be paired otherwise than by a whole
    /// analysis.
    static void stream(SeriesFiles seriesFiles, const Stream& visitor,
                       const Progress& progress = {});

  private:
    Analysis(SeriesFiles seriesFiles, std::optional<int64_t> bootTime);
    [[nodiscard]] std::vector<uint32_t> scopesByOrdinal() const;
    void pairAgain();
};

}  // namespace JCam::Tool
