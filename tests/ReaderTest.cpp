// Log files taken apart again, whole and damaged ones.

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "reader/Series.h"
#include "support/TempFolder.h"

namespace JCam::Reader {
namespace {

using namespace std::string_literals;

/// "LINE:" and what is in the record, with a '*' behind it if the end of that is missing.
std::string describe(const Record& record) {
    std::string text = std::to_string(record.lineNumber) + ":";
    const auto add = [&text](const auto&... parts) { ((text.append(parts) += '|'), ...); };
    if (record.crash && record.crash->box) {
        const BlackBox& box = *record.crash->box;
        add(box.name, box.made, box.remark);
    } else if (record.crash) {
        add(record.crash->signal, std::to_string(record.crash->address));
    } else if (!record.line) {
        add(record.skipped);
    } else if (const auto& scope = record.line->scope) {
        add(std::to_string(scope->requestNo), scope->module, std::to_string(scope->moduleId),
            std::string(1, scope->sign), scope->name, std::to_string(scope->serial));
    } else {
        add(std::to_string(record.line->origin.microseconds), std::string(1, record.line->level),
            record.line->tag, record.line->text);
    }
    return text + (record.isTorn ? "*" : "");
}

TEST(Reader, TakesFilesApart) {
    const std::string at = "03-15 14:25:30.123456  4321  4350 ";
    const std::string box = "pid = 4321, start = 2026-03-15 14:25:29, box = 2026-03-15 14:25:30";
    const struct {
        std::string bytes;
        std::vector<std::string> records;
    } rows[] = {
            {"-- CONTINUED --\n", {}},
            {"-- CONTINUED --\n" + at + "I Tag     : \n", {"2:51930123456|I|Tag||"}},
            {at + "D JLog    : R AppRequest:42 M[(null):ff] -  :a #1\n#b #17\n",
             {"1:42|(null)|255|-|a #1\n#b|17|"}},
            // What is behind a scope is not its; a stamp that ends early is the begin of a record.
            {at + "D JLog    : R AppRequest:1 M[A:4] +  :b #2\nx\n03-15 14:25:30.12",
             {"1:1|A|4|+|b|2|", "3:no record begins here|*"}},
            {"SIGSEGV : addr = (nil)\n" + at + "I Tag     : \n",
             {"1:SIGSEGV|0|", "2:51930123456|I|Tag||"}},
            {at + "D JLog    : R AppRequest:42 M[A:4] *  :\n",
             {"1:51930123456|D|JLog|R AppRequest:42 M[A:4] *  :|"}},
            {at + "E A: long: tag: x: y\n-- CONTINUED --\n\n" + at + "V ABCDEFGH:: #1",
             {"1:51930123456|E|A: long: tag|x: y\n-- CONTINUED --\n|",
              "4:51930123456|V|ABCDEFGH:|#1|*"}},
            {"SIGBUS : addr = 0x1f\n" + at + "I Tag     : a\nSIGBUS : addr = 0x1\n",
             {"1:SIGBUS|31|", "2:51930123456|I|Tag|a\nSIGBUS : addr = 0x1|"}},
            // Another process is quoted; then come zeros and half a line.
            {at + "I Tag     : a\n03-15 14:25:30.123456     1     1 I Tag     : b\n\0\nc\n"s + at,
             {"1:51930123456|I|Tag|a\n03-15 14:25:30.123456     1     1 I Tag     : b|",
              "3:no record begins here|*"}},
            {"BLACK BOX : " + box + ", ended, 1 lost\n" + at + "I Tag     : a\n",
             {"1:" + box + "|2026-03-15 14:25:30|ended, 1 lost|", "2:51930123456|I|Tag|a|"}},
            {"BLACK BOX : " + box, {"1:" + box + "|2026-03-15 14:25:30||*"}},
            {"BLACK BOX : " + box + "1\n", {"1:no record begins here|"}},
            {"SIGBUS : addr = 16\nx\n" + at + "I no colon\n" + at + "J Tag     : a\n",
             {"1:no record begins here|", "3:no colon behind the tag|",
              "4:no level letter V, D, I, W, E or F|"}},
            {at + "I Tag     : a\0b\n"s, {"1:a NUL byte in the line|"}},
    };
    for (const auto& row : rows) {
        std::vector<std::string> records;
        Records walk(row.bytes, 4321);
        while (const auto* const record = walk.next()) {
            records.push_back(describe(*record));
        }
        EXPECT_EQ(records, row.records) << row.bytes;
    }
}

TEST(Reader, GoesThroughFilesInTheirOrder) {
    const Support::TempFolder folder;
    const std::vector<std::string> names = {"7_2026_1231_235959_99",    "7_2026_1231_235959_100",
                                            "7_2027_0101_000000_01",    "7_NE_2026_0101_000000_01",
                                            "7_BB_2026_0101_000000_01", "10_2026_0101_000000_01",
                                            "10_2026_0101_000000_1x"};
    for (const std::string& name : names) {
        Support::writeFile(folder.path("cam_jlog_" + name + ".txt"), name);
    }
    std::filesystem::create_directory(folder.path("cam_jlog_11_2026_0101_000000_01.txt"));
    std::vector<std::string> found;
    Series series(listLogFiles(folder.path()));
    while (const auto* const record = series.next()) {
        found.emplace_back(record->bytes.empty() ? record->skipped : record->bytes);
    }
    std::vector<std::string> expected = names;
    expected.back() = "the file cannot be read";
    EXPECT_EQ(found, expected);
}

}  // namespace
}  // namespace JCam::Reader
