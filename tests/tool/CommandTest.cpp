// The program itself: command lines, and what comes out of them.

#include <fcntl.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <android/log.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "jlog/file/FileAloneJLogger.h"
#include "reader/Text.h"
#include "support/Await.h"
#include "support/ChildProcess.h"
#include "support/Properties.h"
#include "support/TempFolder.h"

namespace JCam::Tool {
namespace {

using nlohmann::json;
using Support::readFile;
using Support::writeFile;
using testing::HasSubstr;
using testing::Not;

constexpr std::string_view kBytes = "\x1b[K\xff";

/// A line of a log, `time` microseconds after 10:00.
std::string line(int time, int pid, int tid, const std::string& text) {
    return fmt::format("03-15 10:00:00.{:06} {:5} {:5} {}\n", time, pid, tid, text);
}

/// An enter or exit. `what`: "1 Preview:4 + IspNode".
std::string scope(int time, int pid, int tid, const std::string& what, int serial) {
    const size_t module = what.find(' ');
    const size_t sign = what.find(' ', module + 1);
    return line(time, pid, tid,
                fmt::format("D JLog    : R AppRequest:{} M[{}] {}  :{} #{}", what.substr(0, module),
                            what.substr(module + 1, sign - module - 1), what[sign + 1],
                            what.substr(sign + 3), serial));
}

class CommandTest : public testing::Test {
  protected:
    CommandTest() {
        // Process 100 crashes. Its second file begins with a continued series; serials 9 and 10 are
        // lost, request 4 with them.
        const std::string tail = scope(24400, 100, 101, "5 Preview:4 - Preview", 12) +
                                 line(24450, 100, 101, "E Flash   : cannot charge 3 \x1b[K\xff") +
                                 scope(24500, 100, 101, "6 Preview:4 + Preview", 13);
        write("logs/cam_jlog_100_2024_0315_100000_01.txt",
              scope(1000, 100, 101, "1 Preview:4 + Preview", 1) +
                      scope(1100, 100, 101, "1 Preview:4 + IspNode", 2) +
                      line(1150, 100, 101, "W IspNode : request 1: late by 17 us") +
                      scope(1600, 100, 101, "1 Preview:4 - IspNode", 3) +
                      scope(2000, 100, 101, "1 Preview:4 - Preview", 4) +
                      scope(2100, 100, 101, "2 Capture:8 + Jpeg", 5) +
                      scope(3100, 100, 102, "2 Capture:8 - Jpeg", 6));
        write("logs/cam_jlog_100_2024_0315_100000_02.txt",
              "-- CONTINUED --\n" + scope(8000, 100, 101, "3 Preview:4 + Preview", 7) +
                      scope(8500, 100, 101, "3 Preview:4 - Preview", 8) +
                      scope(24000, 100, 101, "5 Preview:4 + Preview", 11) + tail);
        write("logs/cam_jlog_100_NE_2024_0315_100001_01.txt",
              "SIGSEGV : addr = 0x10\n" + tail +
                      scope(24600, 100, 101, "6 Preview:4 + IspNode", 14) +
                      line(24650, 100, 101, "D IspNode : request 6: input is here"));
        write("logs/cam_jlog_200_2024_0315_100000_01.txt",
              scope(1500, 200, 201, "1 Video:10 + Video", 1) +
                      line(1550, 200, 201, "D Video   : first\nsecond line") +
                      scope(2500, 200, 201, "1 Video:10 - Video", 2));
        write("new/cam_jlog_300_2024_0316_100000_01.txt",
              scope(1000, 300, 301, "1 Preview:4 + Preview", 1) +
                      line(1100, 300, 301, "E Sensor  : frame 7 of 9 is lost") +
                      scope(1200, 300, 301, "1 Preview:4 + IspNode", 2) +
                      scope(1700, 300, 301, "1 Preview:4 - IspNode", 3) +
                      scope(6000, 300, 301, "1 Preview:4 - Preview", 4));
        // A request each 10 ms, but one 35 ms after the one before.
        std::string steady;
        for (int i = 0; i < 12; i++) {
            const int time = i * 10000 + (i < 8 ? 0 : 25000);
            const std::string request = std::to_string(i + 1);
            steady += scope(time, 600, 601, request + " Preview:4 + Preview", 2 * i + 1) +
                      scope(time + 60 + i, 600, 601, request + " Preview:4 - Preview", 2 * i + 2);
        }
        write("steady/cam_jlog_600_2024_0315_100000_01.txt", steady);
        // Killed in the middle of a write; its black box is found an hour later, and meanwhile
        // another process has crashed.
        const std::string killed = scope(1000, 700, 701, "1 Video:10 + Video", 1) +
                                   line(1500, 700, 701, "W Video   : request 1: late");
        write("boxed/cam_jlog_700_2024_0315_100000_01.txt", killed.substr(0, killed.size() - 10));
        write("boxed/cam_jlog_700_BB_2024_0315_110000_01.txt",
              "BLACK BOX : pid = 700, start = 2024-03-15 09:59:59, box = 2024-03-15 10:00:00, "
              "ended without a dump\n" +
                      killed + scope(2000, 700, 701, "1 Video:10 + Encode", 2));
        write("boxed/cam_jlog_701_NE_2024_0315_103000_01.txt", "SIGBUS : addr = 0x20\n");
        // A thread logs on while another one dies.
        write("both/cam_jlog_702_NE_2024_0315_100001_01.txt",
              "SIGBUS : addr = 0x20\n" + scope(1000, 702, 703, "1 Video:10 + Video", 1));
        write("both/cam_jlog_702_BB_2024_0315_110000_01.txt",
              "BLACK BOX : pid = 702, start = 2024-03-15 09:59:59, box = 2024-03-15 10:00:00, "
              "ended behind a crash dump, which lacks records\n" +
                      line(1500, 702, 703, "W Video   : request 1: late"));
        write("empty/notes.txt", "");
        write("void/cam_jlog_9_2024_0315_100000_01.txt", "");
        write("quiet/cam_jlog_400_2024_0315_100000_01.txt",
              scope(1000, 400, 401, "1 Preview:4 + Preview", 1) +
                      scope(2040, 400, 401, "1 Preview:4 - Preview", 2));
    }

