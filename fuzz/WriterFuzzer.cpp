// The writer on damaged memory: a region of records, each of which may be anything. The text is
// that of the reference for the same records, and nothing outside the region is read.

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <limits>
#include <string>
#include <string_view>

#include <fuzzer/FuzzedDataProvider.h>
#include <sanitizer/asan_interface.h>

#include "Check.h"
#include "jlog/file/FileJLogWriter.h"
#include "jlog/file/LogRecord.h"
#include "support/Records.h"
#include "support/ReferenceWriter.h"
#include "support/TempFolder.h"

namespace JCam::Fuzz {

using namespace Utils::JLog::File;
using Support::Record;

namespace {

/// Enough to fill the text buffer more than once.
constexpr size_t kMaxRegionBytes = 65536;
constexpr size_t kMaxRecordBytes = 1400;
constexpr size_t kMaxCopies = 100;

/// True for one record in 16: most inputs are to get far.
bool rarely(FuzzedDataProvider& input) {
    return input.ConsumeIntegralInRange(0, 15) == 15;
}

/// The memory that the writer gets.
class Region {
  public:
    [[nodiscard]] static const char* begin() { return sBytes; }
    /// Bytes of the region but for the last ones.
    [[nodiscard]] size_t sizeWithout(size_t bytes) const { return mSize - std::min(mSize, bytes); }

    /// Adds one record, and copies of it.
    void addRecords(FuzzedDataProvider& input) {
        std::string record = input.ConsumeRandomLengthString(kMaxRecordBytes);
        if (rarely(input)) {
            record.resize(input.ConsumeIntegralInRange<size_t>(0, kMaxRecordBytes), 'x');
        }
        record.resize((record.size() + kRecordAlignment) & ~(kRecordAlignment - 1), '\xA5');
        const auto type = input.PickValueInArray<uint8_t>({RECORD_DETAILS, RECORD_ENTER,
                                                           RECORD_EXIT, RECORD_INCOMPLETE,
                                                           input.ConsumeIntegral<uint8_t>()});
        const size_t size = rarely(input)
                                    ? input.ConsumeIntegralInRange<size_t>(0, 2 * record.size())
                                    : record.size();
        const auto word = static_cast<uint32_t>(size << 8 | type);
        memcpy(record.data(), &word, sizeof(word));
        const auto message = input.ConsumeIntegralInRange<size_t>(0, record.size() + 8);
        const bool hasMessage =
                type == RECORD_DETAILS && record.size() >= sizeof(LogDetails) && !rarely(input);
        const size_t copies =
                rarely(input) ? input.ConsumeIntegralInRange<size_t>(1, kMaxCopies) : 1;
        for (size_t i = 0; i < copies && mSize + record.size() <= kMaxRegionBytes; ++i) {
            if (hasMessage) {
                const char* address = sBytes + mSize + message;
                memcpy(record.data() + offsetof(LogDetails, message), &address, sizeof(address));
            }
            record.copy(sBytes + mSize, record.size());
            mSize += record.size();
        }
    }

  private:
    alignas(kRecordAlignment) static inline char sBytes[kMaxRegionBytes];
    size_t mSize{0};
};

/// The characters in [begin, end) of which at most `maxChars` are printed: those before a NUL.
std::string textIn(const char* begin, const char* end, size_t maxChars) {
    return {begin, strnlen(begin, std::min(static_cast<size_t>(end - begin), maxChars))};
}

/// The writer of crash dumps, which is the one to meet damaged memory, and the reference get the
/// same records.
class Comparison {
  public:
    Comparison() {
        setenv("TZ", "UTC0", 1);
        tzset();
        mWriter.makeSignalSafe(CLOCK_REALTIME);
        mWriter.mFolder = mFolder.path();
        check(mWriter.open(true, "", true), "the file is opened");
    }

