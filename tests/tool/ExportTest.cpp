// Traces decoded again by others: protoc and nlohmann-json.

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "support/ChildProcess.h"
#include "support/TempFolder.h"
#include "tools/jlog/export/ChromeTrace.h"
#include "tools/jlog/export/Perfetto.h"
#include "tools/jlog/export/UtcClock.h"

namespace JCam::Tool {
namespace {

using nlohmann::json;
using namespace std::string_literals;
using testing::ElementsAreArray;

constexpr char kBerlin[] = "CET-1CEST,M3.5.0,M10.5.0/3";

// -- Logs

/// Writes the lines of one process. Times are microseconds after 10:00.
class Log {
  public:
    Log(int pid, std::string start) : mPid(pid), mStart(std::move(start)) {}

    Log& enter(int tid, int time, const std::string& scope, int request) {
        return scopeLine(tid, time, '+', scope, request);
    }
    Log& exit(int tid, int time, const std::string& scope, int request) {
        return scopeLine(tid, time, '-', scope, request);
    }
    Log& lose() {
        ++mSerial;
        return *this;
    }
    Log& details(int tid, int time, const std::string& text) {
        return line(fmt::format("03-15 10:00:00.{:06}", time), tid, text);
    }
    Log& line(const std::string& stamp, int tid, const std::string& text) {
        mText += fmt::format("{} {:5} {:5} {}\n", stamp, mPid, tid, text);
        return *this;
    }
    void save(const Support::TempFolder& folder) const {
        const std::string name = fmt::format("cam_jlog_{}_{}_01.txt", mPid, mStart);
        Support::writeFile(folder.path(name), mText);
    }

  private:
    /// `scope`: "Preview:4 Node".
    Log& scopeLine(int tid, int time, char sign, const std::string& scope, int request) {
        const size_t blank = scope.find(' ');
        return details(
                tid, time,
                fmt::format("D JLog    : R AppRequest:{} M[{}] {}  :{} #{}", request,
                            scope.substr(0, blank), sign, scope.substr(blank + 1), ++mSerial));
    }

    const int mPid;
    const std::string mStart;
    std::string mText;
    int mSerial = 0;
};

std::vector<std::unique_ptr<Analysis>> analyse(const Support::TempFolder& folder) {
    std::vector<std::unique_ptr<Analysis>> logs;
    for (SeriesFiles& files : findSeries({folder.path()})) {
        logs.push_back(std::make_unique<Analysis>(std::move(files)));
    }
    return logs;
}

// -- What a trace says, whatever its format

struct Event {
    std::string track;  // "0:101" is thread 101 of the first process, "0:lane 0" its first lane
    int64_t time = 0;   // in nanoseconds after the first
    std::string phase;  // B, E, I or D
    std::string name;
    std::string what;
};

struct Trace {
    std::vector<Event> events;  // track by track
    std::vector<std::string> processes;
    std::string start;               // nanoseconds since 1970
    std::vector<std::string> flows;  // of Perfetto alone