    void write(const std::string& name, const std::string& content) const {
        const std::filesystem::path path(mFolder.path(name));
        std::filesystem::create_directories(path.parent_path());
        writeFile(path.string(), content);
    }

    /// Runs jlog in the folder, with its output and errors in the file "out". The exit status.
    [[nodiscard]] int run(const std::string& arguments) const {
        const std::string command = fmt::format("cd '{}' && {{ timeout 100 '{}' {}; }} >out 2>&1",
                                                mFolder.path(), JCAM_JLOG, arguments);
        const int status = std::system(command.c_str());  // NOLINT(cert-env33-c): pipes, too
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    /// Starts jlog in the folder, with the end of a new terminal as its output if one is wanted.
    [[nodiscard]] pid_t start(const std::string& arguments, int* terminal = nullptr) const {
        const std::string command =
                fmt::format("cd '{}' && exec '{}' {}", mFolder.path(), JCAM_JLOG, arguments);
        const pid_t child =
                terminal == nullptr ? fork() : forkpty(terminal, nullptr, nullptr, nullptr);
        if (child == 0) {
            execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
            _exit(127);
        }
        return child;
    }
    /// What a terminal gets.
    [[nodiscard]] std::string show(const std::string& arguments) const {
        int terminal = -1;
        const pid_t child = start(arguments, &terminal);
        std::string shown;
        char bytes[4096];
        for (ssize_t got = 0; (got = read(terminal, bytes, sizeof(bytes))) > 0;) {
            shown.append(bytes, static_cast<size_t>(got));
        }
        close(terminal);
        waitpid(child, nullptr, 0);
        return shown;
    }
    [[nodiscard]] std::string out() const { return readFile(mFolder.path("out")); }

    const Support::TempFolder mFolder;
};

/// Commands, what they print, and their exit statuses.
constexpr std::string_view kTranscript = R"(
$ jlog logs --pid 100
series   100 2024-03-15 10:00:00  2 files + 1 crash file  15 records  10:00:00.001 to 10:00:00.024
crash    SIGSEGV : addr = 0x10   last record 10:00:00.024   (jlog crash)
health   serials 1..14, 2 lost; 0 torn; 0 continuation lines; 3 records in two files
         serials 9..10 are missing
scope            count      p50      p99      max  slowest
Preview/Preview      3   500 us  1.00 ms  1.00 ms  request 1, tid 101
Capture/Jpeg         1  1.00 ms  1.00 ms  1.00 ms  request 2, tid 101
Preview/IspNode      1   500 us   500 us   500 us  request 1, tid 101
module   requests   median  gaps  above  longest  before
Preview         4  7.00 ms
Capture         1
requests absent: 4
errors         1 x  from 10:00:00.024  E Flash: cannot charge 3 <bytes>
               1 x  from 10:00:00.001  W IspNode: request 1: late by 17 us
thread  records  a second  modules
101          14       591  Preview, Capture
102           1        42
in flight at the end
         tid 101     request 6  Preview > IspNode   open 150 us, the last 50 us
                     last: D IspNode: request 6: input is here
[0]
$ jlog report steady
series   600 2024-03-15 10:00:00  1 file  24 records  10:00:00.000 to 10:00:00.135
health   serials 1..24 complete; 0 torn; 0 continuation lines
scope            count    p50    p99    max  slowest
Preview/Preview     12  65 us  71 us  71 us  request 12, tid 601
module   requests   median  gaps    above  longest  before
Preview        12  10.0 ms     1  15.0 ms  35.0 ms  request 9 at 10:00:00.105
thread  records  a second  modules
601          24       177  Preview
[0]
$ jlog requests logs --module 0x10 --pid 200
series   200 2024-03-15 10:00:00  1 file  3 records  10:00:00.001 to 10:00:00.002
request  begin         duration  scopes  threads  slowest scope        modules
      1  10:00:00.001   1.00 ms       1        1  Video/Video 1.00 ms  Video
[0]
$ jlog requests logs --pid 100 --slow 2 --since 10:00:00.0021
series   100 2024-03-15 10:00:00  2 files + 1 crash file  15 records  10:00:00.001 to 10:00:00.024
request  begin         duration  scopes  threads  slowest scope           modules
      2  10:00:00.002   1.00 ms       1        2  Capture/Jpeg 1.00 ms    Capture
      3  10:00:00.008    500 us       1        1  Preview/Preview 500 us  Preview
[0]
$ jlog show logs --request 1
series   100 2024-03-15 10:00:00  2 files + 1 crash file  15 records  10:00:00.001 to 10:00:00.024
request 1   2024-03-15 10:00:00.001000   1.00 ms   2 scopes   1 thread   Preview
     +0.000 ms  101    Preview/Preview  1.00 ms
     +0.100 ms  101      Preview/IspNode  500 us
     +0.150 ms  101          W IspNode: request 1: late by 17 us

series   200 2024-03-15 10:00:00  1 file  3 records  10:00:00.001 to 10:00:00.002
request 1   2024-03-15 10:00:00.001500   1.00 ms   1 scope   1 thread   Video
     +0.000 ms  201    Video/Video  1.00 ms
     +0.050 ms  201        D Video: first
second line
[0]
$ jlog show logs --request 2
series   100 2024-03-15 10:00:00  2 files + 1 crash file  15 records  10:00:00.001 to 10:00:00.024
request 2   2024-03-15 10:00:00.002100   1.00 ms   1 scope   2 threads   Capture
     +0.000 ms  101    Capture/Jpeg  1.00 ms, ends on tid 102
     +1.000 ms  102    Capture/Jpeg  ends, 1.00 ms after its begin on tid 101
[0]
$ jlog show logs --around 'IspNode :' --before 0.00005 --after 0.0004
  2024-03-15 10:00:00.001100   100   101 D JLog    : R AppRequest:1 M[Preview:4] +  :IspNode #2
> 2024-03-15 10:00:00.001150   100   101 W IspNode : request 1: late by 17 us
  2024-03-15 10:00:00.001500   200   201 D JLog    : R AppRequest:1 M[Video:10] +  :Video #1
  2024-03-15 10:00:00.001550   200   201 D Video   : first
second line
--
  2024-03-15 10:00:00.024600   100   101 D JLog    : R AppRequest:6 M[Preview:4] +  :IspNode #14
> 2024-03-15 10:00:00.024650   100   101 D IspNode : request 6: input is here
[0]
$ jlog show logs --around '03-15 10:00:00.0246' --before 0 --after 0 --level D --tid 101
  2024-03-15 10:00:00.024600   100   101 D JLog    : R AppRequest:6 M[Preview:4] +  :IspNode #14
[0]
$ jlog crash logs/cam_jlog_100_NE_2024_0315_100001_01.txt
series   100 2024-03-15 10:00:00  2 files + 1 crash file  15 records  10:00:00.001 to 10:00:00.024
crash    SIGSEGV : addr = 0x10   last record 2024-03-15 10:00:00.024650
file     logs/cam_jlog_100_NE_2024_0315_100001_01.txt
in flight
         tid 101     request 6  Preview > IspNode   open 150 us, the last 50 us
                     last: D IspNode: request 6: input is here
[0]
$ jlog boxed --pid 700
series   700 2024-03-15 10:00:00  1 file + 1 black box file  3 records  10:00:00.001 to 10:00:00.002
crash    ended without a dump (black box)   last record 10:00:00.002   (jlog crash)
health   serials 1..2 complete; 0 torn; 0 continuation lines; 1 record in two files
module  requests  median  gaps  above  longest  before
Video          1
errors         1 x  from 10:00:00.001  W Video: request 1: late
thread  records  a second  modules
701           3     3,000  Video
in flight at the end
         tid 701     request 1  Video > Encode   open 1.00 ms, the last 0 us
                     last: D JLog: R AppRequest:1 M[Video:10] +  :Encode #2
[0]
$ jlog crash boxed
series   701 2024-03-15 10:30:00  1 crash file  0 records
crash    SIGBUS : addr = 0x20
file     boxed/cam_jlog_701_NE_2024_0315_103000_01.txt
[0]
$ jlog crash boxed/cam_jlog_700_BB_2024_0315_110000_01.txt
series   700 2024-03-15 10:00:00  1 file + 1 black box file  3 records  10:00:00.001 to 10:00:00.002
crash    ended without a dump (black box)   last record 2024-03-15 10:00:00.002000
file     boxed/cam_jlog_700_BB_2024_0315_110000_01.txt
in flight
         tid 701     request 1  Video > Encode   open 1.00 ms, the last 0 us
                     last: D JLog: R AppRequest:1 M[Video:10] +  :Encode #2
[0]
$ jlog crash both
series   702 2024-03-15 10:00:01  1 crash file + 1 black box file  2 records  10:00:00.001 to 10:00:00.001
crash    SIGBUS : addr = 0x20   last record 2024-03-15 10:00:00.001000
file     both/cam_jlog_702_NE_2024_0315_100001_01.txt
in flight
         tid 703     request 1  Video   open 0 us
                     last: D JLog: R AppRequest:1 M[Video:10] +  :Video #1
[0]
$ jlog merge boxed --pid 700
2024-03-15 10:00:00.001000   700   701 D JLog    : R AppRequest:1 M[Video:10] +  :Video #1
BLACK BOX : pid = 700, start = 2024-03-15 09:59:59, box = 2024-03-15 10:00:00, ended without a dump
2024-03-15 10:00:00.001500   700   701 W Video   : request 1: late
2024-03-15 10:00:00.002000   700   701 D JLog    : R AppRequest:1 M[Video:10] +  :Encode #2
[0]
$ jlog merge logs --since 10:00:00.002 --until 10:00:00.0031
2024-03-15 10:00:00.002000   100   101 D JLog    : R AppRequest:1 M[Preview:4] -  :Preview #4
2024-03-15 10:00:00.002100   100   101 D JLog    : R AppRequest:2 M[Capture:8] +  :Jpeg #5
2024-03-15 10:00:00.002500   200   201 D JLog    : R AppRequest:1 M[Video:10] -  :Video #2
2024-03-15 10:00:00.003100   100   102 D JLog    : R AppRequest:2 M[Capture:8] -  :Jpeg #6
[0]
$ jlog diff logs new
scope            count  new      p50      new              p99      new
Preview/Preview      3    1   500 us  5.00 ms  +900 %  1.00 ms  5.00 ms  +400 %  changed
Capture/Jpeg         1    -  1.00 ms        -          1.00 ms        -          gone
Video/Video          1    -  1.00 ms        -          1.00 ms        -          gone
Preview/IspNode      1    1   500 us   500 us           500 us   500 us
new           1 x E Sensor: frame # of # is lost
gone          1 x E Flash: cannot charge # <bytes>
gone          1 x W IspNode: request #: late by # us
[1]
$ jlog diff quiet logs --level F --module Preview --until 10:00:00.003 --threshold 0
scope            count  new      p50      new        p99      new
Preview/IspNode      -    1        -   500 us          -   500 us    new
Preview/Preview      1    1  1.04 ms  1.00 ms    1.04 ms  1.00 ms
[1]
$ jlog crash quiet
jlog: no crash file and no black box
[1]
$ jlog show logs --request 77
jlog: no request 77
[1]
$ jlog show logs --around 'no such text'
jlog: nothing has the text 'no such text'
[1]
$ jlog logs --bad
jlog: The following argument was not expected: --bad (see jlog --help)
[2]
$ jlog logs --since 24:00
jlog: --since: '24:00' is not [[YYYY-]MM-DD ]hh:mm[:ss[.ffffff]] (see jlog --help)
[2]
$ jlog logs --since 10:02 --until 10:01
jlog: --since is later than --until (see jlog --help)
[2]
$ jlog requests logs --slow -1
jlog: Could not convert: --slow = -1 (see jlog --help)
[2]
$ jlog show logs --request 1 --around x
jlog: show takes either --request N or --around TIME|TEXT (see jlog --help)
[2]
$ jlog export json logs -o x --tz Mars/Olympus
jlog: --tz: 'Mars/Olympus' is not a time zone (see jlog --help)
[2]
$ jlog export ndjson -o quiet/cam_jlog_400_2024_0315_100000_01.txt logs
jlog: --output: quiet/cam_jlog_400_2024_0315_100000_01.txt has the name of a log file (see jlog --help)
[2]
$ jlog recover logs
jlog: logs: not a file
[3]
$ jlog recover empty/notes.txt
jlog: empty/notes.txt: its process ended while it made the box
[3]
$ jlog recover quiet/cam_jlog_400_2024_0315_100000_01.txt
jlog: quiet/cam_jlog_400_2024_0315_100000_01.txt: not a black box
[3]
$ jlog nosuch
jlog: nosuch: No such file or directory
[3]
$ jlog empty
jlog: empty: no log files (cam_jlog_*.txt) in this folder
[3]
$ jlog logs --pid 9
jlog: no files of process 9
[3]
$ jlog logs --module preview
jlog: no scope of module 'preview', but of: Capture, Preview, Video
[3]
$ jlog logs --logcat nosuch
jlog: nosuch: cannot be read
[3]
$ jlog merge logs >/dev/full
jlog: standard output: No space left on device
[3]
$ jlog export html logs -o /dev/full
jlog: /dev/full: No space left on device
[3]
)";

TEST_F(CommandTest, PrintsWhatIsAskedFor) {
    std::string transcript = "\n";
    for (const std::string& text : Support::splitLines(std::string(kTranscript))) {
        std::string_view arguments = text;
        if (Reader::take(arguments, "$ jlog")) {
            const int status = run(std::string(arguments));
            transcript += fmt::format("{}\n{}[{}]\n", text, out(), status);
        }
    }
    for (size_t i = 0; (i = transcript.find(kBytes)) != std::string::npos;) {
        transcript.replace(i, kBytes.size(), "<bytes>");
    }
    EXPECT_EQ(transcript, kTranscript);
}

/// The error, as an object.
std::string flash(const std::string& label) {
    return R"({"label": ")" + label + R"(", "pid": 100, "start": "2024-03-15 10:00:00.000000",
        "time": "2024-03-15 10:00:00.024450", "tid": 101, "kind": "details", "level": "E",
        "module": null, "module_id": null, "name": null, "request": null, "serial": null,
        "inferred": false, "tag": "Flash", "text": "cannot charge 3 \u001b[K\ufffd"})";
}

