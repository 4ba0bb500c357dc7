// What the analysis makes of small logs, whole and damaged ones.

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "reader/Records.h"
#include "support/TempFolder.h"
#include "tools/jlog/analysis/Analysis.h"
#include "tools/jlog/analysis/RecordScan.h"
#include "tools/jlog/analysis/SeriesFiles.h"
#include "tools/jlog/analysis/WallClock.h"

namespace JCam::Tool {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using Support::TempFolder;
using Support::writeFile;

constexpr char kName[] = "cam_jlog_7_2026_1126_145100_01.txt";
constexpr std::string_view kMark = "-- CONTINUED --\n";

std::string line(std::string_view stamp, int tid, std::string_view tag, std::string_view text) {
    return fmt::format("{}     7 {:5} D {:8}: {}\n", stamp, tid, tag, text);
}

/// Makes lines of words: "1+a" (thread 1 enters a), "2-a5" (with request 5), "1:text" (details);
/// "#5" is the next serial, "11-26@14:51:00" the time of the next line; others come each a
/// millisecond later.
std::string logOf(std::string_view words) {
    std::string date = "11-26";
    int64_t time = (14 * 3600 + 51 * 60) * int64_t{1000000};
    unsigned int serial = 1;
    std::string text;
    while (!words.empty()) {
        const std::string word(words.substr(0, words.find(' ')));
        words.remove_prefix(std::min(words.size(), word.size() + 1));
        if (word[0] == '#') {
            serial = static_cast<unsigned int>(std::stoul(word.substr(1)));
        } else if (word.find('@') != std::string::npos) {
            date = word.substr(0, 5);
            time = 0;
            for (const size_t at : {6U, 9U, 12U}) {
                time = time * 60 + std::stoll(word.substr(at, 2)) * 1000000;
            }
            time += word.size() > 15 ? std::stoi(word.substr(15)) : 0;
        } else {
            const int64_t seconds = time / 1000000;
            const std::string stamp =
                    fmt::format("{} {:02}:{:02}:{:02}.{:06}", date, seconds / 3600,
                                seconds / 60 % 60, seconds % 60, time % 1000000);
            const bool isDetails = word[1] == ':';
            text += line(stamp, word[0] - '0', isDetails ? "Tag" : "JLog",
                         isDetails ? word.substr(2)
                                   : fmt::format("R AppRequest:{} M[M:4] {}  :{} #{}",
                                                 word.size() > 3 ? word.substr(3) : "1", word[1],
                                                 word[2], serial++));
            time += 1000;
        }
    }
    return text;
}

/// "a1" (entered and left on thread 1), "a1>2" (left on 2), "a1.." (in flight), "a1?" (exit lost),
/// "!a1" (without enter), "?a1" (enter lost), "<a1" (before the log).
std::string describe(const Analysis& log, const Scope& scope) {
    const auto tid = [&](uint32_t thread) { return std::to_string(log.threads[thread].tid); };
    // In the order of Fate.
    constexpr const char* kBefore[] = {"", "", "", "!", "?", "<"};
    constexpr const char* kBehind[] = {"", "..", "?", "", "", ""};
    const auto fate = static_cast<size_t>(log.fateOf(scope));
    return kBefore[fate] + log.names[scope.name].name + tid(scope.thread) +
           (scope.crossedThreads() ? ">" + tid(scope.exitThread) : "") + kBehind[fate];
}

/// The number of the line with the byte at `offset`.
uint64_t lineAt(std::string_view text, size_t offset) {
    const std::string_view before = text.substr(0, offset);
    return static_cast<uint64_t>(std::count(before.begin(), before.end(), '\n')) + 1;
}

/// A folder with the files of one series, in memory: there are thousands.
class AnalysisTest : public testing::Test {
  protected:
    void write(const std::string& name, const std::string& text) {
        writeFile(mFolder.path(name), text);
    }
    /// Forgets files that were written before.
    void writeAlone(const std::string& text, const std::string& name = kName) {
        clear();
        write(name, text);
    }
    void clear() {
        for (const std::string& name : mFolder.names()) {
            fs::remove(mFolder.path(name));
        }
    }
    [[nodiscard]] SeriesFiles files() const { return findSeries({mFolder.path()}).at(0); }

