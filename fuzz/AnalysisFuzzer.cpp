// Log files that anybody may have damaged, and their names: the records of each, and what the
// command jlog makes of a series.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "Check.h"
#include "reader/LogFile.h"
#include "reader/Records.h"
#include "support/TempFolder.h"
#include "tools/jlog/analysis/Analysis.h"
#include "tools/jlog/analysis/RecordScan.h"
#include "tools/jlog/analysis/SeriesFiles.h"

namespace JCam {

namespace {

using Fuzz::check;
using Fuzz::checkEqual;

constexpr std::string_view kMark = "-- CONTINUED --\n";
constexpr int kPid = 4321;

// -- The records of a file

/// As the logger renders it.
std::string render(const Reader::Line& line) {
    const Reader::Origin& origin = line.origin;
    const std::string head = fmt::format("{} {} {:5} {:5} {} {:8}: ", origin.date, origin.time,
                                         origin.pid, origin.tid, line.level, line.tag);
    if (!line.scope) {
        return head + std::string(line.text);
    }
    const Reader::Scope& scope = *line.scope;
    return head + fmt::format("R AppRequest:{} M[{}:{:x}] {}  :{} #{}", scope.requestNo,
                              scope.module, scope.moduleId, scope.sign, scope.name, scope.serial);
}

void checkLine(const Reader::Line& line) {
    const std::string rendered = render(line);
    std::string_view reason;
    const std::optional<Reader::Line> again = Reader::parseLine(rendered, reason);
    check(again.has_value(), "a line that was rendered is one");
    checkEqual(render(*again), rendered, "a line that was rendered comes back");
    checkEqual(again->tag, line.tag, "the tag comes back");
    check(again->scope.has_value() == line.scope.has_value(), "a scope comes back");
}

/// "OFFSET+SIZE KIND" of each.
std::vector<std::string> checkRecords(std::string_view file, int pid) {
    std::vector<std::string> found;
    size_t offset = file.starts_with(kMark) ? kMark.size() : 0;
    Reader::Records records(file, pid);
    while (const auto* const record = records.next()) {
        check(record->offset == offset && !record->bytes.empty() &&
                      record->bytes.data() == file.data() + offset,
              "a record begins where the one before it ends");
        offset += record->bytes.size();
        check(record->isTorn ? offset == file.size() : record->bytes.ends_with('\n'),
              "only the last record has no newline");
        check(record->line.has_value() + record->crash.has_value() + !record->skipped.empty() == 1,
              "a record is one of three");
        if (record->line) {
            check(pid == 0 || record->line->origin.pid == pid, "a record is of its process");
            checkLine(*record->line);
        }
        found.push_back(fmt::format("{}+{} {}", record->offset, record->bytes.size(),
                                    record->line.has_value()));
    }
    check(offset == file.size(), "every byte is in a record");
    return found;
}

}  // namespace

namespace Tool {

namespace {

// -- A series

/// Files of one series, in memory.
class Files {
  public:
    /// Parts behind "=NEXT=" are files that go on, those behind "=CRASH=" crash files, and those
    /// behind "=BOX=" those of black boxes.
    explicit Files(std::string_view input) {
        constexpr std::pair<std::string_view, std::string_view> kKinds[] = {
                {"=NEXT=\n", ""}, {"=CRASH=\n", "NE_"}, {"=BOX=\n", "BB_"}};
        std::string_view prefix;
        for (int part = 1;; part++) {
            size_t end = input.size();
            size_t begin = end;  // of the next part
            std::string name =
                    fmt::format("cam_jlog_{}_{}2026_0315_142530_{:02}.txt", kPid, prefix, part);
            for (const auto& [mark, kind] : kKinds) {
                if (const size_t found = input.find(mark); found < end) {
                    end = found;
                    begin = found + mark.size();
                    prefix = kind;
                }
            }
            Support::writeFile(folder().path(name), std::string(input.substr(0, end)));
            contents.emplace(std::move(name), input.substr(0, end));
            if (end == input.size()) {
                break;
            }
            input.remove_prefix(begin);
        }
    }
    ~Files() {
        for (const auto& [name, content] : contents) {
            std::filesystem::remove(folder().path(name));
        }
    }
    Files(const Files&) = delete;
    Files& operator=(const Files&) = delete;

    /// That of the log files. A box that was made at another time is none of it.
    [[nodiscard]] static SeriesFiles series() {
        const std::vector<SeriesFiles> all = findSeries({folder().path()});
        return *std::find_if(all.begin(), all.end(), [](const SeriesFiles& series) {
            return !series.files.front().isCrash;
        });
    }

    std::map<std::string, std::string_view> contents;  // by name