    void sort() {
        std::stable_sort(events.begin(), events.end(), [](const Event& a, const Event& b) {
            return std::tie(a.track, a.time) < std::tie(b.track, b.time);
        });
    }
    [[nodiscard]] std::vector<std::string> lines() const {
        std::vector<std::string> lines;
        for (const Event& event : events) {
            lines.push_back(fmt::format("{} {} {} {}{}", event.track, event.time, event.phase,
                                        event.name, event.what));
        }
        return lines;
    }
};

/// Slices nest under their names, not too deep for a viewer, and no two begins or ends of a track
/// share a time.
void expectNesting(const Trace& trace) {
    std::map<std::string, std::vector<std::string>> stacks;
    std::map<std::string, int64_t> times;
    for (const Event& event : trace.events) {
        std::vector<std::string>& stack = stacks[event.track];
        const auto [last, isFirst] = times.try_emplace(event.track, event.time);
        if (event.phase == "B" || event.phase == "E") {
            EXPECT_TRUE(isFirst || event.time > last->second) << event.track << ' ' << event.time;
            last->second = event.time;
        }
        if (event.phase == "B") {
            stack.push_back(event.name);
            EXPECT_LE(stack.size(), 512U) << event.track;
        } else if (event.phase == "E") {
            ASSERT_FALSE(stack.empty()) << event.track << ' ' << event.time;
            EXPECT_EQ(stack.back(), event.name) << event.track << ' ' << event.time;
            stack.pop_back();
        }
    }
    for (const auto& [track, stack] : stacks) {
        EXPECT_TRUE(stack.empty()) << track;
    }
}

// -- JSON

Trace readChromeTrace(const Support::TempFolder& folder, const TraceOptions& options) {
    Output out(std::filesystem::path(folder.path("trace.json")));
    writeChromeTrace(analyse(folder), {}, options, out);
    out.close();
    Trace trace;
    std::map<int, size_t> processes;
    std::map<std::string, std::string> lanes;
    std::map<std::string, std::vector<json>> open;  // arguments of begins, by track
    const json file = json::parse(Support::readFile(folder.path("trace.json")));
    trace.start = file["otherData"]["start_ns"];
    for (const json& event : file["traceEvents"]) {
        const std::string phase = event["ph"];
        const auto [process, isNew] = processes.try_emplace(event["pid"], processes.size());
        if (phase == "M") {
            if (event["name"] == "process_name") {
                EXPECT_TRUE(isNew);
                trace.processes.push_back(event["args"]["name"]);
            }
            continue;
        }
        EXPECT_FALSE(isNew);
        const std::string name = event["name"];
        const std::string category = event["cat"];
        Event& read = trace.events.emplace_back();
        read.time = std::llround(event["ts"].get<double>() * 1000);
        read.track = fmt::format("{}:{}", process->second, event["tid"].get<int>());
        read.name = category + "/" + name;
        if (phase == "b" || phase == "e") {
            const std::string lane = fmt::format("{}:lane {}", process->second, lanes.size());
            read.track = lanes.try_emplace(event["id"], lane).first->second;
        }
        if (phase != "i") {
            read.phase = phase == "B" || phase == "b" ? "B" : "E";
            json args = event["args"];
            std::vector<json>& begins = open[read.track];
            if (read.phase == "B") {
                begins.push_back(args);
            } else if (!begins.empty()) {
                // What an end says of its scope, the begin has said.
                for (const char* const key : {"request", "module_id"}) {
                    EXPECT_EQ(args[key], begins.back()[key]) << read.name;
                    args.erase(key);
                }
                begins.pop_back();
            }
            for (const auto& [key, value] : args.items()) {
                read.what += fmt::format(" {}={}", key, value.get<uint64_t>());
            }
        } else if (event["s"] == "p") {
            read.track = fmt::format("{}:notes", process->second);
            read.phase = "I";
            read.name = name;
        } else {
            read.phase = "D";
            read.name = event["args"]["level"].get<std::string>() + "/" + name;
            read.what = ": " + event["args"]["text"].get<std::string>();
        }
    }
    trace.sort();
    return trace;
}

// -- Perfetto

std::string unescape(std::string_view text) {
    std::string bytes;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            bytes += text[i];
        } else if (text[++i] >= '0' && text[i] <= '7') {
            bytes += static_cast<char>(std::stoi(std::string(text.substr(i, 3)), nullptr, 8));
            i += 2;
        } else {
            bytes += text[i] == 'n'   ? '\n'
                     : text[i] == 't' ? '\t'
                     : text[i] == 'r' ? '\r'
                                      : text[i];
        }
    }
    return bytes;
}

/// Text of protoc: each field as an array of its values.
json parseMessage(const std::vector<std::string>& lines, size_t& at) {
    json message = json::object();
    for (; at < lines.size(); ++at) {
        const std::string_view line =
                std::string_view(lines[at]).substr(lines[at].find_first_not_of(' '));
        if (line == "}") {
            break;
        }
        const size_t end = line.find_first_of(": ");
        json& values = message[std::string(line.substr(0, end))];
        if (line.ends_with(" {")) {
            values.push_back(parseMessage(lines, ++at));
        } else if (line[end + 2] == '"') {
            values.push_back(unescape(line.substr(end + 3, line.size() - end - 4)));
        } else if (line[end + 2] >= '0' && line[end + 2] <= '9') {
            values.push_back(std::stoull(std::string(line.substr(end + 2))));
        } else {
            values.push_back(std::string(line.substr(end + 2)));
        }
    }
    return message;
}

