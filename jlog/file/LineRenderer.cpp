// Also runs after a fatal signal, by the rules of CrashHandler.cpp.

#include "jlog/file/LineRenderer.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <string_view>

#include "jlog/file/CharBlock.h"
#include "jlog/file/LocalTime.h"
#include "jlog/ModuleTable.h"

namespace JCam::Utils::JLog::File {

// A line takes some ten nanoseconds, so what every line goes through is inlined into the walk.

namespace {

/// A second whose date is remembered first. No calendar reaches it: its text is that of a time
/// without a local form.
constexpr time_t kNoLocalTime = std::numeric_limits<time_t>::min();

/// Levels beyond the table, which are those without a name, print as verbose.
constexpr char kLevelTexts[][3] = {"V ", "E ", "W ", "I ", "D ", "D ", "V "};
constexpr size_t kLevels = sizeof(kLevelTexts) / sizeof(kLevelTexts[0]);
constexpr char kEightBlanks[] = "        ";
constexpr size_t kNameColumn = 8;

/// The length of `text` is known where this is inlined: a copy is an instruction or two.
inline char* put(char* out, std::string_view text) {
    memcpy(out, text.data(), text.size());
    return out + text.size();
}

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

// Texts are copied up to their NUL or to `end`, where their room in the record ends, and up to
// kOverrun bytes more are written.

/// For texts whose room is less than a block. It ends at least 8 bytes behind the start of the
/// record.
[[gnu::noinline]] char* putShortText(char* out, const char* from, const char* end) {
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
[[gnu::noinline]] char* putMoreBlocks(char* out, const char* from, const char* end) {
    return putBlocks(out, from, end);
}

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
constexpr size_t kMaxOriginBytes = 1 + 20 + 1 + 11 + 1 + 11 + 1;
constexpr size_t kOverrun = 32;
static_assert(kMaxOriginBytes + kMaxNameChars + kMaxModuleNameChars +
                      sizeof("D JLog    : R AppRequest:4294967295 M[:ffffffff] +  : "
                             "#4294967295\n") +
                      kOverrun <=
              TextBuffer::kMaxLineBytes);
static_assert(kMaxOriginBytes + 2 + kMaxNameChars + 2 + kMaxMessageChars + 1 + kOverrun <=
              TextBuffer::kMaxLineBytes);

}  // namespace

inline char* LineRenderer::putShort(char* out, const ShortText& text) {
    memcpy(out, text.text, ShortText::kBytes);
    return out + text.length;
}

/// "MM-DD hh:mm:ss". May write two bytes behind the end.
[[gnu::always_inline]] inline char* LineRenderer::putDate(char* out, time_t second) {
    if (second != mDateSecond) [[unlikely]] {
        rememberDate(second);
    }
    memcpy(out, mDateText, sizeof(mDateText));
    return out + kDateChars;
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

[[gnu::always_inline]] inline char* LineRenderer::putEnterExit(char* out,
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

[[gnu::always_inline]] inline char* LineRenderer::putDetails(char* out, const LogDetails& record,
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

[[gnu::always_inline]] inline LineRenderer::Line LineRenderer::render(const LogHeader& header,
                                                                      RecordType type, size_t size,
                                                                      TextBuffer& text) {
    const char* recordEnd = reinterpret_cast<const char*>(&header) + size;
    char* end;
    static_assert(RECORD_EXIT == RECORD_ENTER + 1);
    const auto direction = static_cast<Direction>(type - RECORD_ENTER);
    if (direction <= Direction::EXIT && size > LogEnterExit::kNameOffset) {
        end = putEnterExit(putDate(text.end(), header.timestamp.tv_sec),
                           reinterpret_cast<const LogEnterExit&>(header), recordEnd, direction);
    } else {
        const auto& details = reinterpret_cast<const LogDetails&>(header);
        const std::less<> before;
        if (type != RECORD_DETAILS || size <= LogDetails::kNameOffset ||
            before(details.message, details.name()) || !before(details.message, recordEnd)) {
            return Line::NONE;
        }
        end = putDetails(putDate(text.end(), header.timestamp.tv_sec), details, recordEnd);
    }
    return text.endLine(end) ? Line::TAKEN_IN : Line::AT_LIMIT;
}

namespace {

/// The first unit from `from` on whose size is not 0, or `end`. The memory may be being written,
/// which is a race for the language and none for the processor.
__attribute__((no_sanitize("thread"))) const char* findSize(const char* from, const char* end) {
    while (from != end &&
           __atomic_load_n(reinterpret_cast<const uint32_t*>(from), __ATOMIC_RELAXED) == 0) {
        from += kRecordAlignment;
    }
    return from;
}

}  // namespace

void RecordWalk::skipZeros() {
    const char* end = place + bytesLeft - bytesLeft % kRecordAlignment;
    // What was found first may be in the middle of a record whose size was written after the walk
    // passed it. The writer stores the size first, with release: so now, behind the acquire, that
    // size is visible.
    for (const char* found = end; found != (end = findSize(place, found)); found = end) {
        std::atomic_thread_fence(std::memory_order_acquire);
    }
    bytesLeft -= static_cast<size_t>(end - place);
    place = end;
}

const LogHeader* RecordWalk::next() {
    while (bytesLeft >= sizeof(LogHeader)) {
        const auto& header = *reinterpret_cast<const LogHeader*>(place);
        const size_t size = header.size();
        if (size == 0 && header.type() == RECORD_INCOMPLETE) {
            skipZeros();
            continue;
        }
        if (size < sizeof(LogHeader) || size > bytesLeft || size % kRecordAlignment != 0) {
            break;
        }
        place += size;
        bytesLeft -= size;
        ++records;
        return &header;
    }
    return nullptr;
}

uint32_t countComplete(const char* begin, const char* end) {
    RecordWalk walk(begin, end);
    uint32_t complete = 0;
    while (const LogHeader* record = walk.next()) {
        complete += record->type() != RECORD_INCOMPLETE ? 1U : 0U;
    }
    return complete;
}

bool LineRenderer::renderRecord(const LogHeader& header, RecordType type, TextBuffer& text) {
    return render(header, type, header.size(), text) == Line::AT_LIMIT;
}

bool LineRenderer::renderToLimit(RecordWalk& walk, TextBuffer& text) {
    RecordWalk step = walk;  // in registers
    Line line = Line::NONE;
    while (line != Line::AT_LIMIT && step.bytesLeft >= sizeof(LogHeader)) {
        const auto& header = *reinterpret_cast<const LogHeader*>(step.place);
        const RecordType type = header.type();
        const size_t size = header.size();
        if (size > step.bytesLeft || size % kRecordAlignment != 0) {
            break;
        }
        line = render(header, type, size, text);
        // A record that has a line is large enough to be stepped over.
        if (line == Line::NONE && size < sizeof(LogHeader)) [[unlikely]] {
            if (size > 0 || type != RECORD_INCOMPLETE) {
                break;
            }
            step.skipZeros();
            continue;
        }
        step.place += size;
        step.bytesLeft -= size;
        ++step.records;
    }
    walk = step;
    return line == Line::AT_LIMIT;
}

LineRenderer::LineRenderer(int32_t pid) : mPid(pid), mDateSecond(kNoLocalTime) {
    File::putDate(mDateText, {});
    for (ThreadText& entry : mThreads) {
        rememberThread(entry, entry.tid);
    }
    for (const Direction direction : {Direction::ENTER, Direction::EXIT}) {
        for (ModuleText& entry : mModules[static_cast<size_t>(direction)]) {
            rememberModule(entry, entry.moduleId, direction);
        }
    }
}

void LineRenderer::makeSignalSafe(clockid_t recordClock) {
    mSignalSafe = true;
    mRecordClock = recordClock;
}

void LineRenderer::rememberDate(time_t second) {
    static_assert(kDateChars == TextBuffer::kDateBytes && kDateChars <= sizeof(mDateText));
    File::putDate(mDateText,
                  mSignalSafe ? cachedLocalTime(second, mRecordClock) : localTime(second));
    mDateSecond = second;
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
