// Also runs after a fatal signal, by the rules of CrashHandler.cpp.

#include "jlog/file/RunningNumber.h"

#include "jlog/file/Digits.h"

namespace JCam::Utils::JLog::File {

RunningNumber::RunningNumber(const char* prefix, const char* suffix)
        : mPrefix(prefix), mSuffix(suffix) {
    render(0);
}

void RunningNumber::render(uint32_t value) {
    char text[64] = {};
    char* digits = stpcpy(text, mPrefix);
    char* digitsEnd = putNumber(digits, value);
    mChars = static_cast<uint32_t>(stpcpy(digitsEnd, mSuffix) - text);
    memcpy(&mText, text, sizeof(mText));
    mNext = value + uint64_t{1};

    const auto last = static_cast<size_t>(digitsEnd - text) - 1;
    mStep = Text{};
    mStep[last] = 1;
    mLastOfTen = value - value % 10 + uint64_t{9};
    mCarry = Text{};
    mLastOfHundred = mLastOfTen;
    if (digitsEnd - digits > 1) {
        mCarry[last] = static_cast<uint8_t>(-9);
        mCarry[last - 1] = 1;
        mLastOfHundred = value - value % 100 + uint64_t{99};
    }
}

}  // namespace JCam::Utils::JLog::File