/// Reads packets in their order, and expects that all that they refer to was defined before.
class PacketReader {
  public:
    explicit PacketReader(Trace& trace) : mTrace(trace) {}

    void read(const json& packet) {
        if (packet.contains("clock_snapshot")) {
            readClocks(packet["clock_snapshot"][0]["clocks"]);
            return;
        }
        const auto [process, isNew] = mProcesses.try_emplace(
                packet["trusted_packet_sequence_id"][0].get<int>(), mProcesses.size());
        mProcess = process->second;
        EXPECT_EQ(packet["sequence_flags"][0], isNew ? 3 : 2);
        EXPECT_EQ(packet.contains("first_packet_on_sequence"), isNew);
        EXPECT_EQ(packet.contains("interned_data"), isNew);
        if (packet.contains("track_descriptor")) {
            readTrack(packet["track_descriptor"][0]);
            return;
        }
        if (packet.contains("interned_data")) {
            for (const auto& [table, entries] : packet["interned_data"][0].items()) {
                for (const json& entry : entries) {
                    const auto key = std::tuple(mProcess, table, entry["iid"][0].get<int>());
                    EXPECT_TRUE(mInterned.emplace(key, entry["name"][0]).second);
                }
            }
            return;
        }
        EXPECT_EQ(packet["timestamp_clock_id"][0], 1);
        EXPECT_TRUE(packet.contains("timestamp"));
        if (packet.contains("track_event")) {
            readEvent(packet["track_event"][0], packet["timestamp"][0]);
        } else {
            for (const json& event : packet["android_log"][0]["events"]) {
                readDetails(event);
            }
        }
    }

  private:
    void readClocks(const json& clocks) {
        EXPECT_EQ(mStart, 0);
        ASSERT_EQ(clocks.size(), 2U);
        EXPECT_EQ(clocks[0]["clock_id"][0], 1);
        EXPECT_EQ(clocks[1]["clock_id"][0], 6);
        EXPECT_EQ(clocks[0]["timestamp"], clocks[1]["timestamp"]);
        mStart = clocks[0]["timestamp"][0];
        mTrace.start = std::to_string(mStart);
    }

    void readTrack(const json& track) {
        std::string name;
        if (track.contains("process")) {
            mTrace.processes.push_back(track["process"][0]["process_name"][0]);
            mProcessUuids.push_back(track["uuid"][0]);
            name = "notes";
        } else {
            EXPECT_EQ(track["parent_uuid"][0], mProcessUuids[mProcess]);
            name = track.contains("thread")
                           ? std::to_string(track["thread"][0]["tid"][0].get<int>())
                           : fmt::format("lane {}", mLanes++);
        }
        const bool isNew =
                mTracks.emplace(track["uuid"][0], fmt::format("{}:{}", mProcess, name)).second;
        EXPECT_TRUE(isNew);
    }

    std::string interned(const char* table, const json& iid) {
        return mInterned.at({mProcess, table, iid.get<int>()});
    }

    void readEvent(const json& event, int64_t time) {
        Event& read = mTrace.events.emplace_back();
        read.track = mTracks.at(event["track_uuid"][0]);
        read.time = time - mStart;
        read.phase = event["type"][0];
        if (event.contains("name")) {
            read.name = event["name"][0];
            return;
        }
        read.name = interned("event_categories", event["category_iids"][0]) + "/" +
                    interned("event_names", event["name_iid"][0]);
        std::map<std::string, uint64_t> arguments;
        for (const json& annotation : event.value("debug_annotations", json::array())) {
            arguments[interned("debug_annotation_names", annotation["name_iid"][0])] =
                    annotation["uint_value"][0];
        }
        for (const auto& [key, value] : arguments) {
            read.what += fmt::format(" {}={}", key, value);
        }
        if (read.phase == "B") {
            const auto request = std::tuple(mProcess, arguments["request"]);
            const auto [known, isNew] =
                    mRequests.try_emplace(event["correlation_id"][0].get<uint64_t>(), request);
            EXPECT_EQ(known->second, request);
            const std::string slice = read.track + " " + read.name;
            for (const json& flow : event.value("terminating_flow_ids", json::array())) {
                mTrace.flows.push_back(mFlows.at(flow) + " -> " + slice);
            }
            for (const json& flow : event.value("flow_ids", json::array())) {
                EXPECT_TRUE(mFlows.emplace(flow, slice).second);
            }
        }
    }