TEST_F(CommandTest, WritesJsonWhateverTheBytes) {
    EXPECT_EQ(run("report logs --json --strict --module Preview"), 1);
    const json series = json::parse(out())["series"];
    EXPECT_EQ(series.size(), 2U);
    EXPECT_EQ(series[0]["health"]["lost_serials"], 2);
    EXPECT_EQ(series[0]["gaps"][0]["absent"], json::array()) << "others have worked on request 2";
    EXPECT_EQ(series[0]["errors"][0]["text"], "cannot charge 3 \x1b[K\uFFFD");
    EXPECT_EQ(run("crash logs --json"), 0);
    EXPECT_EQ(json::parse(out())["in_flight"][0]["scopes"][1]["open_us"], 50);
    EXPECT_EQ(run("diff logs quiet --json"), 1);
    EXPECT_EQ(json::parse(out())["gone_errors"]["E Flash: cannot charge # \x1b[K\uFFFD"], 1);

    const std::pair<std::string, std::string> lines[] = {
            // commands, and the last of the objects that they print, one a line
            {"requests logs --json --pid 100",
             R"({"pid": 100, "start": "2024-03-15 10:00:00.000000",
                "request": 6, "begin": "2024-03-15 10:00:00.024500", "duration_us": 100,
                "open": true, "scopes": 2, "threads": 1, "modules": ["Preview"],
                "slowest": "Preview/IspNode", "slowest_us": null})"},
            {"export ndjson logs --scopes --tid 102 -o -", R"({"label": "", "pid": 100,
                "start": "2024-03-15 10:00:00.000000", "request": 2, "module": "Capture",
                "module_id": 8, "name": "Jpeg", "begin": "2024-03-15 10:00:00.002100",
                "end": "2024-03-15 10:00:00.003100", "duration_us": 1000, "enter_tid": 101,
                "exit_tid": 102, "enter_serial": 5, "exit_serial": 6, "fate": "closed"})"},
            {"export ndjson logs --records --tid 101 --label b1 --level E -o -", flash("b1")},
            {"merge logs --json --level E --tid 101", flash("")},
            {"show logs --around Flash --json --level E --tid 101", flash("")}};
    for (const auto& [command, last] : lines) {
        EXPECT_EQ(run(command), 0) << command;
        json object;
        for (const std::string& text : Support::splitLines(out())) {
            object = json::parse(text);
        }
        EXPECT_EQ(object, json::parse(last)) << command;
    }
}

