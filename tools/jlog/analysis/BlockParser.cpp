#include "tools/jlog/analysis/BlockParser.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>

#include "tools/jlog/analysis/WallClock.h"

namespace JCam::Tool {

namespace {

constexpr std::string_view kNoRecord = "no record begins here";

void addSkipped(Block& block, size_t offset, size_t size) {
    RawRecord& record = block.records.emplace_back();
    record.offset = static_cast<uint32_t>(offset);
    record.size = static_cast<uint32_t>(size);
    block.reasons.emplace_back(kNoRecord);
    const std::string_view bytes = block.bytes.substr(offset, size);
    record.lines = static_cast<uint32_t>(std::count(bytes.begin(), bytes.end(), '\n'));
}

}  // namespace

BlockParser::BlockParser(const SeriesFiles& files, const BlockSizes& sizes, size_t number)
        : mFiles(files), mSizes(sizes), mNumber(number) {
    mRecent.fill({0, kNone});
}

BlockParser::~BlockParser() {
    closeFile();
}

void BlockParser::parse(const BlockTask& task, Block& block) {
    block.file = task.file;
    block.offset = task.begin;
    block.line = task.line;
    block.bytes = {};
    block.records.clear();
    block.reasons.clear();
    block.hasMark = false;
    block.parser = mNumber;
    block.discovered = {};
    block.problem.clear();
    mDiscovered = &block.discovered;
    if (openFile(task.file, block)) {
        takeApart(task, block);
    }
}

bool BlockParser::openFile(uint32_t file, Block& block) {
    if (mFd >= 0 && mOpened == file) {
        return true;
    }
    closeFile();
    mFd = open(mFiles.files[file].path.c_str(), O_RDONLY | O_CLOEXEC);
    mOpened = file;
    if (mFd < 0) {
        block.problem = std::strerror(errno);
    }
    return mFd >= 0;
}

void BlockParser::closeFile() {
    if (mFd >= 0) {
        close(std::exchange(mFd, -1));
    }
}

/// Reads on, so that the block has the bytes of the file from its offset to `end`, unless the
/// file is shorter now.
void BlockParser::readUpTo(uint64_t end, Block& block) const {
    const auto wanted = static_cast<size_t>(end - block.offset);
    if (block.capacity < wanted) {
        auto larger = std::make_unique_for_overwrite<char[]>(wanted);  // NOLINT(*-c-arrays)
        block.bytes.copy(larger.get(), block.bytes.size());
        block.buffer = std::move(larger);
        block.capacity = wanted;
    }
    size_t size = block.bytes.size();
    while (size < wanted) {
        const ssize_t got = pread(mFd, block.buffer.get() + size, wanted - size,
                                  static_cast<off_t>(block.offset + size));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            block.problem = got < 0 ? std::strerror(errno) : "it is shorter than before";
            break;
        }
        size += static_cast<size_t>(got);
    }
    block.bytes = {block.buffer.get(), size};
}

/// Blocks meet where the first record begins at or behind the border that was planned. Where
/// none does for long, they meet behind the overhang, and the rest is nobody's text.
void BlockParser::takeApart(const BlockTask& task, Block& block) {
    const int pid = mFiles.files[task.file].pid;
    // The byte in front tells whether the block begins with a line.
    const size_t lead = task.isFirst ? 0 : 1;
    block.offset = task.begin - lead;
    const auto own = static_cast<size_t>(task.end - block.offset);
    readUpTo(std::min(task.end + mSizes.firstOverhang, task.limit), block);
    const auto find = [&](size_t from) {
        return Reader::findRecord(block.bytes, std::min(from, block.bytes.size()), pid);
    };
    size_t next = find(own);
    if (next + Reader::kMaxBeginChars > block.bytes.size()) {
        readUpTo(std::min(task.end + mSizes.overhang + Reader::kMaxBeginChars, task.limit), block);
        next = find(own);
    }
    const size_t first = task.isFirst ? 0 : find(lead);
    const size_t begin = std::min<size_t>(first, lead + mSizes.overhang);
    const size_t end = std::min<size_t>(next, own + mSizes.overhang);
    if (begin < std::min(first, end)) {
        addSkipped(block, begin, std::min(first, end) - begin);
    }
    if (first < end) {
        walk(block, first, end, pid);
    }
}

void BlockParser::walk(Block& block, size_t begin, size_t end, int pid) {
    // A file that has a mark in front of its first record, or a signal, has it in its first
    // block.
    const bool isStart = block.offset + begin == 0;
    const bool isEnd = block.offset + end == mFiles.sizes[block.file];
    Reader::Records records(block.bytes.substr(begin, end - begin), pid);
    const size_t mark = records.offset();
    if (mark > 0) {
        block.hasMark = isStart;
        if (!isStart) {
            addSkipped(block, begin, mark);
        }
    }
    while (const Reader::Record* const record = records.next()) {
        RawRecord& raw = block.records.emplace_back();
        raw.offset = static_cast<uint32_t>(begin + record->offset);
        raw.size = static_cast<uint32_t>(record->bytes.size());
        raw.isTorn = record->isTorn && isEnd;
        // A line that goes on in the next block is counted there.
        raw.lines = static_cast<uint32_t>(record->lines) - (record->isTorn && !isEnd ? 1 : 0);
        if (record->line) {
            fill(raw, *record, *record->line);
        } else if (record->crash && isStart) {
            raw.kind = Kind::SIGNAL;
        } else {
            block.reasons.push_back(record->crash ? kNoRecord : record->skipped);
        }
    }
}

void BlockParser::fill(RawRecord& raw, const Reader::Record& record, const Reader::Line& line) {
    const Reader::Origin& origin = line.origin;
    raw.microseconds = origin.microseconds;
    raw.date = dateOf(origin.date);
    raw.level = line.level;
    raw.thread = numberOf(origin.tid);
    raw.textOffset = static_cast<uint32_t>(line.text.data() - record.bytes.data());
    bool isNew = false;
    if (line.scope) {
        const Reader::Scope& scope = *line.scope;
        raw.kind = scope.sign == '+' ? Kind::ENTER : Kind::EXIT;
        raw.request = scope.requestNo;
        raw.serial = scope.serial;
        const std::string_view key(
                scope.module.data(),
                static_cast<size_t>(scope.name.data() + scope.name.size() - scope.module.data()));
        raw.name = mScopes.find(key, isNew);
        if (isNew) {
            mDiscovered->scopes.emplace_back(key);
        }
    } else {
        raw.kind = Kind::DETAILS;
        raw.name = mTags.find(line.tag, isNew);
        if (isNew) {
            mDiscovered->tags.emplace_back(line.tag);
        }
    }
}

uint32_t BlockParser::numberOf(int tid) {
    auto& [cachedTid, cachedNumber] = mRecent[static_cast<unsigned int>(tid) % mRecent.size()];
    if (cachedTid != tid || cachedNumber == kNone) {
        const auto [found, isNew] =
                mThreads.try_emplace(tid, static_cast<uint32_t>(mThreads.size()));
        if (isNew) {
            mDiscovered->tids.push_back(tid);
        }
        cachedTid = tid;
        cachedNumber = found->second;
    }
    return cachedNumber;
}

}  // namespace JCam::Tool
