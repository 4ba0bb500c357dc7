#pragma once

#include <cstdint>
#include <vector>

#include "tools/jlog/analysis/Analysis.h"

namespace JCam::Tool {

/// Makes scopes of enters and exits, which come in the order in which they were logged.
///
/// An exit closes the newest scope of its thread that has its request and name; what was entered
/// after that is detached from the stack of its thread, and stays open. Otherwise it closes the
/// oldest detached scope with its request and name, and otherwise the oldest one on another thread:
/// that scope crosses threads. Names that are known to do so stay off the stacks from the start.
///
/// Any input is paired in linear time: of scopes with the same request and name a bounded number
/// is looked at.
class Pairing {
  public:
    static constexpr size_t kMaxDepth = 4096;  // of a stack; real ones have some ten scopes

    /// Appends to `scopes`, and marks in `names` those that cross threads.
    Pairing(std::vector<Scope>& scopes, std::vector<ScopeName>& names)
            : mScopes(scopes), mNames(names), mLists(kFirstLists) {}

    struct Event {
        uint32_t thread = 0;
        uint32_t name = 0;
        uint32_t request = 0;
        uint32_t ordinal = 0;
        int64_t time = 0;
    };

    /// The scope that it opens.
    uint32_t enter(const Event& event);
    /// The scope that it closes, a new one without enter if there is none to close.
    uint32_t exit(const Event& event);
    /// The innermost open scope on the stack of a thread; kNone if there is none.
    [[nodiscard]] uint32_t innermost(uint32_t thread) const {
        return thread < mStacks.size() && !mStacks[thread].empty()
                       ? mOpen[mStacks[thread].back()].scope
                       : kNone;
    }
    [[nodiscard]] size_t openCount() const { return mOpen.size() - mFree.size(); }
    /// The scopes that have no enter or no exit so far, by their index.
    [[nodiscard]] std::vector<uint32_t> listUnclosed() const;
    /// The place of a scope that is not wanted any more may be given to another one.
    void recycle(uint32_t scope);

  private:
    /// A scope that is open. Those with the same request and name are in a list, by age.
    struct Open {
        uint64_t key = 0;
        uint32_t scope = 0;
        uint32_t thread = 0;
        uint32_t older = kNone;
        uint32_t newer = kNone;
        bool isOnStack = false;
    };
    struct List {
        uint64_t key = 0;
        uint32_t oldest = kNone;  // kNone: the slot is free
        uint32_t newest = kNone;
    };

    static constexpr size_t kFirstLists = 1024;  // a power of two
    static constexpr int kMaxLook = 256;

    [[nodiscard]] uint32_t addScope(const Event& event);
    static uint64_t keyOf(const Event& event) {
        return static_cast<uint64_t>(event.request) << 32 | event.name;
    }
    [[nodiscard]] size_t slotOf(uint64_t key) const;
    [[nodiscard]] size_t homeOf(uint64_t key) const;
    void link(uint32_t open);
    void unlink(uint32_t open);
    void growLists();
    void push(uint32_t open);
    [[nodiscard]] uint32_t takeFromOwnStack(const Event& event, uint32_t newest);
    [[nodiscard]] uint32_t takeFromOthers(const Event& event, uint32_t oldest);
    uint32_t close(uint32_t open, const Event& event);
    static void finish(Scope& scope, const Event& event);

    std::vector<Scope>& mScopes;
    std::vector<ScopeName>& mNames;
    std::vector<uint32_t> mFreeScopes;    // recycled
    std::vector<uint32_t> mWithoutEnter;  // scopes
    std::vector<Open> mOpen;              // slots, those in mFree unused
    std::vector<uint32_t> mFree;
    std::vector<std::vector<uint32_t>> mStacks;  // of each thread: slots of mOpen
    std::vector<List> mLists;                    // open addressing, without gaps in a chain
    size_t mListCount = 0;
};

}  // namespace JCam::Tool
