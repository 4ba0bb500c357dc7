#include "tools/jlog/analysis/Logcat.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "jlog/track/EventTrackJLogger.h"
#include "support/LogCapture.h"
#include "support/Properties.h"
#include "support/TempFolder.h"
#include "tools/jlog/analysis/Analysis.h"
#include "tools/jlog/analysis/WallClock.h"
#include "tools/jlog/commands/Exceptions.h"

namespace JCam::Tool {
namespace {

using Support::readFile;
using Support::TempFolder;
using Support::writeFile;
using ::testing::ElementsAre;
using Utils::JLog::Track::EventTrackJLogger;

constexpr char kTag[] = "EventTrackJLogger";

int64_t wallOf(const char* start) {
    return parseStart(start).value();
}

std::string showTime(int64_t wall) {
    if (wall == kNoTime) {
        return "none";
    }
    char text[27];
    formatWall(wall, text);
    return text;
}

/// All that is known of an exception.
std::string show(const CameraException& e) {
    constexpr const char* kKinds[] = {"reported", "persistent", "left", "probe", "dark"};
    return fmt::format("{} {:x} {}/{} cam {} mode {:x} [{}|{}|{}|{}|{}]",
                       kKinds[static_cast<size_t>(e.kind)], e.code, e.pid, e.tid,
                       e.camera.value_or(-9), e.mode.value_or(9), e.package, e.collector, e.node,
                       e.stats, e.detail);
}

std::vector<std::string> showAll(const Logcat& logcat) {
    std::vector<std::string> result;
    for (const CameraException& exception : logcat.exceptions()) {
        result.push_back(show(exception));
    }
    return result;
}

/// A logcat file of its own for each text.
class LogcatTest : public ::testing::Test {
  protected:
    Logcat read(const std::string& bytes, const char* reference = "2026_1126_120000") {
        writeFile(mFolder.path("logcat.txt"), bytes);
        return {mFolder.path("logcat.txt"), wallOf(reference)};
    }