TEST_F(CommandTest, RecoversABlackBox) {
    const std::string name(128, 'n');
    const std::string message(1023, 'm');
    constexpr int kMessages = 600;  // in several buffers
    std::filesystem::create_directory(mFolder.path("box"));
    const Support::Properties properties{
            {"vendor.debug.camera.jlog.blackbox", mFolder.path("box")}};
    const auto ending = Support::runChild([&] {
        __android_log_set_minimum_priority(ANDROID_LOG_WARN);
        Utils::JLog::File::FileAloneJLogger logger;
        logger.onLogEnter(4, "Preview", 7);
        for (int i = 0; i < kMessages; i++) {
            logger.onLogDetails(4, name.c_str(), Utils::JLog::LEVEL_INFO, message.c_str(),
                                message.size());
        }
        std::raise(SIGKILL);
    });
    ASSERT_EQ(ending, (Support::Ending{Support::Ending::KILLED, SIGKILL}));
    const std::string box = std::filesystem::directory_iterator(mFolder.path("box"))->path();

    EXPECT_EQ(run("crash " + box), 3);
    EXPECT_THAT(out(), testing::EndsWith(": a black box, see jlog recover\n"));
    EXPECT_EQ(run("crash box"), 3);
    EXPECT_THAT(out(), testing::EndsWith("in this folder, but black boxes, see jlog recover\n"));
    EXPECT_EQ(run("recover --tz UTC " + box), 0);
    const std::string whole = out();
    const std::vector<std::string> lines = Support::splitLines(whole);
    ASSERT_EQ(lines.size(), 2U + kMessages);
    EXPECT_THAT(lines[0], testing::MatchesRegex("BLACK BOX : pid = [0-9]+, start = .*, box = .*, "
                                                "ended without a dump"));
    EXPECT_THAT(lines[1], testing::EndsWith(" D JLog    : R AppRequest:7 M[Preview:4] +  :Preview "
                                            "#1"));
    for (size_t i = 2; i < lines.size(); i++) {
        EXPECT_THAT(lines[i], testing::EndsWith(" I " + name + ": " + message));
    }
    // The file has any name, and is not written over.
    EXPECT_EQ(run(fmt::format("recover --tz UTC {0} -o box.txt && '{1}' crash box.txt && "
                              "'{1}' recover {0} -o box.txt",
                              box, JCAM_JLOG)),
              2);
    EXPECT_THAT(out(), HasSubstr("request 7  Preview"));
    EXPECT_EQ(run("crash box.txt --json"), 0);
    EXPECT_TRUE(json::parse(out())["black_box"]);
    EXPECT_EQ(readFile(mFolder.path("box.txt")), whole);

    std::filesystem::resize_file(box, std::filesystem::file_size(box) / 16);
    EXPECT_EQ(run("recover --tz UTC " + box), 0);
    EXPECT_THAT(out(), HasSubstr(": a part of it is missing, and records with it\n" +
                                 whole.substr(0, whole.size() / 4)));
}

