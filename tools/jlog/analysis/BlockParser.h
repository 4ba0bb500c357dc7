#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <utility>

#include "reader/Records.h"
#include "tools/jlog/analysis/Block.h"
#include "tools/jlog/analysis/Numbers.h"
#include "tools/jlog/analysis/SeriesFiles.h"

namespace JCam::Tool {

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

/// What of a file becomes a block.
struct BlockTask {
    uint32_t file = 0;
    uint64_t begin = 0;
    uint64_t end = 0;
    bool isFirst = false;  // of its piece: a record begins at `begin`
    uint64_t limit = 0;    // the end of its piece: no record reaches beyond
    uint64_t line = 0;     // as Piece::line
};

/// Reads blocks and takes them apart. Each thread has its own.
class BlockParser {
  public:
    /// `number`: that of the thread.
    BlockParser(const SeriesFiles& files, const BlockSizes& sizes, size_t number);
    ~BlockParser();
    BlockParser(const BlockParser&) = delete;
    BlockParser& operator=(const BlockParser&) = delete;

    void parse(const BlockTask& task, Block& block);

  private:
    [[nodiscard]] bool openFile(uint32_t file, Block& block);
    void closeFile();
    void readUpTo(uint64_t end, Block& block) const;
    void takeApart(const BlockTask& task, Block& block);
    void walk(Block& block, size_t begin, size_t end, int pid);
    void fill(RawRecord& raw, const Reader::Record& record, const Reader::Line& line);
    [[nodiscard]] uint32_t numberOf(int tid);

    const SeriesFiles& mFiles;
    const BlockSizes& mSizes;
    const size_t mNumber;
    int mFd = -1;
    uint32_t mOpened = kNone;  // the file of mFd
    Numbers mScopes;
    Numbers mTags;
    std::unordered_map<int, uint32_t> mThreads;        // numbers of thread ids
    std::array<std::pair<int, uint32_t>, 64> mRecent;  // some of them
    Discovered* mDiscovered = nullptr;                 // of the current block
};

}  // namespace JCam::Tool
