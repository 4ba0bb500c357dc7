#pragma once

// The part of LineRenderer that every line goes through, for the one source that uses it: a line
// takes some ten nanoseconds, and calls would take a good part of them.

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "jlog/file/CharBlock.h"
#include "jlog/file/Digits.h"
#include "jlog/file/LineRenderer.h"
#include "jlog/ModuleTable.h"

namespace JCam::Utils::JLog::File {

/// Levels beyond the table, which are those without a name, print as verbose.
inline constexpr char kLevelTexts[][3] = {"V ", "E ", "W ", "I ", "D ", "D ", "V "};
inline constexpr size_t kLevels = sizeof(kLevelTexts) / sizeof(kLevelTexts[0]);
inline constexpr char kEightBlanks[] = "        ";
inline constexpr size_t kNameColumn = 8;

/// The length of `text` is known where this is inlined: a copy is an instruction or two.
inline char* put(char* out, std::string_view text) {
    memcpy(out, text.data(), text.size());
    return out + text.size();
}

// Texts are copied up to their NUL or to `end`, where their room in the record ends, and up to
// kOverrun bytes more are written.

/// Where the room is less than a block. It ends at least 8 bytes behind the start of the record.
char* putShortText(char* out, const char* from, const char* end);

/// Where the room is a block or more, or where a block of the same text has been copied already.
[[gnu::always_inline]] inline char* putBlocks(char* out, const char* from, const char* end) {
    constexpr size_t kBytes = CharBlock::kBytes;
    for (; static_cast<size_t>(end - from) >= kBytes; from += kBytes, out += kBytes) {
        const CharBlock block(from);
        block.store(out);
        const NulMask nuls = block.nuls();
        if (nuls.any()) {
            return out + nuls.first();
        }
    }
    const auto left = static_cast<size_t>(end - from);
    if (left == 0) {
        return out;
    }
    // The last block ends where the text has to; some of it is there already.
    const size_t again = kBytes - left;
    const CharBlock block(end - kBytes);
    block.store(out - again);
    const NulMask nuls = block.nuls().behind(again);
    return out + (nuls.any() ? nuls.first() : left);
}

/// putBlocks() out of line, for what most names do not need.
char* putMoreBlocks(char* out, const char* from, const char* end);

/// `end`, or where a text at `from` ends that is cut to `maxChars`.
inline const char* cutTo(size_t maxChars, const char* from, const char* end) {
    return from + std::min(maxChars, static_cast<size_t>(end - from));
}

[[gnu::always_inline]] inline char* putName(char* out, const char* from, const char* end) {
    end = cutTo(kMaxNameChars, from, end);
    if (static_cast<size_t>(end - from) < CharBlock::kBytes) {
        return putShortText(out, from, end);
    }
    const CharBlock block(from);
    block.store(out);
    const NulMask nuls = block.nuls();
    return nuls.any() ? out + nuls.first()
                      : putMoreBlocks(out + CharBlock::kBytes, from + CharBlock::kBytes, end);
}

[[gnu::always_inline]] inline char* putMessage(char* out, const char* from, const char* end) {
    end = cutTo(kMaxMessageChars, from, end);
    return static_cast<size_t>(end - from) < CharBlock::kBytes ? putShortText(out, from, end)
                                                               : putBlocks(out, from, end);
}

// No line outgrows its room, whatever the numbers, and neither does what is written behind it.
inline constexpr size_t kMaxOriginBytes = 1 + 20 + 1 + 11 + 1 + 11 + 1;
inline constexpr size_t kOverrun = 32;
static_assert(kMaxOriginBytes + kMaxNameChars + kMaxModuleNameChars +
                      sizeof("D JLog    : R AppRequest:4294967295 M[:ffffffff] +  : "
                             "#4294967295\n") +
                      kOverrun <=
              kMaxLineBytes);
static_assert(kMaxOriginBytes + 2 + kMaxNameChars + 2 + kMaxMessageChars + 1 + kOverrun <=
              kMaxLineBytes);

inline char* LineRenderer::putShort(char* out, const ShortText& text) {
    memcpy(out, text.text, ShortText::kBytes);
    return out + text.length;
}

/// ".uuuuuu PPPPP TTTTT ".
[[gnu::always_inline]] inline char* LineRenderer::putOrigin(char* out, const LogHeader& header) {
    ThreadText& thread = mThreads[static_cast<uint32_t>(header.tid) % mThreads.size()];
    if (thread.tid != header.tid) [[unlikely]] {
        rememberThread(thread, header.tid);
    }
    out = putFraction(out, header.timestamp.tv_nsec);
    return putShort(out, thread.text);
}

[[gnu::always_inline]] inline char* LineRenderer::renderEnterExit(char* out,
                                                                  const LogEnterExit& record,
                                                                  const char* recordEnd,
                                                                  Direction direction) {
    constexpr uint32_t kTopBit = 0x80000000;  // so that any id has a bit
    auto& modules = mModules[static_cast<size_t>(direction)];
    ModuleText& module = modules[static_cast<size_t>(std::countr_zero(record.moduleId | kTopBit)) %
                                 modules.size()];
    if (module.moduleId != record.moduleId) [[unlikely]] {
        rememberModule(module, record.moduleId, direction);
    }
    out = putOrigin(out, record.header);
    out = put(out, "D JLog    : R AppRequest:");
    out = mRequestNo.put(out, record.requestNo);
    out = putShort(out, module.text);
    out = putName(out, record.name(), recordEnd);
    return mSerial.put(out, record.serial);
}

[[gnu::always_inline]] inline char* LineRenderer::renderDetails(char* out, const LogDetails& record,
                                                                const char* recordEnd) {
    out = putOrigin(out, record.header);
    out = put(out, {record.level < kLevels ? kLevelTexts[record.level] : "V ", 2});
    char* column = out + kNameColumn;
    out = putName(out, record.name(), recordEnd);
    memcpy(out, kEightBlanks, kNameColumn);
    out = put(std::max(out, column), ": ");
    out = putMessage(out, record.message, recordEnd);
    *out++ = '\n';
    return out;
}

}  // namespace JCam::Utils::JLog::File
