// Also runs after a fatal signal, by the rules of CrashHandler.cpp.

#include "jlog/file/NumberText.h"

namespace JCam::Utils::JLog::File {

char* putOddFraction(char* out, long nanoseconds) {
    constexpr size_t kWidth = 6;
    *out++ = '.';
    const long micros = nanoseconds / 1000;
    char digits[20];
    if (micros < 0) {
        *out++ = '-';
    }
    const auto magnitude = static_cast<unsigned long>(micros < 0 ? -micros : micros);
    const auto count = static_cast<size_t>(putNumber(digits, magnitude) - digits);
    const size_t width = micros < 0 ? kWidth - 1 : kWidth;
    for (size_t i = count; i < width; ++i) {
        *out++ = '0';
    }
    memcpy(out, digits, count);
    return out + count;
}

char* putDate(char* out, const tm& local) {
    const int fields[] = {local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
                          local.tm_sec};
    constexpr char kSeparators[] = {'-', ' ', ':', ':'};
    for (size_t i = 0; i < sizeof(fields) / sizeof(fields[0]); ++i) {
        if (i > 0) {
            *out++ = kSeparators[i - 1];
        }
        out = putTwoDigits(out, static_cast<unsigned int>(fields[i]));
    }
    return out;
}

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