    void readDetails(const json& event) {
        Event& read = mTrace.events.emplace_back();
        EXPECT_EQ(event["pid"][0], 100);
        read.track = fmt::format("{}:{}", mProcess, event["tid"][0].get<int>());
        read.time = event["timestamp"][0].get<int64_t>() - mStart;
        read.phase = "D";
        read.name = fmt::format("{}/{}", "VDIWEF"[event["prio"][0].get<int>() - 2],
                                event["tag"][0].get<std::string>());
        read.what = ": " + event["message"][0].get<std::string>();
    }

    Trace& mTrace;
    int64_t mStart = 0;
    size_t mProcess = 0;
    size_t mLanes = 0;
    std::map<int, size_t> mProcesses;
    std::vector<uint64_t> mProcessUuids;
    std::map<uint64_t, std::string> mTracks;
    std::map<std::tuple<size_t, std::string, int>, std::string> mInterned;
    std::map<uint64_t, std::tuple<size_t, uint64_t>> mRequests;  // by correlation
    std::map<uint64_t, std::string> mFlows;
};

Trace readPerfetto(const Support::TempFolder& folder, const TraceOptions& options) {
    Output out(std::filesystem::path(folder.path("trace.pb")));
    writePerfetto(analyse(folder), {}, options, out);
    out.close();
    const Support::Ending ending = Support::runChild([&folder] {
        static_cast<void>(std::freopen(folder.path("trace.pb").c_str(), "r", stdin));
        static_cast<void>(std::freopen(folder.path("trace.txt").c_str(), "w", stdout));
        execl(JCAM_PROTOC, "protoc", "--decode=Trace", "-I" JCAM_TOOL_TESTS, "trace.proto",
              nullptr);
    });
    EXPECT_EQ(ending, (Support::Ending{Support::Ending::EXITED, 0}));
    size_t at = 0;
    Trace trace;
    const json message =
            parseMessage(Support::splitLines(Support::readFile(folder.path("trace.txt"))), at);
    PacketReader reader(trace);
    for (const json& packet : message["packet"]) {
        reader.read(packet);
    }
    trace.sort();
    return trace;
}

// -- Tests

