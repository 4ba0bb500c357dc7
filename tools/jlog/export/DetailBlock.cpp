#include "tools/jlog/export/DetailBlock.h"

#include <algorithm>
#include <cctype>
#include <cstddef>

namespace JCam::Tool {

namespace {

// The page unpacks a block in some 10 ms, and larger ones do not deflate much better.
constexpr uint32_t kMaxRecords = 16384;
constexpr size_t kMaxPatternBytes = size_t{1024} * 1024;

// So a number fits in 32 bits, and its difference to another one in a double.
constexpr size_t kMaxDigits = 9;

[[nodiscard]] bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

[[nodiscard]] bool isWord(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0;
}

/// The length of the number that begins at `at`; 0 if none does. A number has no zero in front, and
/// is not the end of a word like "T2": the pattern keeps both.
[[nodiscard]] size_t numberAt(std::string_view text, size_t at, size_t wordBegin) {
    if (!isDigit(text[at]) || text.find_first_not_of('0', wordBegin) < at) {
        return 0;
    }
    size_t end = at;
    while (end < text.size() && isDigit(text[end])) {
        ++end;
    }
    const bool hasZero = text[at] == '0' && end - at > 1;
    return hasZero || end - at > kMaxDigits ? 0 : end - at;
}

}  // namespace

bool DetailBlock::isFull() const {
    return mRecords >= kMaxRecords || mPieces.size() >= kMaxPatternBytes;
}

DetailBlock::Pattern& DetailBlock::findPattern(std::string_view text) {
    mKey.clear();
    mNumbers.clear();
    size_t piece = 0;
    size_t word = 0;
    for (size_t i = 0; i < text.size();) {
        word = i == 0 || !isWord(text[i - 1]) ? i : word;
        const size_t length = numberAt(text, i, word);
        if (length == 0) {
            ++i;
            continue;
        }
        uint32_t number = 0;
        for (const char digit : text.substr(i, length)) {
            number = number * 10 + static_cast<uint32_t>(digit - '0');
        }
        mNumbers.push_back(number);
        mKey.addText(text.substr(piece, i - piece));
        i += length;
        piece = i;
    }
    mKey.addText(text.substr(piece));
    const auto [found, isNew] = mPatterns.try_emplace(mKey.bytes());
    Pattern& pattern = found->second;
    if (isNew) {
        pattern.id = static_cast<uint32_t>(mPatterns.size() - 1);
        pattern.numbers.resize(mNumbers.size());
        mPieces.add(mNumbers.size());
        mPieces.append(mKey);
    }
    return pattern;
}

void DetailBlock::add(const Entry& entry, int64_t time, uint32_t scope) {
    mFirstTime = isEmpty() ? time : std::min(mFirstTime, time);
    mLastTime = isEmpty() ? time : std::max(mLastTime, time);
    ++mRecords;
    mTimes.addSigned(time - mTime);
    mTime = time;
    mThreads.add(entry.thread);
    mLevels.add(static_cast<uint8_t>(entry.level));
    mTags.add(entry.name);
    if (entry.thread >= mLastScopes.size()) {
        mLastScopes.resize(entry.thread + 1);
    }
    // One more, so that 0 is none.
    mScopes.addSigned(int64_t{scope + 1} - mLastScopes[entry.thread]);
    mLastScopes[entry.thread] = scope + 1;
    Pattern& pattern = findPattern(entry.text);
    mTexts.add(pattern.id);
    for (size_t i = 0; i < mNumbers.size(); ++i) {
        mValues.addSigned(int64_t{mNumbers[i]} - pattern.numbers[i]);
    }
    pattern.numbers = mNumbers;
}

std::string DetailBlock::pack() const {
    Packer all;
    all.add(mRecords);
    all.add(mPatterns.size());
    for (const Packer* part :
         {&mPieces, &mTimes, &mThreads, &mScopes, &mLevels, &mTags, &mTexts, &mValues}) {
        all.append(*part);
    }
    return deflateToBase64(all.bytes());
}

}  // namespace JCam::Tool
