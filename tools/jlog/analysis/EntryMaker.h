#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "tools/jlog/analysis/Block.h"
#include "tools/jlog/analysis/Entry.h"

namespace JCam::Tool {

/// Counts the lines of the files of a series, and makes what can be said of a record without those
/// before it.
class EntryMaker {
  public:
    explicit EntryMaker(size_t files) : mNext(files, 1) {}

    /// `block` is the next one.
    void begin(const Block& block) {
        uint64_t& next = mNext[block.file];
        next = (block.line != 0 ? block.line : next) + (block.hasMark ? 1 : 0);
        mReason = block.reasons.begin();
    }
    /// `record` is the next one of the block.
    Entry entryOf(const Block& block, const RawRecord& record) {
        Entry entry;
        entry.kind = record.kind;
        entry.level = record.level;
        entry.isTorn = record.isTorn;
        entry.request = record.request;
        entry.serial = record.serial;
        entry.lines = record.lines;
        entry.wall = entry.time = kNoTime;
        entry.bytes = block.bytesOf(record);
        entry.text = record.kind == Kind::SKIPPED ? *mReason++ : block.textOf(record);
        entry.file = block.file;
        entry.lineNumber = mNext[block.file];
        entry.offset = block.offset + record.offset;
        mNext[block.file] += record.lines;
        return entry;
    }

  private:
    std::vector<uint64_t> mNext;  // line of each file
    std::vector<std::string_view>::const_iterator mReason;
};

}  // namespace JCam::Tool