TEST(Export, ShowsEachShapeOfScopeWhereItBelongs) {
    const Support::TempFolder folder;
    Log(100, "2026_0315_100000")
            .enter(101, 1, "Preview:4 Preview", 1)
            .enter(101, 1, "Preview:4 SensorNode", 1)
            .details(103, 0, "I Tag     : early")
            .details(101, 1, "V Odd\"Node: \\ \xff\xc3\xa9\t\"\x01 .")
            .exit(101, 1, "Preview:4 SensorNode", 1)
            .enter(102, 2, "Video:10 Post", 1)
            .exit(101, 3, "Preview:4 Preview", 1)
            .exit(102, 3, "Video:10 Post", 1)
            .enter(101, 4, "Capture:8 Frame", 1)
            .enter(101, 5, "Capture:8 Frame", 2)
            .exit(102, 6, "Capture:8 Frame", 1)
            .enter(102, 7, "Capture:8 Frame", 3)
            .exit(101, 8, "Capture:8 Frame", 2)
            .exit(101, 8, "Capture:8 Frame", 3)
            .exit(102, 9, "Preview:4 Lost", 9)
            .enter(101, 10, "Preview:4 Outer", 4)
            .enter(101, 10, "Preview:4 Inner", 4)
            .exit(101, 10, "Preview:4 Outer", 4)
            .exit(101, 11, "Preview:4 Inner", 4)
            .enter(102, 12, "Preview:4 Stuck", 5)
            .enter(102, 12, "Preview:4 Deeper", 5)
            .details(102, 20, "W Tag     : end")
            .save(folder);
    Log(100, "2026_0315_100001")
            .enter(101, 30, "Preview:4 Preview", 1)
            .lose()
            .enter(101, 31, "Preview:4 Preview", 2)
            .exit(101, 32, "Preview:4 Preview", 2)
            .save(folder);
    Support::writeFile(folder.path("cam_jlog_100_NE_2026_0315_100002_01.txt"),
                       "SIGSEGV : addr = 0x10\n");
    const std::vector<std::string> expected = {
            "0:101 0 B Preview/Preview module_id=4 request=1 serial=1",
            "0:101 1 B Preview/SensorNode module_id=4 request=1 serial=2",
            "0:101 2 D V/Odd\"Node: \\ \ufffd\u00e9\t\"\x01 .",
            "0:101 3 E Preview/SensorNode exit_serial=3",
            "0:101 2000 E Preview/Preview exit_serial=5",
            "0:101 9000 B Preview/Outer module_id=4 request=4 serial=14",
            "0:101 9001 E Preview/Outer exit_serial=16",
            "0:102 1000 B Video/Post module_id=16 request=1 serial=4",
            "0:102 2000 E Video/Post exit_serial=6",
            "0:102 11000 B Preview/Stuck in_flight=1 module_id=4 request=5 serial=18",
            "0:102 11001 B Preview/Deeper in_flight=1 module_id=4 request=5 serial=19",
            "0:102 19000 D W/Tag: end",
            "0:102 19001 E Preview/Deeper",
            "0:102 19002 E Preview/Stuck",
            "0:103 -1000 D I/Tag: early",
            "0:lane 0 3000 B Capture/Frame module_id=8 request=1 serial=7 tid=101",
            "0:lane 0 5000 E Capture/Frame exit_serial=9 exit_tid=102",
            "0:lane 0 6000 B Capture/Frame module_id=8 request=3 serial=10 tid=102",
            "0:lane 0 7000 E Capture/Frame exit_serial=12 exit_tid=101",
            "0:lane 1 4000 B Capture/Frame module_id=8 request=2 serial=8 tid=101",
            "0:lane 1 7000 E Capture/Frame exit_serial=11 exit_tid=101",
            "0:lane 2 9000 B Preview/Inner module_id=4 request=4 serial=15 tid=101",
            "0:lane 2 10000 E Preview/Inner exit_serial=17 exit_tid=101",
            "0:notes 0 I exits without an enter, left out: 1",
            "1:101 30000 B Preview/Preview module_id=4 request=2 serial=3",
            "1:101 31000 E Preview/Preview exit_serial=4",
            "1:lane 3 29000 B Preview/Preview exit_lost=1 module_id=4 request=1 serial=1 tid=101",
            "1:lane 3 31000 E Preview/Preview",
            "1:notes 29000 I lost enters and exits: 1",
            "1:notes 31000 I crash SIGSEGV : addr = 0x10",
    };
    setTimeZone("EST5");  // which the option overrides
    const TraceOptions options{.timeZone = kBerlin};
    for (const Trace& trace : {readPerfetto(folder, options), readChromeTrace(folder, options)}) {
        EXPECT_THAT(trace.lines(), ElementsAreArray(expected));
        EXPECT_THAT(trace.processes,
                    ElementsAreArray({"jlog 2026_0315_100000", "jlog 2026_0315_100001"}));
        EXPECT_EQ(trace.start, "1773565200000001000");
        expectNesting(trace);
    }
    EXPECT_THAT(readPerfetto(folder, options).flows,
                ElementsAreArray({"0:101 Preview/SensorNode -> 0:102 Video/Post"}));
}

