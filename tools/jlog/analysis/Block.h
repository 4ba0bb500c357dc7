#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/jlog/analysis/Entry.h"

namespace JCam::Tool {

/// The names that a thread has met. Numbered from 0 in the order in which it met them.
struct Discovered {
    std::vector<int> tids;
    std::vector<std::string> scopes;  // "Preview:4] +  :IspNode", with either sign
    std::vector<std::string> tags;
};

/// A record as it was taken apart, without what depends on the records before it.
struct RawRecord {
    int64_t microseconds = 0;  // since midnight
    uint32_t offset = 0;       // of its first byte in Block::bytes
    uint32_t size = 0;
    uint32_t textOffset = 0;  // from `offset`; the text reaches up to the last newline
    uint32_t thread = kNone;  // numbers of Discovered, of the thread that took the block apart
    uint32_t name = kNone;
    uint32_t request = 0;
    uint32_t serial = 0;
    uint32_t lines = 0;
    uint16_t date = 0;  // month * 100 + day; 0 if it is no line
    Kind kind = Kind::SKIPPED;
    char level = '\0';
    bool isTorn = false;
};

/// A part of a file, taken apart.
struct Block {
    [[nodiscard]] std::string_view bytesOf(const RawRecord& record) const {
        return bytes.substr(record.offset, record.size);
    }
    [[nodiscard]] std::string_view textOf(const RawRecord& record) const {
        std::string_view text = bytesOf(record).substr(record.textOffset);
        text.remove_suffix(text.ends_with('\n') ? 1 : 0);
        return text;
    }

    uint32_t file = 0;    // index into SeriesFiles::files
    uint64_t offset = 0;  // of the first byte in the file
    uint64_t line = 0;    // as Piece::line
    std::string_view bytes;
    std::vector<RawRecord> records;
    std::vector<std::string_view> reasons;  // of the skipped records, in order
    bool hasMark = false;   // a line in front of the first record says that the file goes on
    size_t parser = 0;      // the number of the thread that took it apart
    Discovered discovered;  // what that thread has met for the first time
    std::string problem;    // the file cannot be read

    std::unique_ptr<char[]> buffer;  // NOLINT(modernize-avoid-c-arrays): not initialised
    size_t capacity = 0;
};

}  // namespace JCam::Tool
