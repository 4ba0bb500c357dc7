#include "tools/jlog/export/ChromeTrace.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "tools/jlog/export/Json.h"
#include "tools/jlog/export/Timeline.h"

namespace JCam::Tool {

namespace {

constexpr size_t kManyBytes = 100'000'000;
/// Larger than any process id of Linux.
constexpr int64_t kNextPid = 10'000'000;

std::string jsonString(std::string_view text) {
    std::string json;
    appendQuoted(json, text);
    return json;
}

/// Writes the events of one series.
class SeriesWriter : public Timeline::Writer {
  public:
    /// `pid`: its process in the trace. `firstLane`: the number of its first lane. `start`: the
    /// trace's time 0.
    SeriesWriter(const Analysis& log, const Timeline& timeline, int64_t pid, size_t firstLane,
                 int64_t start, Output& out)
            : mLog(log), mTimeline(timeline), mPid(pid), mStart(start), mOut(out) {
        for (const ScopeName& name : log.names) {
            mNames.push_back(fmt::format(R"(,"name":{},"cat":{})", jsonString(name.name),
                                         jsonString(name.module)));
        }
        for (const std::string& tag : log.tags) {
            mTags.push_back(jsonString(tag));
        }
        for (const Track& track : timeline.tracks()) {
            if (track.thread != kNone) {
                const int tid = log.threads[track.thread].tid;
                mBegins.push_back(fmt::format(kHead, 'B', pid, tid, ""));
                mEnds.push_back(fmt::format(kHead, 'E', pid, tid, ""));
                mInstants.push_back(fmt::format(kHead, 'i', pid, tid, R"(,"s":"t")"));
            } else {
                // It is known by its number, and needs no thread.
                const std::string id = fmt::format(R"(,"id":"{}")", firstLane++);
                mBegins.push_back(fmt::format(kHead, 'b', pid, pid, id));
                mEnds.push_back(fmt::format(kHead, 'e', pid, pid, id));
            }
        }
    }

    void writeAll(bool withDetails) {
        for (size_t i = 0; i < mLog.threads.size(); ++i) {
            if (withDetails || mTimeline.tracks()[i].isUsed) {
                const int tid = mLog.threads[i].tid;
                mOut.write(fmt::format(kThreadName, mPid, tid, tid));
            }
        }
        mTimeline.visit(*this, withDetails);
    }

    void begin(uint32_t i, int64_t time) override {
        const Scope& scope = mLog.scopes[i];
        startEvent(mBegins[mTimeline.trackOf(i)], time, mNames[scope.name]);
        addArgument(R"(,"args":{"request":)", scope.request);
        addArgument(R"(,"serial":)", mLog.serialOf(scope.enter));
        addArgument(R"(,"module_id":)", mLog.names[scope.name].moduleId);
        if (mTimeline.isInLane(i)) {
            addArgument(R"(,"tid":)", mLog.threads[scope.thread].tid);
        }
        if (scope.isOpen()) {
            addArgument(mTimeline.mayHaveLostExit(i) ? R"(,"exit_lost":)" : R"(,"in_flight":)", 1);
        }
        finishEvent();
    }

    void end(uint32_t i, int64_t time) override {
        const Scope& scope = mLog.scopes[i];
        startEvent(mEnds[mTimeline.trackOf(i)], time, mNames[scope.name]);
        addArgument(R"(,"args":{"request":)", scope.request);
        addArgument(R"(,"module_id":)", mLog.names[scope.name].moduleId);
        if (scope.isClosed()) {
            addArgument(R"(,"exit_serial":)", mLog.serialOf(scope.exit));
            if (mTimeline.isInLane(i)) {
                addArgument(R"(,"exit_tid":)", mLog.threads[scope.exitThread].tid);
            }
        }
        finishEvent();
    }

