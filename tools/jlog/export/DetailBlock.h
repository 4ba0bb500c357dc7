#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tools/jlog/analysis/Entry.h"
#include "tools/jlog/export/Packer.h"

namespace JCam::Tool {

/// A run of details that the page unpacks alone, without those before it.
///
/// A text is stored as its pattern and its numbers. Texts of one call site share a pattern, and
/// their numbers are near those of the text before: that takes an eighth of the space that the
/// deflated texts take.
class DetailBlock {
  public:
    /// `time` counts from the first record of the series. `scope`: its number in the page, or
    /// kNone.
    void add(const Entry& entry, int64_t time, uint32_t scope);

    [[nodiscard]] bool isEmpty() const { return mRecords == 0; }
    [[nodiscard]] bool isFull() const;
    [[nodiscard]] uint32_t records() const { return mRecords; }
    [[nodiscard]] int64_t firstTime() const { return mFirstTime; }
    [[nodiscard]] int64_t lastTime() const { return mLastTime; }
    [[nodiscard]] std::string pack() const;

  private:
    struct Pattern {
        uint32_t id = 0;
        std::vector<uint32_t> numbers;  // of its text before
    };

    Pattern& findPattern(std::string_view text);

    uint32_t mRecords = 0;
    int64_t mFirstTime = 0;
    int64_t mLastTime = 0;
    int64_t mTime = 0;                  // of the record before
    std::vector<uint32_t> mLastScopes;  // by thread
    std::unordered_map<std::string, Pattern> mPatterns;
    Packer mKey;                     // the pieces of the text at hand
    std::vector<uint32_t> mNumbers;  // those of the text at hand
    Packer mPieces, mTimes, mThreads, mScopes, mLevels, mTags, mTexts, mValues;
};

}  // namespace JCam::Tool