  private:
    static const Support::TempFolder& folder() {
        static const Support::TempFolder sFolder(Support::TempFolder::inMemory());
        return sFolder;
    }
};

void checkBlocks(const SeriesFiles& series, std::string_view file, const BlockSizes& sizes) {
    SeriesFiles alone;
    alone.pid = series.pid;
    alone.files = {series.files.at(0)};
    alone.sizes = {file.size()};
    alone.pieces = {{0, 0, file.size(), 1}};
    std::vector<std::string> found;
    uint64_t end = file.starts_with(kMark) ? kMark.size() : 0;
    const auto consume = [&](const Block& block) {
        for (const RawRecord& record : block.records) {
            check(block.offset + record.offset == end, "blocks meet");
            end += record.size;
            found.push_back(fmt::format("{}+{} {}", block.offset + record.offset, record.size,
                                        record.thread != kNone));
        }
    };
    scanRecords(alone, consume, sizes);
    check(end == file.size(), "every byte is in a block");
    if (sizes.overhang >= file.size()) {
        check(found == checkRecords(file, kPid), "blocks have the records of the whole file");
    }
}

void checkEntries(const Analysis& log, const Files& files) {
    uint64_t records = 0;
    uint64_t bytes = 0;
    uint32_t ordinal = 0;
    std::vector<std::vector<std::pair<uint64_t, uint64_t>>> seen(log.files.files.size());
    log.forEachRecord([&](const Entry& entry, uint32_t scope) {
        const std::string name = log.files.files.at(entry.file).path.filename().string();
        const std::string_view content = files.contents.at(name);
        const uint64_t end = entry.offset + entry.bytes.size();
        check(end <= content.size(), "a record is in its file");
        checkEqual(entry.bytes, content.substr(entry.offset, entry.bytes.size()),
                   "a record has the bytes of its file");
        const auto newlines = std::count(content.begin(), content.begin() + entry.offset, '\n');
        check(static_cast<uint64_t>(newlines) + 1 == entry.lineNumber, "lines are counted");
        seen[entry.file].emplace_back(entry.offset, end);
        bytes += entry.bytes.size();
        const bool isScope = entry.kind == Kind::ENTER || entry.kind == Kind::EXIT;
        if (isScope || entry.kind == Kind::DETAILS) {
            records++;
            check(entry.thread < log.threads.size(), "a record has a thread");
        }
        if (isScope) {
            const Scope& own = log.scopes.at(scope);
            check((entry.kind == Kind::ENTER ? own.enter : own.exit) == ordinal, "its ordinal");
            check(own.name == entry.name && own.request == entry.request, "a record has its scope");
            check(log.serialOf(ordinal) == entry.serial, "serials come back");
            ordinal++;
        }
    });
    check(ordinal == log.events && records == log.health.records, "both passes see the same");
    uint64_t planned = 0;
    for (const Piece& piece : log.files.pieces) {
        const std::string name = log.files.files[piece.file].path.filename().string();
        const bool hasMark = piece.begin == 0 && files.contents.at(name).starts_with(kMark);
        planned += piece.end - piece.begin - (hasMark ? kMark.size() : 0);
    }
    check(bytes == planned, "every byte is visited");
    for (auto& ranges : seen) {
        std::sort(ranges.begin(), ranges.end());
        const auto overlap = [](const auto& a, const auto& b) { return a.second > b.first; };
        check(std::adjacent_find(ranges.begin(), ranges.end(), overlap) == ranges.end(),
              "no byte is visited twice");
    }
}

void checkScopes(const Analysis& log) {
    std::vector<bool> seen(log.events);
    const auto see = [&](uint32_t ordinal) {
        check(!seen.at(ordinal), "an event is in one scope");
        seen[ordinal] = true;
    };
    for (const Scope& scope : log.scopes) {
        check(scope.enter != kNone || scope.exit != kNone, "a scope has an event");
        if (scope.enter != kNone) {
            see(scope.enter);
        }
        if (scope.exit != kNone) {
            see(scope.exit);
        }
        if (scope.isClosed()) {
            check(scope.enter < scope.exit && scope.begin <= scope.end, "it begins, then ends");
            check(!scope.crossedThreads() || log.names.at(scope.name).crossesThreads,
                  "its name is known to cross threads");
        }
        check((log.fateOf(scope) == Fate::CLOSED) == scope.isClosed(), "it has its fate");
        check(scope.thread < log.threads.size(), "it has a thread");
    }
    check(std::find(seen.begin(), seen.end(), false) == seen.end(), "each event is in a scope");
}

void checkSeries(std::string_view input) {
    const Files files(input);
    const SeriesFiles series = Files::series();
    const std::string_view first = files.contents.begin()->second;
    if (!first.empty()) {
        const uint64_t size = input.size() % 97 + 1;
        checkBlocks(series, first, {size, first.size(), size});
        checkBlocks(series, first, {size, kMark.size() + size, size / 2});
    }
    const Analysis log(series);
    check(log.files.problems.empty(), "every file can be read");
    checkEntries(log, files);
    checkScopes(log);
}

}  // namespace

}  // namespace Tool

}  // namespace JCam

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // libFuzzer has copied the input: a read beyond its end is found.
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    static_cast<void>(JCam::checkRecords(input, 0));
    static_cast<void>(JCam::checkRecords(input, JCam::kPid));
    static_cast<void>(JCam::Reader::parseName(std::filesystem::path(input)));
    JCam::Tool::checkSeries(input);
    return 0;
}
