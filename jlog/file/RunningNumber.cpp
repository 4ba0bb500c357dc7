// Also runs after a fatal signal, by the rules of CrashHandler.cpp.

#include "jlog/file/RunningNumber.h"

#include <algorithm>
#include <bit>

#include "jlog/file/Digits.h"

namespace JCam::Utils::JLog::File {

static_assert(std::endian::native == std::endian::little,
              "the first character of a word is its lowest byte");

void RunningNumber::render(uint32_t value) {
    char text[20];
    const auto chars = static_cast<uint32_t>(putNumber(text, value) - text);
    mValue = value;
    mStepsLeft = 9 - value % 10;
    mDigitChars = std::min<uint32_t>(chars, sizeof(mDigits));
    mHeadChars = chars - mDigitChars;
    memcpy(mHead, text, mHeadChars);
    mDigits = 0;
    memcpy(&mDigits, text + mHeadChars, mDigitChars);
    mStep = uint64_t{1} << 8 * (mDigitChars - 1);
}

}  // namespace JCam::Utils::JLog::File
