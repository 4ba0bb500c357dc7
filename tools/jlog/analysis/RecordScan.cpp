#include "tools/jlog/analysis/RecordScan.h"

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace JCam::Tool {

namespace {

std::vector<BlockTask> planTasks(const SeriesFiles& files, uint64_t blockBytes) {
    std::vector<BlockTask> tasks;
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
    BlockQueue(std::vector<BlockTask> tasks, size_t slots)
            : mTasks(std::move(tasks)), mSlots(slots) {}

    /// Runs on each parser's thread, until all is done.
    void parseAll(BlockParser& parser) {
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
                if (mNext == mTasks.size()) {
                    mSpace.notify_all();  // nobody needs to wait for more
                }
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

    const std::vector<BlockTask> mTasks;
    std::mutex mMutex;  // guards what follows, the blocks aside
    std::vector<Slot> mSlots;
    size_t mNext = 0;
    size_t mConsumed = 0;
    bool mStopped = false;
    std::condition_variable mSpace;
    std::condition_variable mFilled;
};

size_t countParsers() {
    constexpr size_t kMaxParsers = 8;  // beyond that the consumer is what takes the time
    return std::clamp<size_t>(std::thread::hardware_concurrency(), 1, kMaxParsers);
}

}  // namespace

void scanRecords(const SeriesFiles& files, const std::function<void(Block&)>& consume,
                 const BlockSizes& sizes) {
    std::vector<BlockTask> tasks = planTasks(files, sizes.block);
    const size_t parsers = std::min(countParsers(), tasks.size());
    if (parsers <= 1) {
        BlockParser parser(files, sizes, 0);
        Block block;
        for (const BlockTask& task : tasks) {
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
                BlockParser parser(files, sizes, number);
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
