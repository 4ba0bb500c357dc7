#include "tools/jlog/export/Lanes.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <set>
#include <utility>

namespace JCam::Tool {

namespace {

/// The rows of a lane whose scopes do not nest.
class Rows {
  public:
    /// The lowest that is free.
    uint32_t take() {
        if (mFree.empty()) {
            return std::min(mUsed++, kMaxRows - 1);
        }
        return mFree.extract(mFree.begin()).value();
    }
    void give(uint32_t row) { mFree.insert(row); }

  private:
    // What is beyond overlaps in the last: exits of so many scopes are lost.
    static constexpr uint32_t kMaxRows = 64;

    std::set<uint32_t> mFree;
    uint32_t mUsed = 0;
};

class Slicer {
  public:
    explicit Slicer(const Analysis& log)
            : mLog(log),
              mSlices(log.scopes.size()),
              mStacks(log.threads.size()),
              mRows(log.names.size()) {}

    std::vector<Slice> slice() {
        mLog.forEachEvent([this](uint32_t i, bool isEnter) {
            const Scope& scope = mLog.scopes[i];
            if (isEnter) {
                enter(i, scope.begin);
            } else if (scope.enter != kNone) {
                leave(i);
            } else {
                // Its exit is all there is of it.
                enter(i, scope.end);
                leave(i);
            }
        });
        return std::move(mSlices);
    }

  private:
    [[nodiscard]] bool crosses(uint32_t i) const {
        return mLog.names[mLog.scopes[i].name].crossesThreads;
    }

    void enter(uint32_t i, int64_t time) {
        const Scope& scope = mLog.scopes[i];
        Slice& slice = mSlices[i];
        slice.begin = time;
        // Until its exit comes.
        slice.end = std::max(mLog.lastTime, time);
        slice.isInFlight = true;
        if (crosses(i)) {
            slice.lane = static_cast<uint32_t>(mLog.threads.size()) + scope.name;
            slice.depth = mRows[scope.name].take();
            return;
        }
        std::vector<uint32_t>& stack = mStacks[scope.thread];
        const auto same = std::find_if(stack.begin(), stack.end(), [&](uint32_t outer) {
            return mLog.scopes[outer].isOpen() && mLog.scopes[outer].name == scope.name;
        });
        lose(stack, same, time);
        slice.lane = scope.thread;
        slice.depth = stack.empty() ? 0 : mSlices[stack.back()].depth + 1;
        stack.push_back(i);
    }

    void leave(uint32_t i) {
        const Scope& scope = mLog.scopes[i];
        Slice& slice = mSlices[i];
        end(slice, scope.end);
        if (crosses(i)) {
            mRows[scope.name].give(slice.depth);
            return;
        }
        std::vector<uint32_t>& stack = mStacks[scope.thread];
        const auto self = std::find(stack.begin(), stack.end(), i);
        lose(stack, self + 1, slice.end);
        stack.erase(self);
    }

    /// Ends the scopes from `first` on whose exits are not in the log.
    void lose(std::vector<uint32_t>& stack, std::vector<uint32_t>::iterator first, int64_t time) {
        const auto isLost = [this](uint32_t i) { return mLog.scopes[i].isOpen(); };
        const auto lost = std::stable_partition(first, stack.end(), std::not_fn(isLost));
        std::for_each(lost, stack.end(), [&](uint32_t i) { end(mSlices[i], time); });
        stack.erase(lost, stack.end());
    }

    static void end(Slice& slice, int64_t time) {
        slice.end = std::max(time, slice.begin);
        slice.isInFlight = false;
    }

    const Analysis& mLog;
    std::vector<Slice> mSlices;
    std::vector<std::vector<uint32_t>> mStacks;  // by thread: what is open
    std::vector<Rows> mRows;                     // by name
};

}  // namespace

std::vector<Slice> sliceScopes(const Analysis& log) {
    return Slicer(log).slice();
}

}  // namespace JCam::Tool