/// What threads do that know nothing of each other, and of order. Returns how many enters there
/// are.
size_t writeMess(Log& log, unsigned int seed) {
    std::minstd_rand random(seed);
    const auto below = [&random](int end) {
        return static_cast<int>(random() % static_cast<unsigned int>(end));
    };
    size_t enters = 520;
    for (size_t i = 0; i < enters; ++i) {
        log.enter(101, 0, "M:0 deep", 1);
    }
    int time = 0;
    for (int i = 0; i < 600; ++i) {
        time += below(8) == 0 ? 1 : 0;
        const int tid = 101 + below(3);
        const std::string scope = fmt::format("M{}:{} n{}", below(2), below(2), below(4));
        const int request = 1 + below(3);
        switch (below(3)) {
            case 0:
                log.enter(tid, time, scope, request);
                ++enters;
                break;
            case 1:
                log.exit(tid, time, scope, request);
                break;
            default:
                log.details(tid, time, "D Tag     : x");
        }
    }
    return enters;
}

TEST(Export, NestsWhateverScopesDo) {
    for (const unsigned int seed : {1U, 2U, 3U, 4U}) {
        const Support::TempFolder folder;
        Log log(100, "2026_0315_100000");
        const size_t enters = writeMess(log, seed);
        log.save(folder);
        const TraceOptions options{.scopesOnly = seed % 2 == 0, .timeZone = kBerlin};
        const Trace trace = readPerfetto(folder, options);
        expectNesting(trace);
        EXPECT_EQ(static_cast<size_t>(
                          std::count_if(trace.events.begin(), trace.events.end(),
                                        [](const Event& event) { return event.phase == "B"; })),
                  enters);
        EXPECT_THAT(readChromeTrace(folder, options).lines(), ElementsAreArray(trace.lines()));
    }
}

TEST(Export, KeepsToUtcWhateverTheClockDoes) {
    const struct {
        std::string zone;
        bool isScopeOpen;  // from the first record to the second
        std::vector<std::string> stamps;
        int64_t start;                 // in seconds
        std::vector<int64_t> seconds;  // of the others, from there on
    } rows[] = {
            {"UTC0", false, {"03-29 01:59:59", "03-29 03:00:01"}, 1774749599, {3602}},
            // Summer time begins, with nothing to tell it from an hour of silence, and in a scope.
            {kBerlin, false, {"03-29 01:59:59", "03-29 03:00:01"}, 1774745999, {2}},
            {kBerlin,
             true,
             {"03-29 01:59:59", "03-29 03:00:01", "03-29 03:00:02"},
             1774745999,
             {0, 1}},
            // It ends.
            {kBerlin,
             false,
             {"10-25 01:30:00", "10-25 02:59:59", "10-25 02:00:01", "10-25 03:30:00"},
             1792884600,
             {5399, 5399, 10798}},
    };
    for (const auto& row : rows) {
        const Support::TempFolder folder;
        Log log(100, "2026_" + row.stamps[0].substr(0, 2) + row.stamps[0].substr(3, 2) + "_000000");
        for (size_t i = 0; i < row.stamps.size(); ++i) {
            log.line(row.stamps[i] + ".000000", 101,
                     !row.isScopeOpen || i > 1 ? "D Tag     : x"
                     : i == 0                  ? "D JLog    : R AppRequest:1 M[A:1] +  :a #1"
                                               : "D JLog    : R AppRequest:1 M[A:1] -  :a #2");
        }
        log.save(folder);
        const auto logs = analyse(folder);
        setTimeZone(row.zone);
        UtcClock clock(*logs[0]);
        std::vector<int64_t> seconds;
        logs[0]->forEachRecord([&](const Entry& entry, uint32_t) {
            seconds.push_back(clock.nanoseconds(entry.time) / 1'000'000'000 - row.start);
        });
        EXPECT_EQ(seconds[0], 0) << row.zone;
        seconds.erase(seconds.begin());
        EXPECT_THAT(seconds, ElementsAreArray(row.seconds)) << row.zone;
    }
    EXPECT_THROW(setTimeZone("Mars/Olympus"), std::invalid_argument);
}

}  // namespace
}  // namespace JCam::Tool
