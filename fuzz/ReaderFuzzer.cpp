// Log files that anybody may have damaged, and the names of files.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "Check.h"
#include "reader/LogFile.h"
#include "reader/Records.h"

namespace JCam::Reader {

namespace {

using Fuzz::check;
using Fuzz::checkEqual;

/// As the logger renders it.
std::string render(const Line& line) {
    const Origin& origin = line.origin;
    const std::string head = fmt::format("{} {} {:5} {:5} {} {:8}: ", origin.date, origin.time,
                                         origin.pid, origin.tid, line.level, line.tag);
    if (!line.scope) {
        return head + std::string(line.text);
    }
    const Scope& scope = *line.scope;
    return head + fmt::format("R AppRequest:{} M[{}:{:x}] {}  :{} #{}", scope.requestNo,
                              scope.module, scope.moduleId, scope.sign, scope.name, scope.serial);
}

void checkLine(const Line& line) {
    const std::string rendered = render(line);
    std::string_view reason;
    const std::optional<Line> again = parseLine(rendered, reason);
    check(again.has_value(), "a line that was rendered is one");
    checkEqual(render(*again), rendered, "a line that was rendered comes back");
    checkEqual(again->tag, line.tag, "the tag comes back");
    check(again->scope.has_value() == line.scope.has_value(), "a scope comes back");
}

void checkRecords(std::string_view file, int pid) {
    constexpr std::string_view kMark = "-- CONTINUED --\n";
    size_t offset = file.starts_with(kMark) ? kMark.size() : 0;
    Records records(file, pid);
    while (const auto record = records.next()) {
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
    }
    check(offset == file.size(), "every byte is in a record");
}

}  // namespace

}  // namespace JCam::Reader

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // libFuzzer has copied the input: a read beyond its end is found.
    const std::string_view file(reinterpret_cast<const char*>(data), size);
    JCam::Reader::checkRecords(file, 0);
    JCam::Reader::checkRecords(file, 4321);
    static_cast<void>(JCam::Reader::parseName(std::filesystem::path(file)));
    return 0;
}