TEST_F(CommandTest, EndsWellWithoutReader) {
    std::string much;
    for (int i = 0; i < 4000; i++) {
        much += line(i, 7, 7, "V Much    : " + std::string(80, 'x'));
    }
    write("much/cam_jlog_7_2024_0315_100000_01.txt", much);
    for (const char* const command : {"merge much", "follow quiet"}) {
        const std::string all = std::string(command) + "; echo $? >status; } | { head -c 1";
        EXPECT_EQ(run(all), 0);
        EXPECT_EQ(out().size(), 1U) << out();
        EXPECT_EQ(readFile(mFolder.path("status")), "0\n") << command;
    }
}

TEST_F(CommandTest, MovesNoCursorOfATerminal) {
    write("odd/cam_jlog_5_2024_0315_100000_01.txt",
          scope(1000, 5, 6, "1 " + std::string(128, 'M') + ":4 + " + std::string(128, 'N'), 1) +
                  line(1100, 5, 6,
                       "E Tag     : \xc2\x9b"
                       "2J \x9b"
                       "2J \x07\r caf\xc3\xa9\tx\nnext") +
                  scope(1200, 5, 6, "1 " + std::string(128, 'M') + ":4 - " + std::string(128, 'N'),
                        2));
    for (const char* const command :
         {"report odd", "show odd --request 1", "merge odd", "requests odd", "diff quiet odd"}) {
        std::string shown = show(command);
        EXPECT_THAT(shown, HasSubstr("\x1b[")) << command;
        for (size_t i = 0; (i = shown.find("\x1b[")) != std::string::npos;) {
            shown.erase(i, shown.find('m', i) + 1 - i);  // colours
        }
        const bool isPlain = std::all_of(shown.begin(), shown.end(), [](char c) {
            return (c >= ' ' && c <= '~') ||
                   std::string_view("\r\n\t\xc3\xa9").find(c) != std::string::npos;
        });
        EXPECT_TRUE(isPlain) << command << '\n' << shown;
    }
    ASSERT_EQ(setenv("NO_COLOR", "1", 1), 0);
    const std::string shown = show("report odd");
    ASSERT_EQ(unsetenv("NO_COLOR"), 0);
    EXPECT_THAT(shown, Not(HasSubstr("\x1b")));
    EXPECT_THAT(shown, HasSubstr("E Tag: \\xc2\\x9b2J \\x9b2J \\x07\\x0d caf\xc3\xa9\tx\r\n"));
    EXPECT_THAT(shown, HasSubstr("\n" + std::string(47, 'M') + "...      1  200 us"));
    EXPECT_EQ(run("report odd"), 0);
    EXPECT_THAT(out(), HasSubstr(std::string(128, 'M') + '/' + std::string(128, 'N')));
}