    const TempFolder mFolder;
};

/// A line of the tracker, which names its thread first: "7 9 jlc_raise_exception failed".
std::string tracker(int pid, int tid, const std::string& text,
                    const char* time = "14:51:01.152846") {
    return fmt::format("11-26 {} {:5} {:5} I {}: {}\n", time, pid, tid, kTag, text);
}

// The words are the tracker's own: what it writes on this machine, which has no kernel node, no log
// collector and no stats service.
TEST_F(LogcatTest, TellsWhatTheTrackerHasWritten) {
    const Support::Properties properties{{"jovix.camera.packname", "com.example.camera"}};
    std::string log;
    {
        const Support::LogCapture capture;
        EventTrackJLogger* const tracker = EventTrackJLogger::getInstance();
        tracker->setTrackInfo(1, 0x8001);
        tracker->writeExceptionErrCode(0, 5, "i2c nack\nat $$camID@@7, 0x34");
        tracker->writeExceptionErrCode(0, 5, nullptr);
        tracker->writeExceptionErrCode(4, 1, "no row");
        tracker->caughtPersistentErrCode(6, 0);
        tracker->writeExceptionErrCode(8, 40, nullptr);
        tracker->camJlcRaiseException(0x40010001);
        tracker->sensorProbeFailedFb();
        tracker->writeDarkScreenErrCode(2, nullptr);
        tracker->writeDarkScreenErrCode(4, nullptr);
        EventTrackJLogger::releaseInstance();
        for (const Support::LogLine& line : capture.lines()) {
            for (const std::string& text : Support::splitLines(line.text)) {
                log += Tool::tracker(7, 8, text);
            }
        }
    }
    const std::string noNode = "cannot be opened: No such file or directory";
    const Logcat logcat = read(log);
    EXPECT_THAT(
            showAll(logcat),
            ElementsAre("reported 10025005 7/8 cam 1 mode 8001 [com.example.camera|failed|" +
                                noNode + "||i2c nack\nat $$camID@@7, 0x34]",
                        "reported 10025005 7/8 cam 1 mode 8001 [|failed|held back, 30 s||]",
                        "reported 10025401 7/8 cam 1 mode 8001 [|failed|not told, no row in the "
                        "table||]",
                        "persistent 10025600 7/8 cam 1 mode 8001 [|failed|||]",
                        "reported 40010001 7/8 cam 1 mode 8001 [|not asked, no camera type|||]",
                        "probe 10025005 7/8 cam 1 mode 8001 [||" + noNode + "||]",
                        "dark 18b1d 7/8 cam 1 mode 8001 [com.example.camera|||service not "
                        "registered|]"))
            << log;
    EXPECT_EQ(logcat.refusedCalls(), 2U);
}

constexpr char kPayload[] =
        "final payload = EXP_P1_NODE:NULL$$EventField@@SENSOR_SOF_TIMEOUT$$FieldData@@0x10025200$$"
        "pkgName@@$$camID@@-1$$operationMode@@0xffff$$detailData@@otherData = ";
constexpr char kName[] =
        "payload = EXP_HARDWARE:NULL$$EventField@@EXCEP_PROBE$$FieldData@@0x10025005$$"
        "detailData@@sensorName = imx766";
constexpr char kDark[] =
        "payload = exceptionId:101148,pkgName:com.a,captureMode:0x1,cameraID:0,detailData:luma, 2";

// What needs receivers that answer, several threads, or a log that lacks its first lines.
TEST_F(LogcatTest, FollowsEachThread) {
    const struct {
        const char* what;
        std::string log;
        std::vector<std::string> expected;
    } kCases[] = {
            {"processes and threads with the same code mix their lines",
             tracker(7, 7, "jlc raise exception exceptionId = 0x10025200") +
                     tracker(7, 9, "Persistent EXCEPTION_ERR_CODE_SAVE code = 0x10025200") +
                     tracker(8, 7, "jlc raise exception exceptionId = 0x10025200") +
                     tracker(7, 7, "EXCEPTION_ERR_CODE_SAVE code = 0x10025200") +
                     tracker(7, 9, "jlc raise exception exceptionId = 0x10025200") +
                     tracker(8, 7, "jlc_raise_exception failed") +
                     tracker(7, 7, std::string(kPayload) + "a") +
                     tracker(8, 7, "EXCEPTION_ERR_CODE_SAVE code = 0x10025200") +
                     tracker(8, 7, std::string(kPayload) + "NULL") +
                     tracker(7, 9, "jlc_raise_exception failed") +
                     tracker(7, 7, "/proc/cam_kern_fb took -1 of 99 bytes, errno 22"),
             {"reported 10025200 7/7 cam -1 mode ffff [|took it|took -1 of 99 bytes, errno 22||a]",
              "persistent 10025200 7/9 cam -9 mode 9 [|failed|||]",
              "reported 10025200 8/7 cam -1 mode ffff [|failed|payload written||]"}},
            {"calls of the tracker's single operations",
             tracker(7, 7, "jlc raise exception exceptionId = 0x10025200") +
                     tracker(7, 7, "jlc raise exception exceptionId = 0x10025200") +
                     tracker(7, 7, "EXCEPTION_ERR_CODE_SAVE code = 0x10025200") +
                     tracker(7, 7, "skip exp feedback, record time = 5, now time = 9") +
                     tracker(7, 7, std::string(kPayload) + "b"),
             {"reported 10025200 7/7 cam -9 mode 9 [|took it|||]",
              "reported 10025200 7/7 cam -9 mode 9 [|took it|held back, 30 s||]",
              "reported 10025200 7/7 cam -1 mode ffff [||payload written||b]"}},
            {"lines that the log has lost: what follows is of another code",
             tracker(7, 7, "Persistent EXCEPTION_ERR_CODE_SAVE code = 0x10025501") +
                     tracker(7, 7, "jlc raise exception exceptionId = 0x10025502") +
                     tracker(7, 7, "EXCEPTION_ERR_CODE_SAVE code = 0x10025503") +
                     tracker(7, 7, std::string(kPayload) + "c"),
             {"persistent 10025501 7/7 cam -9 mode 9 [||||]",
              "reported 10025502 7/7 cam -9 mode 9 [|took it|||]",
              "reported 10025503 7/7 cam -9 mode 9 [||||]",
              "reported 10025200 7/7 cam -1 mode ffff [||payload written||c]"}},
            {"the kernel asks for a sensor's name",
             tracker(7, 7, "revCount = 6") + tracker(7, 7, kName) + tracker(7, 7, "fd err = 13 ") +
                     tracker(7, 7, "revCount = 0") +
                     tracker(7, 7, "cannot read /proc/cam_kern_fb, errno 5") +
                     tracker(7, 7, "revCount = 0"),
             {"probe 10025005 7/7 cam -9 mode 9 [||payload written||sensorName = imx766]",
              "probe 10025005 7/7 cam -9 mode 9 [||cannot be opened: Permission denied||]",
              "probe 10025005 7/7 cam -9 mode 9 [||has no name||]",
              "probe 10025005 7/7 cam -9 mode 9 [||cannot be read, errno 5||]"}},
            {"dark screens",
             tracker(7, 7, kDark) + tracker(7, 7, "of a second line") + tracker(7, 7, kDark) +
                     tracker(7, 7, "Unable to get Stats service!") + tracker(7, 7, kDark) +
                     tracker(7, 7, "Unable to send dark screen info to Stats service") +
                     tracker(7, 7, "later", "14:51:02.000000"),
             {"dark 18b1c 7/7 cam 0 mode 1 [com.a|||atom sent|luma, 2\nof a second line]",
              "dark 18b1c 7/7 cam 0 mode 1 [com.a|||service not running|luma, 2]",
              "dark 18b1c 7/7 cam 0 mode 1 [com.a|||service refused it|luma, 2]"}},
            {"codes left in files, and a new tracker that knows no camera",
             tracker(7, 7, "set mOpenID:2 mOpMode:0x5") +
                     tracker(7, 9, "kernel excption error code 0x10025001") +
                     tracker(7, 7, "~EventTrackJLogger 0x7f0") +
                     tracker(7, 9, "hal excption error code 0x10025102") +
                     tracker(7, 9, "hal excption error code 0x0"),
             {"left 10025001 7/9 cam 2 mode 5 [||||left by the kernel]",
              "left 10025102 7/9 cam -9 mode 9 [||||left by the camera stack]"}},
            {"logs that begin within a report",
             tracker(7, 1, "jlc_raise_exception failed") +
                     tracker(7, 1, "EXCEPTION_ERR_CODE_SAVE code = 0x10025200") +
                     tracker(7, 2, "skip exp feedback, record time = 5, now time = 9") +
                     tracker(7, 3, "/proc/cam_kern_fb took 4 of 99 bytes, errno 0") +
                     tracker(7, 4, "Unable to get Stats service!") +
                     tracker(7, 5, "final payload = EXP_P1_NODE:NULL$$EventField@@SENS") +
                     tracker(7, 6, "payload = exceptionId:1,pkgName:"),
             {"reported 10025200 7/1 cam -9 mode 9 [||||]",
              "reported 0 7/2 cam -9 mode 9 [||held back, 30 s||]"}},
    };
    for (const auto& [what, log, expected] : kCases) {
        EXPECT_THAT(showAll(read(log)), ::testing::ElementsAreArray(expected)) << what;
    }
}

TEST_F(LogcatTest, GivesEveryLineItsTime) {
    const struct {
        std::string line;
        const char* reference;
        std::string expected;  // time, pid, tid, level, tag, text
    } kCases[] = {
            {"12-31 23:59:59.5  1 1 I t: text\n", "2026_0101_000000", "none 0 0  ."},
            {"12-31 23:59:59.500     1     2 I tag     : text\n", "2026_0101_000000",
             "2025-12-31 23:59:59.500000 1 2 I tag.text"},
            {"01-01 00:00:00.000001  1  2 W tag     : a: b\r\n", "2025_1230_000000",
             "2026-01-01 00:00:00.000001 1 2 W tag.a: b"},
            {"07-01 00:00:00.123456789  1  2 F a long tag: \n", "2026_0101_000000",
             "2026-07-01 00:00:00.123456 1 2 F a long tag."},
            {"2019-02-28 01:02:03.004  1  2 E tag     :\n", "2026_0101_000000",
             "2019-02-28 01:02:03.004000 1 2 E tag."},
            // A day that no year near has.
            {"02-30 01:02:03.004  1  2 E tag     : \xff\xfe", "2026_0101_000000",
             "none 1 2 E tag.\xff\xfe"},
    };
    for (const auto& test : kCases) {
        read(test.line, test.reference).forEachLine([&](const LogcatLine& read) {
            EXPECT_EQ(fmt::format("{} {} {} {} {}.{}", showTime(read.wall), read.pid, read.tid,
                                  read.level == '\0' ? "" : std::string(1, read.level), read.tag,
                                  read.level == '\0' ? "" : read.text),
                      test.expected)
                    << test.line;
        });
    }
}

TEST_F(LogcatTest, HandsOutEveryByteOnce) {
    std::string bytes = "--------- beginning of main\n";
    bytes += tracker(7, 7, std::string("NUL \0 in a text", 15)) + "\n\r\n" +
             tracker(7, 7, std::string(100000, 'x')) + "--------- beginning of crash\n";
    for (int c = 0; c < 256; c++) {
        bytes += static_cast<char>(c);
    }
    bytes += tracker(7, 7, "the end, torn");
    bytes.pop_back();
    const Logcat logcat = read(bytes);
    std::string seen;
    std::vector<std::string> times;
    uint64_t number = 0;
    logcat.forEachLine([&](const LogcatLine& line) {
        EXPECT_EQ(line.number, ++number);
        seen += line.bytes;
        times.push_back(showTime(line.wall).substr(0, 4));
    });
    EXPECT_EQ(seen, bytes);
    EXPECT_THAT(times, ElementsAre("none", "none", "none", "none", "2026", "2026", "2026", "2026"));
    EXPECT_TRUE(showAll(read("")).empty());
    EXPECT_THROW(Logcat(mFolder.path("missing"), 0), std::runtime_error);
}

// A log with monotonic stamps, and the logger's own line that has both clocks.
TEST_F(LogcatTest, PutsMonotonicLogsOnTheWall) {
    const auto status = [](int pid, const char* mono, const char* real) {
        return fmt::format(
                "11-26 14:51:01.152846 {:5}     9 D FileAloneJLogger: File ULogger: 7 logs "
                "written, 0 buffers queueing; mono = {}, real = {} (cam_jlog.txt)\n",
                pid, mono, real);
    };
    const Logcat logcat =
            read(status(7, "01-01 00:10:00.000000", "11-26 14:40:00.000000") +
                 status(7, "01-01 01:10:00.000000", "11-26 16:00:00.250000") +
                 status(8, "12-31 16:00:05.000000", "11-26 14:51:01.000000") +
                 status(9, "01-01 00:10:00.000000", "11-26") +
                 "11-26 14:51:01.152846     9     9 D FileAloneJLogger: ; mono = , real = \n");
    EXPECT_EQ(showTime(logcat.bootTime(7).value_or(kNoTime)), "2026-11-26 14:50:00.250000");
    EXPECT_EQ(showTime(logcat.bootTime(8).value_or(kNoTime)), "2026-11-26 22:50:56.000000");
    EXPECT_FALSE(logcat.bootTime(9).has_value());

    const std::string path = mFolder.path("cam_jlog_7_2026_1126_144959_01.txt");
    writeFile(path,
              "01-01 01:10:02.000000     7     8 D JLog    : R AppRequest:1 M[Preview:4] +  "
              ":Preview #1\n");
    std::vector<SeriesFiles> series = findSeries({path});
    ASSERT_EQ(series.size(), 1U);
    const Analysis log(std::move(series.front()), {}, logcat.bootTime(7));
    EXPECT_TRUE(log.isMonotonic);
    EXPECT_EQ(showTime(log.wallOf(log.firstTime, 0)), "2026-11-26 16:00:02.250000");
}

TEST_F(LogcatTest, ShowsWhatWasInFlight) {
    const auto scope = [](const char* time, int tid, int request, char sign, const char* name,
                          int serial) {
        return fmt::format(
                "11-26 14:51:01.{}     7 {:5} D JLog    : R AppRequest:{} M[Preview:4] {}  :{} "
                "#{}\n",
                time, tid, request, sign, name, serial);
    };
    const std::string path = mFolder.path("cam_jlog_7_2026_1126_145100_01.txt");
    writeFile(
            path,
            scope("150000", 9, 1, '+', "Preview", 1) + scope("152000", 8, 2, '+', "Ended", 2) +
                    scope("152500", 7, 2, '+', "Own", 3) + scope("152840", 8, 2, '-', "Ended", 4) +
                    scope("152850", 7, 2, '-', "Own", 5) + scope("152900", 8, 3, '+', "Later", 6));
    std::vector<std::unique_ptr<Analysis>> logs;
    logs.push_back(std::make_unique<Analysis>(std::move(findSeries({path}).front())));
    const auto print = [&](const Logcat& logcat) {
        Output out(mFolder.path("out"));
        Page page(out);
        printExceptions(logcat, logs, page);
        out.close();
        return readFile(mFolder.path("out"));
    };
    const std::string text =
            tracker(7, 7, "jlc raise exception exceptionId = 0x10025200") +
            tracker(7, 7, "EXCEPTION_ERR_CODE_SAVE code = 0x10025200") +
            tracker(7, 7, std::string(kPayload) + "no \x1b[31m frame " + std::string(120, 'x')) +
            // After the process's end, and of a process without log.
            tracker(7, 7, "jlc raise exception exceptionId = 0x10025200", "14:59:00.000000") +
            tracker(5, 5, "jlc raise exception exceptionId = 0x1");
    const std::string head =
            "code        name                         class           cam    mode  count  first "
            "seen\n"
            "0x10025200  SENSOR_SOF_TIMEOUT           EXP_P1_NODE      -1  0xffff      2  11-26 "
            "14:51:01.152846\n"
            "    reported, pid 7, last 11-26 14:59:00.000000\n"
            "    collector  took it\n"
            "    node       payload written\n"
            "    detail     no  [31m frame " +
            std::string(67, 'x') +
            "...\n"
            "    in flight  request 2        Preview/Own                          thread 7       "
            "for 0.346 ms\n"
            "               request 1        Preview/Preview                      thread 9       "
            "for 2.846 ms\n";
    const std::string tail =
            "0x1         -                            -                 -       -      1  11-26 "
            "14:51:01.152846\n"
            "    reported, pid 5\n"
            "    collector  took it\n";
    EXPECT_EQ(print(read(text)), head + tail);
    const nlohmann::ordered_json json = exceptionsToJson(read(text), logs).at("exceptions").at(0);
    EXPECT_EQ(json.at("in_flight").at(1), nlohmann::ordered_json({{"request", 1},
                                                                  {"module", "Preview"},
                                                                  {"scope", "Preview"},
                                                                  {"tid", 9},
                                                                  {"open_us", 2846}}));
    EXPECT_EQ(json.at("in_flight_count"), 2);
    EXPECT_EQ(json.at("events").size(), 2U);
    // A stamp of milliseconds stands for all scopes of its millisecond. Much later the process may
    // be another one.
    constexpr char kRaised[] =
            "     7     7 I EventTrackJLogger: jlc raise exception exceptionId = 0x1\n";
    for (const auto& [time, count] :
         {std::pair("14:51:01.152", 4), {"14:51:01.153", 2}, {"14:59:00.000", 0}}) {
        const Logcat coarse = read(fmt::format("11-26 {}{}", time, kRaised));
        EXPECT_EQ(exceptionsToJson(coarse, logs).at("exceptions").at(0).at("in_flight_count"),
                  count)
                << time;
    }
}

}  // namespace
}  // namespace JCam::Tool
