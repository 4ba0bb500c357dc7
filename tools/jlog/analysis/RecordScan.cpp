#include "tools/jlog/analysis/RecordScan.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <utility>

#include "reader/Records.h"
#include "reader/Text.h"

namespace JCam::Tool {

namespace {

constexpr std::string_view kNoRecord = "no record begins here";

struct Task {
    uint32_t file = 0;
    uint64_t begin = 0;
    uint64_t end = 0;
    bool isFirst = false;  // of its piece: a record begins at `begin`
    uint64_t limit = 0;    // the end of its piece: no record reaches beyond
    uint64_t line = 0;     // as Piece::line
};

/// Numbers for byte strings. Open addressing: a look-up is one comparison as a rule.
class Numbers {
  public:
    /// The number of `key`; `isNew` tells whether it was just given.
    uint32_t find(std::string_view key, bool& isNew) {
        if (mKeys.size() * 2 >= mSlots.size()) {
            grow();
        }
        const uint64_t hash = hashOf(key);
        size_t slot = hash & (mSlots.size() - 1);
        for (; mSlots[slot].number != kNone; slot = (slot + 1) & (mSlots.size() - 1)) {
            if (mSlots[slot].hash == hash && mKeys[mSlots[slot].number] == key) {
                isNew = false;
                return mSlots[slot].number;
            }
        }
        isNew = true;
        mSlots[slot] = {hash, static_cast<uint32_t>(mKeys.size())};
        mKeys.emplace_back(key);
        return mSlots[slot].number;
    }

  private:
    struct Slot {
        uint64_t hash = 0;
        uint32_t number = kNone;
    };

    static uint64_t hashOf(std::string_view key) {
        constexpr uint64_t kMultiplier = 0x9e3779b97f4a7c15;  // 2^64 / golden ratio
        uint64_t hash = key.size();
        while (key.size() >= sizeof(uint64_t)) {
            uint64_t word = 0;
            std::memcpy(&word, key.data(), sizeof(word));
            hash = (hash ^ word) * kMultiplier;
            hash ^= hash >> 32;
            key.remove_prefix(sizeof(word));
        }
        uint64_t word = 0;
        for (const char c : key) {
            word = word << 8 | static_cast<unsigned char>(c);
        }
        hash = (hash ^ word) * kMultiplier;
        return hash ^ hash >> 32;
    }

    void grow() {
        std::vector<Slot> old = std::move(mSlots);
        constexpr size_t kFirstSlots = 256;
        mSlots.assign(std::max(kFirstSlots, old.size() * 2), Slot{});
        for (const Slot& moved : old) {
            if (moved.number != kNone) {
                size_t slot = moved.hash & (mSlots.size() - 1);
                while (mSlots[slot].number != kNone) {
                    slot = (slot + 1) & (mSlots.size() - 1);
                }
                mSlots[slot] = moved;
            }
        }
    }

    std::vector<Slot> mSlots;
    std::vector<std::string> mKeys;
};

/// Takes blocks apart. Each thread has its own.
class Parser {
  public:
    Parser(const SeriesFiles& files, const BlockSizes& sizes, size_t number)
            : mFiles(files), mSizes(sizes), mNumber(number) {}
    ~Parser() { closeFile(); }
    Parser(const Parser&) = delete;
    Parser& operator=(const Parser&) = delete;