    void details(const Entry& entry, int64_t time) override {
        startEvent(mInstants[entry.thread], time, R"(,"cat":"details","name":)");
        mEvent += mTags[entry.name];
        mEvent += R"(,"args":{"level":")";
        mEvent += entry.level;
        mEvent += R"(","text":)";
        appendQuoted(mEvent, entry.text);
        finishEvent();
    }

    void note(std::string_view text, int64_t time) override {
        startEvent(fmt::format(kHead, 'i', mPid, mPid, R"(,"s":"p")"), time,
                   R"(,"cat":"note","name":)");
        appendQuoted(mEvent, text);
        mEvent += R"(,"args":{)";
        finishEvent();
    }

  private:
    static constexpr std::string_view kHead = R"(,
{{"ph":"{}","pid":{},"tid":{}{},"ts":)";
    static constexpr std::string_view kThreadName = R"(,
{{"ph":"M","pid":{},"tid":{},"name":"thread_name","args":{{"name":"thread {}"}}}})";

    void startEvent(std::string_view head, int64_t time, std::string_view name) {
        // The first record may be later than others, by microseconds.
        const int64_t distance = std::abs(time - mStart);
        const int64_t fraction = distance % 1000;
        mEvent = head;
        addArgument(time < mStart ? "-" : "", distance / 1000);
        const std::array<char, 4> digits = {'.', digit(fraction / 100), digit(fraction / 10),
                                            digit(fraction)};
        mEvent.append(digits.data(), digits.size());
        mEvent += name;
    }

    static char digit(int64_t number) { return static_cast<char>('0' + number % 10); }

    template <typename Number>
    void addArgument(std::string_view name, Number value) {
        const fmt::format_int digits(value);
        mEvent += name;
        mEvent.append(digits.data(), digits.size());
    }

    void finishEvent() {
        mEvent += "}}";
        mOut.write(mEvent);
    }

    const Analysis& mLog;
    const Timeline& mTimeline;
    const int64_t mPid;
    const int64_t mStart;
    Output& mOut;
    std::vector<std::string> mNames;   // name and category, of Analysis::names
    std::vector<std::string> mTags;    // of Analysis::tags
    std::vector<std::string> mBegins;  // what an event begins with, of Timeline::tracks()
    std::vector<std::string> mEnds;
    std::vector<std::string> mInstants;  // of the threads alone
    std::string mEvent;
};

}  // namespace

void writeChromeTrace(const std::vector<std::unique_ptr<Analysis>>& logs,
                      const Selection& selection, const TraceOptions& options, Output& out) {
    setTimeZone(options.timeZone);
    std::vector<const Analysis*> taken;
    int64_t start = INT64_MAX;
    for (const std::unique_ptr<Analysis>& log : logs) {
        if (log->firstTime != kNoTime && selection.takesSeries(*log)) {
            taken.push_back(log.get());
            start = std::min(start, UtcClock(*log).nanoseconds(log->firstTime));
        }
    }
    out.write(fmt::format(
            R"({{"displayTimeUnit":"ns","otherData":{{"start_ns":"{}"}},"traceEvents":[)",
            taken.empty() ? 0 : start));
    std::set<int64_t> pids;
    size_t lanes = 0;
    std::string_view separator = "\n";
    for (const Analysis* log : taken) {
        int64_t pid = log->files.pid;
        while (!pids.insert(pid).second) {
            pid += kNextPid;
        }
        const Timeline timeline(*log, selection);
        out.write(
                fmt::format(R"({}{{"ph":"M","pid":{},"name":"process_name","args":{{"name":{}}}}})",
                            std::exchange(separator, ",\n"), pid, jsonString(timeline.title())));
        SeriesWriter(*log, timeline, pid, lanes, start, out).writeAll(!options.scopesOnly);
        lanes += timeline.tracks().size();
    }
    out.write("\n]}\n");
    if (out.bytesWritten() > kManyBytes) {
        fmt::print(stderr,
                   "jlog: viewers read all {} MB into memory; a Perfetto trace is smaller\n",
                   out.bytesWritten() / 1'000'000);
    }
}

}  // namespace JCam::Tool
