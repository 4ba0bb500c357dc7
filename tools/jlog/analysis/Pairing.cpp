#include "tools/jlog/analysis/Pairing.h"

#include <algorithm>
#include <utility>

namespace JCam::Tool {

size_t Pairing::homeOf(uint64_t key) const {
    constexpr uint64_t kMultiplier = 0x9e3779b97f4a7c15;  // 2^64 / golden ratio
    const uint64_t hash = key * kMultiplier;
    return (hash ^ hash >> 32) & (mLists.size() - 1);
}

size_t Pairing::slotOf(uint64_t key) const {
    size_t slot = homeOf(key);
    while (mLists[slot].oldest != kNone && mLists[slot].key != key) {
        slot = (slot + 1) & (mLists.size() - 1);
    }
    return slot;
}

void Pairing::growLists() {
    const std::vector<List> old = std::exchange(mLists, std::vector<List>(mLists.size() * 2));
    for (const List& list : old) {
        if (list.oldest != kNone) {
            mLists[slotOf(list.key)] = list;
        }
    }
}

void Pairing::link(uint32_t open) {
    if ((mListCount + 1) * 2 > mLists.size()) {
        growLists();
    }
    List& list = mLists[slotOf(mOpen[open].key)];
    if (list.oldest == kNone) {
        list.key = mOpen[open].key;
        list.oldest = open;
        mListCount++;
    } else {
        mOpen[list.newest].newer = open;
        mOpen[open].older = list.newest;
    }
    list.newest = open;
}

void Pairing::unlink(uint32_t open) {
    const Open& removed = mOpen[open];
    size_t slot = slotOf(removed.key);
    List& list = mLists[slot];
    (removed.older == kNone ? list.oldest : mOpen[removed.older].newer) = removed.newer;
    (removed.newer == kNone ? list.newest : mOpen[removed.newer].older) = removed.older;
    if (list.oldest != kNone) {
        return;
    }
    // Lists behind it move up, so that no chain has a gap.
    mListCount--;
    const size_t mask = mLists.size() - 1;
    for (size_t next = (slot + 1) & mask; mLists[next].oldest != kNone; next = (next + 1) & mask) {
        if (((next - homeOf(mLists[next].key)) & mask) >= ((next - slot) & mask)) {
            mLists[slot] = std::exchange(mLists[next], List{});
            slot = next;
        }
    }
}

void Pairing::push(uint32_t open) {
    const uint32_t thread = mOpen[open].thread;
    if (thread >= mStacks.size()) {
        mStacks.resize(thread + 1);
    }
    std::vector<uint32_t>& stack = mStacks[thread];
    if (stack.size() == kMaxDepth) {
        const auto half = stack.begin() + kMaxDepth / 2;
        std::for_each(stack.begin(), half, [&](uint32_t deep) { mOpen[deep].isOnStack = false; });
        stack.erase(stack.begin(), half);
    }
    stack.push_back(open);
    mOpen[open].isOnStack = true;
}

uint32_t Pairing::addScope(const Event& event) {
    auto index = static_cast<uint32_t>(mScopes.size());
    if (mFreeScopes.empty()) {
        mScopes.emplace_back();
    } else {
        index = mFreeScopes.back();
        mFreeScopes.pop_back();
        mScopes[index] = {};
    }
    mScopes[index].request = event.request;
    mScopes[index].name = event.name;
    mScopes[index].thread = event.thread;
    return index;
}

uint32_t Pairing::enter(const Event& event) {
    const uint32_t index = addScope(event);
    mScopes[index].begin = event.time;
    mScopes[index].enter = event.ordinal;
    auto open = static_cast<uint32_t>(mOpen.size());
    if (mFree.empty()) {
        mOpen.emplace_back();
    } else {
        open = mFree.back();
        mFree.pop_back();
        mOpen[open] = {};
    }
    mOpen[open].key = keyOf(event);
    mOpen[open].scope = index;
    mOpen[open].thread = event.thread;
    link(open);
    if (!mNames[event.name].crossesThreads) {
        push(open);
    }
    return index;
}

uint32_t Pairing::takeFromOwnStack(const Event& event, uint32_t newest) {
    for (int look = 0; newest != kNone && look < kMaxLook; newest = mOpen[newest].older, look++) {
        if (!mOpen[newest].isOnStack || mOpen[newest].thread != event.thread) {
            continue;
        }
        std::vector<uint32_t>& stack = mStacks[event.thread];
        while (stack.back() != newest) {
            mOpen[stack.back()].isOnStack = false;
            stack.pop_back();
        }
        stack.pop_back();
        return newest;
    }
    return kNone;
}

uint32_t Pairing::takeFromOthers(const Event& event, uint32_t oldest) {
    uint32_t detached = oldest;
    for (int look = 0; detached != kNone && mOpen[detached].isOnStack; look++) {
        detached = look < kMaxLook ? mOpen[detached].newer : kNone;
    }
    const uint32_t taken = detached != kNone ? detached : oldest;
    if (mOpen[taken].thread != event.thread) {
        mNames[event.name].crossesThreads = true;
    }
    if (mOpen[taken].isOnStack) {
        std::erase(mStacks[mOpen[taken].thread], taken);
    }
    return taken;
}

uint32_t Pairing::close(uint32_t open, const Event& event) {
    unlink(open);
    mFree.push_back(open);
    finish(mScopes[mOpen[open].scope], event);
    return mOpen[open].scope;
}

void Pairing::finish(Scope& scope, const Event& event) {
    // Two threads may look at the clock in another order than they get their places in the file.
    scope.end = std::max(event.time, scope.begin);
    scope.exitThread = event.thread;
    scope.exit = event.ordinal;
}

void Pairing::recycle(uint32_t scope) {
    mFreeScopes.push_back(scope);
    if (!mWithoutEnter.empty() && mWithoutEnter.back() == scope) {
        mWithoutEnter.pop_back();
    }
}

std::vector<uint32_t> Pairing::listUnclosed() const {
    std::vector<uint32_t> unclosed = mWithoutEnter;
    for (const List& list : mLists) {
        for (uint32_t open = list.oldest; open != kNone; open = mOpen[open].newer) {
            unclosed.push_back(mOpen[open].scope);
        }
    }
    std::sort(unclosed.begin(), unclosed.end());
    return unclosed;
}

uint32_t Pairing::exit(const Event& event) {
    const uint64_t key = keyOf(event);
    if (event.thread < mStacks.size() && !mStacks[event.thread].empty()) {
        const uint32_t top = mStacks[event.thread].back();
        if (mOpen[top].key == key) {
            mStacks[event.thread].pop_back();
            return close(top, event);
        }
    }
    const List& list = mLists[slotOf(key)];
    if (list.oldest == kNone) {
        const uint32_t index = addScope(event);
        finish(mScopes[index], event);
        mWithoutEnter.push_back(index);
        return index;
    }
    const uint32_t own = takeFromOwnStack(event, list.newest);
    return close(own != kNone ? own : takeFromOthers(event, list.oldest), event);
}

}  // namespace JCam::Tool