    void parse(const Task& task, Block& block) {
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

  private:
    bool openFile(uint32_t file, Block& block) {
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

    void closeFile() {
        if (mFd >= 0) {
            close(std::exchange(mFd, -1));
        }
    }

    /// Reads on, so that the block has the bytes of the file from its offset to `end`, unless the
    /// file is shorter now.
    void readUpTo(uint64_t end, Block& block) const {
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
    void takeApart(const Task& task, Block& block) {
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
            readUpTo(std::min(task.end + mSizes.overhang + Reader::kMaxBeginChars, task.limit),
                     block);
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

    static void addSkipped(Block& block, size_t offset, size_t size) {
        RawRecord& record = block.records.emplace_back();
        record.offset = static_cast<uint32_t>(offset);
        record.size = static_cast<uint32_t>(size);
        block.reasons.emplace_back(kNoRecord);
        const std::string_view bytes = block.bytes.substr(offset, size);
        record.lines = static_cast<uint32_t>(std::count(bytes.begin(), bytes.end(), '\n'));
    }

    void walk(Block& block, size_t begin, size_t end, int pid) {
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

    void fill(RawRecord& raw, const Reader::Record& record, const Reader::Line& line) {
        const Reader::Origin& origin = line.origin;
        raw.microseconds = origin.microseconds;
        const auto digit = [&](size_t i) { return static_cast<uint16_t>(origin.date[i] - '0'); };
        raw.date =
                static_cast<uint16_t>(digit(0) * 1000 + digit(1) * 100 + digit(3) * 10 + digit(4));
        raw.level = line.level;
        raw.thread = numberOf(origin.tid);
        raw.textOffset = static_cast<uint32_t>(line.text.data() - record.bytes.data());
        bool isNew = false;
        if (line.scope) {
            const Reader::Scope& scope = *line.scope;
            raw.kind = scope.sign == '+' ? Kind::ENTER : Kind::EXIT;
            raw.request = scope.requestNo;
            raw.serial = scope.serial;
            const std::string_view key(scope.module.data(),
                                       static_cast<size_t>(scope.name.data() + scope.name.size() -
                                                           scope.module.data()));
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

    uint32_t numberOf(int tid) {
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

    const SeriesFiles& mFiles;
    const BlockSizes& mSizes;
    const size_t mNumber;
    int mFd = -1;
    uint32_t mOpened = kNone;
    Numbers mScopes;
    Numbers mTags;
    std::unordered_map<int, uint32_t> mThreads;
    std::array<std::pair<int, uint32_t>, 64> mRecent = filledWith(std::pair{0, kNone});
    Discovered* mDiscovered = nullptr;

    static std::array<std::pair<int, uint32_t>, 64> filledWith(std::pair<int, uint32_t> value) {
        std::array<std::pair<int, uint32_t>, 64> array;
        array.fill(value);
        return array;
    }
};

std::vector<Task> planTasks(const SeriesFiles& files, uint64_t blockBytes) {
    std::vector<Task> tasks;
    for (const Piece& piece : files.pieces) {
        for (uint64_t begin = piece.begin; begin < piece.end;) {
            const uint64_t end = std::min(begin + blockBytes, piece.end);
            const bool isFirst = begin == piece.begin;
            tasks.push_back({piece.file, begin, end, isFirst, piece.end, isFirst ? piece.line : 0});
            begin = end;
        }
    }
    return tasks;
}

/// The blocks on their way from the parsers to the consumer. Block i lies in the ring at i modulo
/// its size, so a parser is at most that many blocks ahead.
class BlockQueue {
  public:
    BlockQueue(std::vector<Task> tasks, size_t slots) : mTasks(std::move(tasks)), mSlots(slots) {}

    /// Runs on each parser's thread, until all is done.
    void parseAll(Parser& parser) {
        for (;;) {
            size_t index = 0;
            {
                std::unique_lock lock(mMutex);
                mSpace.wait(lock, [&] {
                    return mStopped || mNext == mTasks.size() || mNext < mConsumed + mSlots.size();
                });
                if (mStopped || mNext == mTasks.size()) {
                    return;
                }
                index = mNext++;
            }
            Slot& slot = mSlots[index % mSlots.size()];
            std::exception_ptr error;
            try {
                parser.parse(mTasks[index], slot.block);
            } catch (...) {
                error = std::current_exception();
            }
            const std::lock_guard lock(mMutex);
            slot.isFull = true;
            slot.error = error;
            mFilled.notify_one();
        }
    }

    void consumeAll(const std::function<void(Block&)>& consume) {
        for (size_t index = 0; index < mTasks.size(); index++) {
            Slot& slot = mSlots[index % mSlots.size()];
            {
                std::unique_lock lock(mMutex);
                mFilled.wait(lock, [&] { return slot.isFull; });
            }
            if (slot.error) {
                std::rethrow_exception(slot.error);
            }
            consume(slot.block);
            const std::lock_guard lock(mMutex);
            slot.isFull = false;
            mConsumed++;
            mSpace.notify_one();
        }
    }

    void stop() {
        const std::lock_guard lock(mMutex);
        mStopped = true;
        mSpace.notify_all();
    }

  private:
    struct Slot {
        Block block;  // the parser's until isFull, the consumer's then
        bool isFull = false;
        std::exception_ptr error;
    };

    const std::vector<Task> mTasks;
    std::mutex mMutex;  // guards what follows, the blocks aside
    std::vector<Slot> mSlots;
    size_t mNext = 0;
    size_t mConsumed = 0;
    bool mStopped = false;
    std::condition_variable mSpace;
    std::condition_variable mFilled;
};

}  // namespace

size_t countParsers() {
    constexpr size_t kMaxParsers = 8;  // beyond that the consumer is what takes the time
    return std::clamp<size_t>(std::thread::hardware_concurrency(), 1, kMaxParsers);
}

void scanRecords(const SeriesFiles& files, const std::function<void(Block&)>& consume,
                 const BlockSizes& sizes) {
    std::vector<Task> tasks = planTasks(files, sizes.block);
    const size_t parsers = std::min(countParsers(), tasks.size());
    if (parsers <= 1) {
        Parser parser(files, sizes, 0);
        Block block;
        for (const Task& task : tasks) {
            parser.parse(task, block);
            consume(block);
        }
        return;
    }
    constexpr size_t kSlotsPerParser = 3;
    BlockQueue queue(std::move(tasks), parsers * kSlotsPerParser);
    std::vector<std::jthread> threads;
    try {
        for (size_t number = 0; number < parsers; number++) {
            threads.emplace_back([&files, &sizes, &queue, number] {
                Parser parser(files, sizes, number);
                queue.parseAll(parser);
            });
        }
        queue.consumeAll(consume);
    } catch (...) {
        queue.stop();
        throw;
    }
}

}  // namespace JCam::Tool
