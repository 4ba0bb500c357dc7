// Also runs after a fatal signal, by the rules of CrashHandler.cpp.

#include "jlog/file/LineRenderer.h"

#include <bit>
#include <cstring>

#include "jlog/file/Digits.h"
#include "jlog/file/LineRendererInline.h"
#include "jlog/ModuleTable.h"

namespace JCam::Utils::JLog::File {

namespace {

static_assert(std::endian::native == std::endian::little,
              "the first character of a word is its lowest byte");

/// Characters in front of the first NUL of `word`; 8 if there is none. The usual trick without its
/// unsigned wrap, which a device's build may trap on: the sum carries into a byte's top bit unless
/// its lower seven bits are 0.
size_t textLength(uint64_t word) {
    constexpr uint64_t kLowBits = 0x7F7F7F7F7F7F7F7F;
    const uint64_t isNul = ~(((word & kLowBits) + kLowBits) | word | kLowBits);
    return static_cast<size_t>(std::countr_zero(isNul)) / 8;
}

}  // namespace

char* putMoreBlocks(char* out, const char* from, const char* end) {
    return putBlocks(out, from, end);
}

char* putShortText(char* out, const char* from, const char* end) {
    uint64_t word = 0;
    if (static_cast<size_t>(end - from) >= sizeof(word)) {
        memcpy(&word, from, sizeof(word));
        memcpy(out, &word, sizeof(word));
        const size_t length = textLength(word);
        out += length;
        if (length < sizeof(word)) {
            return out;
        }
        from += sizeof(word);
    }
    const auto left = static_cast<size_t>(end - from);
    if (left == 0) {
        return out;
    }
    // Read so that it ends where the text has to; what comes in from above is the NUL.
    memcpy(&word, end - sizeof(word), sizeof(word));
    word >>= 8 * (sizeof(word) - left);
    memcpy(out, &word, sizeof(word));
    return out + textLength(word);
}

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

LineRenderer::LineRenderer(int32_t pid) : mPid(pid) {
    for (ThreadText& entry : mThreads) {
        rememberThread(entry, entry.tid);
    }
    for (const Direction direction : {Direction::ENTER, Direction::EXIT}) {
        for (ModuleText& entry : mModules[static_cast<size_t>(direction)]) {
            rememberModule(entry, entry.moduleId, direction);
        }
    }
}

void LineRenderer::rememberThread(ThreadText& entry, int32_t tid) const {
    char* out = entry.text.text;
    *out++ = ' ';
    out = putPadded5(out, mPid);
    *out++ = ' ';
    out = putPadded5(out, tid);
    *out++ = ' ';
    static_assert(1 + 11 + 1 + 11 + 1 <= ShortText::kBytes);
    entry.text.length = static_cast<uint32_t>(out - entry.text.text);
    entry.tid = tid;
}

void LineRenderer::rememberModule(ModuleText& entry, uint32_t moduleId, Direction direction) {
    const ModuleRow* module = findModule(moduleId);
    char* out = put(entry.text.text, " M[");
    out = put(out, module != nullptr ? module->name : "(null)");
    *out++ = ':';
    char digits[20];
    const auto count = static_cast<size_t>(putNumber(digits, moduleId, 16) - digits);
    out = put(out, {digits, count});
    out = put(out, direction == Direction::ENTER ? "] +  :" : "] -  :");
    static_assert(sizeof(" M[:ffffffff] +  :") - 1 + kMaxModuleNameChars <= ShortText::kBytes);
    entry.text.length = static_cast<uint32_t>(out - entry.text.text);
    entry.moduleId = moduleId;
}

}  // namespace JCam::Utils::JLog::File
