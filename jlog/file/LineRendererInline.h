#pragma once

// The part of LineRenderer that every line goes through, for the one source that uses it: a line
// takes some ten nanoseconds, and calls would take a good part of them.

#include <algorithm>
#include <bit>
#include <cstring>
#include <string_view>

#include "jlog/file/Digits.h"
#include "jlog/file/LineRenderer.h"

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

/// 16 characters that are looked at together.
class Block {
  public:
    static constexpr size_t kBytes = 16;

    explicit Block(const char* text) { memcpy(&mBytes, text, kBytes); }
    void store(char* out) const { memcpy(out, &mBytes, kBytes); }

    /// Characters in front of the first NUL; kBytes if there is none.
    [[nodiscard]] size_t length() const {
        uint64_t halves[2];
        if (!split(mBytes == Bytes{}, halves)) {
            return kBytes;
        }
        return static_cast<size_t>(halves[0] != 0 ? std::countr_zero(halves[0])
                                                  : 64 + std::countr_zero(halves[1])) /
               8;
    }

    /// Whether there is a NUL in one of the two.
    static bool anyNul(const Block& first, const Block& second) {
        uint64_t halves[2];
        return split((first.mBytes == Bytes{}) | (second.mBytes == Bytes{}), halves);
    }

  private:
    /// A vector register on every processor that this runs on.
    using Bytes = uint8_t __attribute__((vector_size(kBytes)));
    /// All bits of a byte, or none.
    using Mask = int8_t __attribute__((vector_size(kBytes)));

    static bool split(Mask mask, uint64_t (&halves)[2]) {
        memcpy(halves, &mask, kBytes);
        return (halves[0] | halves[1]) != 0;
    }

    Bytes mBytes;
};

/// Characters in front of the first NUL of `word`; 8 if there is none. The usual trick without its
/// unsigned wrap, which a device's build may trap on: the sum carries into a byte's top bit unless
/// its lower seven bits are 0.
inline size_t textLength(uint64_t word) {
    constexpr uint64_t kLowBits = 0x7F7F7F7F7F7F7F7F;
    const uint64_t isNul = ~(((word & kLowBits) + kLowBits) | word | kLowBits);
    return static_cast<size_t>(std::countr_zero(isNul)) / 8;
}

/// putText() where the first block is not all.
char* putLongText(char* out, const char* from, const char* end);

/// Copies the text at `from`, up to its NUL or to `maxChars`, and not beyond `end`, which is at
/// least 8 bytes behind the start of the record. Writes up to kOverrun bytes beyond the text.
[[gnu::always_inline]] inline char* putText(char* out, const char* from, size_t maxChars,
                                            const char* end) {
    end = from + std::min(maxChars, static_cast<size_t>(end - from));
    if (static_cast<size_t>(end - from) < Block::kBytes) {
        return putLongText(out, from, end);
    }
    const Block block(from);
    block.store(out);
    const size_t length = block.length();
    return length < Block::kBytes ? out + length
                                  : putLongText(out + Block::kBytes, from + Block::kBytes, end);
}

template <typename Record>
const char* endOf(const Record& record) {
    return reinterpret_cast<const char*>(&record) + record.header.size();
}

// No line outgrows its room, whatever the numbers, and neither does what is written behind it.
inline constexpr size_t kMaxOriginBytes = 1 + 20 + 1 + 11 + 1 + 11 + 1;
inline constexpr size_t kOverrun = 32;
static_assert(kMaxOriginBytes + kMaxNameChars +
                      sizeof("D JLog    : R AppRequest:4294967295 M[MODULE_INVALID:ffffffff] +  : "
                             "#4294967295\n") +
                      kOverrun <=
              kMaxLineBytes);
static_assert(kMaxOriginBytes + 2 + kMaxNameChars + 2 + kMaxMessageChars + 1 + kOverrun <=
              kMaxLineBytes);

inline char* LineRenderer::putShort(char* out, const ShortText& text) {
    constexpr size_t kHalf = ShortText::kBytes / 2;
    memcpy(out, text.text, kHalf);
    if (text.length > kHalf) {
        memcpy(out + kHalf, text.text + kHalf, kHalf);
    }
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
                                                                  Direction direction) {
    ModuleText& module =
            mModules[static_cast<size_t>(std::countr_zero(record.moduleId)) % mModules.size()];
    if (module.moduleId != record.moduleId) [[unlikely]] {
        rememberModule(module, record.moduleId);
    }
    out = putOrigin(out, record.header);
    out = put(out, "D JLog    : R AppRequest:");
    out = mRequestNo.put(out, record.requestNo);
    out = putShort(out, module.text);
    out = put(out, direction == Direction::ENTER ? "+  :" : "-  :");
    out = putText(out, record.name(), kMaxNameChars, endOf(record));
    return mSerial.put(out, record.serial);
}

[[gnu::always_inline]] inline char* LineRenderer::renderDetails(char* out,
                                                                const LogDetails& record) {
    const char* end = endOf(record);
    out = putOrigin(out, record.header);
    out = put(out, {record.level < kLevels ? kLevelTexts[record.level] : "V ", 2});
    char* column = out + kNameColumn;
    out = putText(out, record.name(), kMaxNameChars, end);
    memcpy(out, kEightBlanks, kNameColumn);
    out = put(std::max(out, column), ": ");
    out = putText(out, record.message, kMaxMessageChars, end);
    *out++ = '\n';
    return out;
}

}  // namespace JCam::Utils::JLog::File
