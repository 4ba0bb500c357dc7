#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/jlog/analysis/Entry.h"

namespace JCam::Tool {

/// The number of `key` in a map of numbers that count from 0. `add` is called if it is new.
template <typename Map, typename Key, typename Add>
uint32_t numberOf(Map& map, Key key, const Add& add) {
    const auto [found, isNew] = map.try_emplace(std::move(key), static_cast<uint32_t>(map.size()));
    if (isNew) {
        add();
    }
    return found->second;
}

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

}  // namespace JCam::Tool