TEST_F(CommandTest, FollowsRotationsAndRestarts) {
    const std::string first = "live/cam_jlog_500_2024_0315_100000_01.txt";
    const auto append = [&](const std::string& name, const std::string& text) {
        std::ofstream(mFolder.path(name), std::ios::app) << text;
    };
    write("live/cam_jlog_500_2024_0314_100000_01.txt", scope(1, 500, 1, "9 Preview:4 + Old", 1));
    write(first, scope(1000, 500, 501, "1 Preview:4 + Preview", 1));
    write("out", "");
    const pid_t child = start("follow live --level D --module Preview >out");
    const pid_t jsonChild = start("follow live --level D --module Preview --json >json");
    std::string expected = scope(1000, 500, 501, "1 Preview:4 + Preview", 1);
    bool isAsExpected = true;
    const auto expectAlso = [&](const std::string& text) {
        expected += text;
        isAsExpected = isAsExpected && Support::await([&] { return out() == expected; });
        EXPECT_TRUE(isAsExpected) << out();
    };
    expectAlso("");

    // Of another level, thread or module; and a line that is not whole yet.
    const std::string details = line(1200, 500, 501, "D Tag     : in Preview");
    append(first, line(1100, 500, 501, "V Tag     : in Preview") +
                          line(1150, 500, 502, "E Tag     : in no scope") +
                          scope(1160, 500, 502, "1 Capture:8 + Jpeg", 2) + details.substr(0, 30));
    append(first, details.substr(30));
    expectAlso(details);
    // Scopes go on over a rotation; a line that was never finished does not.
    append(first, scope(1300, 500, 501, "1 Preview:4 + IspNode", 3) +
                          line(1350, 500, 501, "D Tag     : torn").substr(0, 50));
    append("live/cam_jlog_500_2024_0315_100000_02.txt",
           "-- CONTINUED --\n" + line(1400, 500, 501, "W Tag     : after the rotation"));
    expectAlso(scope(1300, 500, 501, "1 Preview:4 + IspNode", 3) +
               line(1400, 500, 501, "W Tag     : after the rotation"));
    // It crashes, and is started again.
    append("live/cam_jlog_500_NE_2024_0315_100001_01.txt", "SIGSEGV : addr = 0x10\n");
    expectAlso("crash file live/cam_jlog_500_NE_2024_0315_100001_01.txt\n");
    append("live/cam_jlog_600_2024_0315_100002_01.txt",
           scope(2000, 600, 601, "1 Preview:4 + Preview", 1));
    expectAlso(scope(2000, 600, 601, "1 Preview:4 + Preview", 1));
    const auto objects = [&] { return readFile(mFolder.path("json")); };
    EXPECT_TRUE(Support::await([&] { return objects().find("\"pid\":600") != std::string::npos; }));
    const std::string all = objects();
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 5) << all;
    EXPECT_THAT(all, HasSubstr(R"("pid":500,"start":"2024-03-15 10:00:00.000000",)"
                               R"("time":"2024-03-15 10:00:00.001200","tid":501,"kind":"details",)"
                               R"("level":"D","module":"Preview","module_id":4,"name":"Preview",)"
                               R"("request":1,"serial":null,"inferred":true,"tag":"Tag",)"
                               R"("text":"in Preview"})"));
    for (const pid_t follower : {child, jsonChild}) {
        kill(follower, SIGINT);
        int status = -1;
        if (!Support::await([&] { return waitpid(follower, &status, WNOHANG) == follower; })) {
            kill(follower, SIGKILL);
        }
        EXPECT_EQ(status, 0);
    }
}

}  // namespace
}  // namespace JCam::Tool