    const TempFolder mFolder{TempFolder::inMemory()};
};

TEST_F(AnalysisTest, PairsInTheOrderOfTheFile) {
    const struct {
        std::string words;
        std::string scopes;
    } rows[] = {
            {"1+a 1+b 1-b 1-a", "a1 b1"},
            {"1+a 2+a 2-a 1-a", "a1 a2"},
            {"1+a 1+a5 1-a 1-a5", "a1 a1"},
            {"1+a 1+a 1-a", "a1.. a1"},  // the newest of its thread
            // What lies above is detached, and closed later by whoever has its key.
            {"1+a 1+b 1-a 1-b", "a1 b1"},
            {"1+a 1+b 1+b 1-a 2-b 1-b", "a1 b1>2 b1"},
            // Across threads: the oldest; then they are off the stacks from the start.
            {"1+a 2-a", "a1>2"},
            {"1+a 1+a 2-a 2-a", "a1>2 a1>2"},
            {"1+a 1+a 1-a 2+b 1-b 1+a 2-a 2-a", "a1 a1>2 b2>1 a1>2"},
            {"1+a 1+b 2-a 1-b", "a1>2 b1"},
            // An exit alone.
            {"1-a 1+b", "!a1 b1.."},
            {"#9 1-a 1+b", "<a1 b1.."},
            {"1+a 1-b #9 1-a 1-c 1+d", "a1 !b1 ?c1 d1.."},
            {"1+a #9 1+b", "a1? b1.."},
            // One line that only looks like a scope, with whatever serial, loses nothing.
            {"1+a #99 1+x #2 1+b 1-c", "a1.. x1.. b1.. !c1"},
            {"#50 1+a #9 1+x #51 1+b 1-c", "a1.. x1.. b1.. <c1"},
            // A stamp of no date, and one of no day.
            {"00-00@00:00:00 1+a 1-a", "a1"},
            {"1+a 02-31@10:00:00 1-a", "a1"},
    };
    for (const auto& row : rows) {
        writeAlone(logOf(row.words));
        const Analysis log(files());
        std::string scopes;
        for (const Scope& scope : log.scopes) {
            scopes += (scopes.empty() ? "" : " ") + describe(log, scope);
        }
        EXPECT_EQ(scopes, row.scopes) << row.words;
        uint32_t ordinal = 0;
        log.forEachEvent([&](uint32_t scope, bool isEnter) {
            EXPECT_EQ(isEnter ? log.scopes[scope].enter : log.scopes[scope].exit, ordinal++);
        });
        EXPECT_EQ(ordinal, log.events);
    }
}

TEST_F(AnalysisTest, DetailsBelongToTheInnermostScopeOfTheirThread) {
    writeAlone(logOf("1:a 1+s 1:b 2:c 1+t 1:d 1-t 1:e 1+u 1-s 1:f 1+x 1:g 2-x 1:h") + "\nmore\n");
    const Analysis log(files());
    std::string found;
    log.forEachRecord([&](const Entry& entry, uint32_t scope) {
        if (entry.kind == Kind::DETAILS) {
            found += entry.text.substr(0, 1);
            found += scope == kNone ? "-" : log.names[log.scopes[scope].name].name;
            found += entry.lines > 1 ? std::to_string(entry.lines) : "";
        }
    });
    EXPECT_EQ(found, "a-bsc-dtesf-g-h-3");
    EXPECT_EQ(log.health.continuations, 2U);
}

TEST_F(AnalysisTest, GivesStampsTheirYearAndFindsWhereTheClockWasSet) {
    const struct {
        std::string words;
        std::string last;      // the last stamp
        int64_t duration = 0;  // of the first scope
        size_t steps = 0;
        std::string series = "2026_1126_145100_01";
    } rows[] = {
            {"1+a 1-a", "2026-11-26 14:51:00.001000", 1000},
            {"12-31@23:59:59 1+a 01-01@00:00:01 1-a", "2027-01-01 00:00:01.000000", 2000000, 0,
             "2026_1231_235959_01"},
            // Named before the turn of the year, and by a clock a moment behind it.
            {"01-01@00:00:01 1+a", "2027-01-01 00:00:01.000000", 0, 0, "2026_1231_235959_01"},
            {"12-31@23:59:59 1+a", "2026-12-31 23:59:59.000000", 0, 0, "2027_0101_000000_01"},
            {"00-00@00:00:00 1+a", "2026-11-26 00:00:00.000000"},
            {"00-00@00:00:00 1:x 11-26@14:51:00 1+a 1-a", "2026-11-26 14:51:00.001000", 1000},
            // An hour back and forward, first seen on any thread, also on a new one.
            {"1+a 11-26@13:51:00 1:x 1-a", "2026-11-26 13:51:00.001000", 1000, 1},
            {"1+a 11-26@13:51:00 2-a", "2026-11-26 13:51:00.000000", 0, 1},
            {"1+a 2:x 11-26@13:51:00 1:x 2:x 1-a 11-26@14:51:01 1+a", "2026-11-26 14:51:01.000000",
             3000, 1},
            {"1+a 11-26@15:51:00 1:x 1-a", "2026-11-26 15:51:00.001000", 1000, 1},
            // Not set: a signal's record in front of an older one; a pause in which nothing was
            // open; records that are missing.
            {"1+a 11-26@14:50:59.995000 1-a", "2026-11-26 14:50:59.995000"},
            {"1+a 1-a 11-26@15:51:00 1+b", "2026-11-26 15:51:00.000000", 1000},
            {"1+a 11-26@15:51:00 1:x 2:x #9 1-a", "2026-11-26 15:51:00.002000", 3600002000},
            // Of the monotonic clock, east and west; and no such clock: only the end of a series.
            {"01-02@03:00:00 1+a 1-a", "2026-11-26 14:51:00.001000", 1000},
            {"12-31@23:59:59 1+a 01-01@00:00:01 1-a", "2026-11-26 14:51:02.000000", 2000000},
            {"01-20@12:00:00 1+a", "2027-01-20 12:00:00.000000", 0, 0, "2027_0105_120000_04"},
            {"01-01@00:05:00 1+a", "2027-01-02 14:25:30.000000", 0, 0, "2027_0102_142530_01"},
            {"04-20@12:00:00 1+a", "2027-10-15 12:00:00.000000", 0, 0, "2027_1015_120000_01"},
            {"01-25@12:00:00 1+a", "2028-01-25 12:00:00.000000", 0, 0, "2027_1220_120000_05"},
    };
    for (const auto& row : rows) {
        writeAlone(logOf(row.words), "cam_jlog_7_" + row.series + ".txt");
        const Analysis log(files());
        char last[27] = {};
        log.forEachRecord([&](const Entry& entry, uint32_t) { formatWall(entry.wall, last); });
        EXPECT_EQ(last, row.last) << row.words;
        const Scope& scope = log.scopes.at(0);
        EXPECT_EQ(scope.isClosed() ? scope.end - scope.begin : 0, row.duration) << row.words;
        EXPECT_EQ(log.steps.size(), row.steps) << row.words;
    }
}

/// Lines of letters: a capital is a scope line with a serial, a small letter details; the same
/// letter is the same bytes. '~' cuts the last line. '*' is a hundred lines that differ.
std::string linesOf(std::string_view letters) {
    constexpr std::string_view kStamp = "11-26 14:51:00.000000";
    std::string text;
    for (const char c : letters) {
        if (c == '~') {
            text.resize(text.size() - 5);
        } else if (c == '*') {
            for (int i = 0; i < 100; i++) {
                text += line(kStamp, 7, "Tag", fmt::format("*{}", i));
            }
        } else if (c >= 'a') {
            text += line(kStamp, 7, "Tag", std::string(9, c));
        } else {
            text += line(kStamp, 7, "JLog",
                         fmt::format("R AppRequest:1 M[M:4] +  :{} #{}", c, c - 'A'));
        }
    }
    return text;
}

/// The first line of the file of a black box. `made`: "hh:mm:ss".
std::string boxLine(const std::string& made) {
    return fmt::format(
            "BLACK BOX : pid = 7, start = 2026-11-26 00:00:00, box = 2026-11-26 {}, "
            "ended without a dump\n",
            made);
}

TEST_F(AnalysisTest, JoinsCrashFilesWhereTheyOverlap) {
    const struct {
        std::vector<std::string> logs;
        std::vector<std::string> dumps;
        std::string records;  // '$' is the signal, '%' the first line of a black box
        uint64_t repeats;
        std::vector<std::string> boxes = {};
    } rows[] = {
            {{"aBcD"}, {"BcDef"}, "aBcD$ef", 3},
            {{"aBcD"}, {"BcD"}, "aBcD$", 3},
            {{"aB"}, {"Cd"}, "aB$Cd", 0},
            {{""}, {"aB"}, "$aB", 0},
            {{"aBcD"}, {""}, "aBcD$", 0},
            {{"Bc"}, {"aBc"}, "aBc$", 2},  // older files are gone
            // Lines that the program has logged twice.
            {{"aBccc"}, {"Bccccc"}, "aBccc$cc", 4},
            {{"aaBaa"}, {"aaBaaa"}, "aaBaa$a", 5},
            // The log ends within a line.
            {{"aBc~"}, {"Bcd"}, "aB$cd", 1},
            {{"aBcd~"}, {"cde"}, "aBc$de", 1},
            // Records that were being made, behind and in front of the first serial.
            {{"aBxCyD"}, {"BCDe"}, "aBxCyD$e", 3},
            {{"aBCD"}, {"BxCDe"}, "aBxCD$e", 3},
            {{"abxCd"}, {"abCde"}, "abxCd$e", 4},
            // A rotation within the overlap, also one in front of the first serial.
            {{"aBc", "dEf"}, {"BcdEfg"}, "aBcdEf$g", 5},
            {{"abc", "dEf"}, {"bcdEfg"}, "abcdEf$g", 5},
            // No serial: the longest end.
            {{"aBcdcd"}, {"cdcde"}, "aBcdcd$e", 4},
            // The process went on.
            {{"aBcDeF"}, {"BcD"}, "aBcD$eF", 3},
            {{"aBcDeF"}, {"BcxD"}, "aBcxD$eF", 3},
            // And crashed again.
            {{"aB"}, {"Bc", "BcD"}, "aB$c$D", 3},
            // Without a signal, and in the middle of a write.
            {{"aBcD"}, {}, "aBcD%ef", 3, {"BcDef"}},
            {{"aBcD~"}, {}, "aBc%DeF", 2, {"BcDeF"}},
            {{"aBcd~"}, {}, "aBc%de", 1, {"cde"}},
            // The box has what the crash file lacks, and not the buffers that it has whole.
            {{"aB"}, {"BcD*E*fG"}, "aB$cxD*E*fG%h", 6, {"BcxDfGh"}},
            {{"ab"}, {"bcEf"}, "ab$DcEf%g", 5, {"bDcEfg"}},
            {{"aB"}, {"BcD~"}, "aB$c%De", 3, {"BcDe"}},
            // One box, twice.
            {{"aB"}, {}, "aB%cD%e", 4, {"BcD", "BcDe"}},
    };
    for (const auto& row : rows) {
        clear();
        for (size_t i = 0; i < row.logs.size(); i++) {
            write(fmt::format("cam_jlog_7_2026_1126_145100_{:02}.txt", i + 1),
                  std::string(i == 0 ? "" : kMark) + linesOf(row.logs[i]));
        }
        for (size_t i = 0; i < row.dumps.size(); i++) {
            write(fmt::format("cam_jlog_7_NE_2026_1126_1452{:02}_01.txt", i),
                  "SIGSEGV : addr = 0x10\n" + linesOf(row.dumps[i]));
        }
        for (size_t i = 0; i < row.boxes.size(); i++) {
            write(fmt::format("cam_jlog_7_BB_2026_1126_1452{:02}_01.txt", i),
                  boxLine("14:50:59") + linesOf(row.boxes[i]));
        }
        const Analysis log(files());
        std::string records;
        log.forEachRecord([&](const Entry& entry, uint32_t scope) {
            const char letter = entry.kind == Kind::SIGNAL ? (entry.bytes[0] == 'B' ? '%' : '$')
                                : entry.kind == Kind::DETAILS
                                        ? entry.text[0]
                                        : log.names[log.scopes[scope].name].name[0];
            if (letter != '*' || !records.ends_with('*')) {
                records += letter;
            }
            const std::string file = Support::readFile(log.files.files[entry.file].path.string());
            EXPECT_EQ(lineAt(file, entry.offset), entry.lineNumber);
        });
        EXPECT_EQ(records, row.records) << row.logs[0];
        EXPECT_EQ(log.files.repeats, row.repeats) << row.records;
        EXPECT_EQ(log.crashes.size(), row.dumps.size() + (row.boxes.empty() ? 0 : 1));
        EXPECT_EQ(log.isBlackBox(log.crashes.back()), row.dumps.empty());
        EXPECT_TRUE(log.files.problems.empty());
    }
}

TEST_F(AnalysisTest, ASeriesIsOneStartOfALogger) {
    const struct {
        std::vector<std::string> files;   // FOLDER/PID_[PREFIX_]HOUR_NUMBER[@TIME of its box]
        std::vector<std::string> series;  // the files of each
    } rows[] = {
            {{"a/7_14_02", "a/7_14_01"}, {"a/7_14_01 a/7_14_02"}},
            // The number of a process used again, and another process; the older first.
            {{"a/7_14_01", "a/7_09_01", "a/8_10_01"}, {"a/7_09_01", "a/8_10_01", "a/7_14_01"}},
            // The fallback folder goes on; a copy of the same file does not.
            {{"a/7_14_01", "b/7_14_02"}, {"a/7_14_01 b/7_14_02"}},
            {{"a/7_14_01", "b/7_14_01"}, {"a/7_14_01", "b/7_14_01"}},
            // A crash belongs to the newest that began before it, beside it if there are two.
            {{"a/7_09_01", "a/7_14_01", "a/7_NE_13_01", "a/7_X_Y_15_01"},
             {"a/7_09_01 a/7_NE_13_01", "a/7_14_01 a/7_X_Y_15_01"}},
            {{"a/7_14_01", "b/7_14_01", "b/7_NE_15_01"}, {"a/7_14_01", "b/7_14_01 b/7_NE_15_01"}},
            {{"a/7_NE_15_01"}, {"a/7_NE_15_01"}},
            // A black box belongs to the one that began when it was made, if anybody knows.
            {{"a/7_09_01", "a/7_14_01", "a/7_BB_15_01@08:59:59"},
             {"a/7_09_01 a/7_BB_15_01", "a/7_14_01"}},
            {{"a/7_14_01", "a/7_BB_15_01@08:59:59"}, {"a/7_BB_15_01", "a/7_14_01"}},
            {{"a/7_09_01", "a/7_14_01", "a/7_BB_15_01"}, {"a/7_09_01", "a/7_14_01 a/7_BB_15_01"}},
            {{"a/7_NE_14_01", "a/7_BB_15_01@08:59:59"}, {"a/7_NE_14_01 a/7_BB_15_01"}},
            {{"a/7_NE_09_01", "a/7_BB_15_01@13:59:59", "a/7_BB_16_01@13:59:59"},
             {"a/7_NE_09_01", "a/7_BB_15_01 a/7_BB_16_01"}},
    };
    for (const auto& row : rows) {
        const TempFolder folder(TempFolder::inMemory());
        std::vector<fs::path> paths;
        for (const std::string& named : row.files) {
            const size_t box = std::min(named.find('@'), named.size());
            const std::string file = named.substr(0, box);
            const fs::path parent = folder.path(file.substr(0, 1));
            fs::create_directories(parent);
            const size_t hour = file.size() - 5;
            const fs::path path =
                    parent / ("cam_jlog_" + file.substr(2, hour - 2) + "2026_1126_" +
                              file.substr(hour, 2) + "0000" + file.substr(hour + 2) + ".txt");
            writeFile(path.string(),
                      (box < named.size() ? boxLine(named.substr(box + 1)) : "") + linesOf("a"));
            // Named in three ways.
            paths.insert(paths.end(), {path, parent, parent / ".." / parent.filename()});
        }
        // What is no log file, or no file.
        fs::create_directory(folder.path("a/cam_jlog_9_2026_1126_145100_01.txt"));
        fs::create_symlink("cam_jlog_9_2026_1126_145100_02.txt",
                           folder.path("a/cam_jlog_9_2026_1126_145100_02.txt"));
        std::vector<std::string> found;
        for (const SeriesFiles& series : findSeries(paths)) {
            std::string& names = found.emplace_back();
            for (const Reader::LogFile& file : series.files) {
                std::string name =
                        fs::canonical(file.path).string().substr(folder.path().size() + 1);
                for (const char* dropped : {"cam_jlog_", "2026_1126_", "0000", ".txt"}) {
                    name.erase(name.find(dropped), std::string_view(dropped).size());
                }
                names += (names.empty() ? "" : " ") + name;
            }
        }
        EXPECT_EQ(found, row.series) << row.files[0];
    }
    EXPECT_THROW(static_cast<void>(findSeries({"/nonexistent"})), std::runtime_error);
}

/// Lines of all lengths between zeros, quotes of lines, and lines that lost their end.
std::string damagedLog() {
    const std::string origin = "11-26 14:51:00.000000     7     8 ";
    std::string text(kMark);
    for (size_t i = 0; i < 40; i++) {
        text += origin + "D Tag     : " + std::string(i * 3, 'x') + "\n";
        text += i % 4 == 1 ? "more\n\n" : "";
        text += i % 5 == 2 ? origin + "D Tag     : quotes " + origin : "";
        text += i % 6 == 3 ? origin + "D Tag:\n" : "";
        text += i % 7 == 4 ? std::string(i * 10, '\0') + "\n" + std::string(kMark) : "";
        text += i % 8 == 5 ? "11-26 14:51:00.000000" + std::string(i * 5, ' ') + "7 8 D T\n" : "";
        text += i % 9 == 6 ? std::string(i * 8, '\xff') : "";
    }
    return text;
}

TEST_F(AnalysisTest, AccountsForEachByteOnceWhereverBlocksMeet) {
    const std::string text = damagedLog();
    std::vector<std::string> expected;
    Reader::Records whole(text, 7);
    while (const auto* const record = whole.next()) {
        expected.push_back(fmt::format("{}+{} {}", record->offset, record->bytes.size(),
                                       record->line ? "line" : record->skipped));
    }
    writeAlone(text);
    const SeriesFiles series = files();
    for (uint64_t size = 1; size < 300; size++) {
        // With a short overhang what is no record may be in parts; but no byte is lost.
        for (const uint64_t overhang : {text.size(), 200 + size % 50}) {
            std::vector<std::string> found;
            uint64_t end = kMark.size();
            const auto consume = [&](const Block& block) {
                auto reason = block.reasons.begin();
                for (const RawRecord& record : block.records) {
                    const uint64_t offset = block.offset + record.offset;
                    ASSERT_EQ(offset, end) << size << ", " << overhang;
                    end = offset + record.size;
                    found.push_back(fmt::format("{}+{} {}", offset, record.size,
                                                record.kind == Kind::SKIPPED ? *reason++ : "line"));
                }
            };
            scanRecords(series, consume, {size, overhang, size % 200});
            ASSERT_EQ(end, text.size()) << size << ", " << overhang;
            ASSERT_TRUE(overhang < text.size() || found == expected) << size;
        }
    }
    // Longer than the overhang that there is, and torn anywhere.
    const std::string zeros(1600000, '\0');
    std::vector<std::string> texts = {linesOf("aBc") + zeros + linesOf("d") + zeros};
    for (size_t size = 0; size < text.size(); size += 9) {
        texts.push_back("SIGBUS : addr = 0x1\n" + text.substr(0, size));
    }
    for (const std::string& torn : texts) {
        writeAlone(torn);
        std::string visited;
        Analysis(files()).forEachRecord([&](const Entry& entry, uint32_t) {
            ASSERT_EQ(entry.offset, visited.size());
            ASSERT_EQ(lineAt(visited, visited.size()), entry.lineNumber);
            visited += entry.bytes;
        });
        ASSERT_TRUE(visited == torn) << torn.size();
    }
}

TEST_F(AnalysisTest, SurvivesFilesThatChange) {
    const std::string text = logOf("1+a 1:x 1-a 1+b 1:y 1-b");
    const std::string shorter = text.substr(0, text.size() / 2);
    const std::string other = logOf("9+z 9-z 8-y 1-a 1+b 1:z 1:y");
    for (const std::string& now : {shorter, ""s, other, text + other}) {
        writeAlone(text);
        write("cam_jlog_7_NE_2026_1126_145200_01.txt", text);
        const SeriesFiles series = files();
        const Analysis before(series);
        write(kName, now);
        const Analysis after(series);
        EXPECT_EQ(after.files.problems.size(), now.size() < text.size() ? 1U : 0U);
        before.forEachRecord([&](const Entry& entry, uint32_t scope) {
            if (scope != kNone && entry.kind != Kind::DETAILS) {
                EXPECT_EQ(entry.name, before.scopes[scope].name);
            }
        });
        fs::remove(mFolder.path(kName));
        const Analysis none(series);
        EXPECT_EQ(none.files.problems.size(), 1U);
        EXPECT_TRUE(none.read({0, 10, 0}).empty());
        before.forEachRecord([](const Entry&, uint32_t) {});
    }
}

}  // namespace
}  // namespace JCam::Tool
