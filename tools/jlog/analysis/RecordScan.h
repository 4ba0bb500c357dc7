#pragma once

// Reads the files of a series in pieces of half a megabyte. Threads take the pieces apart, one each
// at a time and some pieces ahead; the caller gets them in order. Nothing is kept of a piece that
// was handed out, so the memory does not depend on the size of the files.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/jlog/analysis/Entry.h"
#include "tools/jlog/analysis/SeriesFiles.h"

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

/// How files are cut, in bytes.
struct BlockSizes {
    /// Small enough to stay in a core's cache between the kernel's copy and the parser.
    uint64_t block = uint64_t{512} * 1024;
    /// A record that begins in a block may reach so far into the next one. Texts have 1023
    /// characters at most; bytes that go on for longer without a record are nobody's text.
    uint64_t overhang = uint64_t{64} * 1024;
    /// Usually it reaches less far.
    uint64_t firstOverhang = 4096;
};

/// Calls `consume` on the caller's thread for each block of `files`, in order. What it throws ends
/// the scan. `sizes`: others let tests have many borders in few bytes.
void scanRecords(const SeriesFiles& files, const std::function<void(Block&)>& consume,
                 const BlockSizes& sizes = {});

/// How many threads take blocks apart.
[[nodiscard]] size_t countParsers();

}  // namespace JCam::Tool