    /// Hands over what lies in the region between two offsets, while nothing else of it may be
    /// read. An end in front of the beginning stands for nothing.
    void append(size_t begin, size_t end) {
        const char* first = Region::begin() + begin;
        const size_t bytes = std::max(begin, end) - begin;
        ASAN_POISON_MEMORY_REGION(Region::begin(), kMaxRegionBytes);
        ASAN_UNPOISON_MEMORY_REGION(first, bytes);
        const uint32_t records = mWriter.appendRecords(first, Region::begin() + end);
        ASAN_UNPOISON_MEMORY_REGION(Region::begin(), kMaxRegionBytes);
        check(records == expectRecords(first, bytes), "all records are counted");
    }

    void flush() {
        mWriter.flush(false);
        mReference.flush();
    }

    void finish() {
        mWriter.close();
        mReference.flush();
        checkEqual(mFolder.logText(), mExpected, "the file has the lines of the reference");
    }

  private:
    /// Returns how many records there are.
    uint32_t expectRecords(const char* place, size_t left) {
        uint32_t records = 0;
        while (left >= sizeof(LogHeader)) {
            const auto& header = *reinterpret_cast<const LogHeader*>(place);
            const size_t size = header.size();
            if (header.sizeAndType == 0) {
                // Space that was reserved a moment ago has no size yet.
                place += kRecordAlignment;
                left -= kRecordAlignment;
                continue;
            }
            if (size < sizeof(LogHeader) || size % kRecordAlignment != 0 || size > left) {
                break;
            }
            expectRecord(header, place + size);
            place += size;
            left -= size;
            ++records;
        }
        return records;
    }

    /// The line of the record that ends at `end`, if it has one.
    void expectRecord(const LogHeader& header, const char* end) {
        const uint8_t type = header.type();
        if ((type == RECORD_ENTER || type == RECORD_EXIT) &&
            header.size() > LogEnterExit::kNameOffset) {
            const auto& record = reinterpret_cast<const LogEnterExit&>(header);
            mReference.enterExit(Record::enterExit(header.tid, comparable(header.timestamp),
                                                   record.serial, record.moduleId, record.requestNo,
                                                   textIn(record.name(), end, kMaxNameChars))
                                         .asEnterExit(),
                                 type == RECORD_ENTER ? '+' : '-');
        }
        const auto& record = reinterpret_cast<const LogDetails&>(header);
        const std::less<> before;
        if (type == RECORD_DETAILS && header.size() > LogDetails::kNameOffset &&
            !before(record.message, record.name()) && before(record.message, end)) {
            mReference.details(Record::details(header.tid, comparable(header.timestamp),
                                               record.level,
                                               textIn(record.name(), end, kMaxNameChars),
                                               textIn(record.message, end, kMaxMessageChars))
                                       .asDetails());
        }
    }

    /// Beyond some 31 million years a crash dump prints what others print where a second has no
    /// local form at all.
    static timespec comparable(timespec timestamp) {
        constexpr time_t kFarOff = 1000000000000000;
        const bool far = timestamp.tv_sec > kFarOff || timestamp.tv_sec < -kFarOff;
        return {far ? std::numeric_limits<time_t>::max() : timestamp.tv_sec, timestamp.tv_nsec};
    }

    const Support::TempFolder mFolder;
    FileJLogWriter mWriter;
    std::string mExpected;
    Support::ReferenceWriter mReference{
            getpid(), [this](const char* text, size_t bytes) { mExpected.append(text, bytes); }};
};

}  // namespace

}  // namespace JCam::Fuzz

/// What is handed over at once may end, and so the next may begin, within a record.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace JCam::Fuzz;
    FuzzedDataProvider input(data, size);
    Comparison comparison;
    const auto cutBytes = input.ConsumeIntegralInRange<size_t>(0, 48);
    Region region;
    size_t begin = 0;
    while (input.remaining_bytes() > 0) {
        region.addRecords(input);
        if (rarely(input)) {
            const size_t end = region.sizeWithout(input.ConsumeIntegralInRange<size_t>(0, 7) * 8);
            comparison.append(begin, end);
            begin = std::max(begin, end);
            if (input.ConsumeBool()) {
                comparison.flush();
            }
        }
    }
    comparison.append(begin, region.sizeWithout(cutBytes));
    comparison.finish();
    return 0;
}
