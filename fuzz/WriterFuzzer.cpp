// The writer on damaged memory: a region of records, each of which may be anything. The text must
// be that of a plain walk over the same region, and nothing outside it may be read.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include "Check.h"
#include "ComparedWriter.h"
#include "ExactCopy.h"
#include "jlog/file/LogRecord.h"

namespace JCam::Fuzz {

using namespace Utils::JLog::File;

namespace {

/// Enough to fill the text buffer more than once.
constexpr size_t kMaxRegionBytes = 65536;
constexpr size_t kMaxRecordBytes = 1400;
constexpr size_t kMaxCopies = 100;

template <typename T>
T load(const char* from) {
    T value;
    memcpy(&value, from, sizeof(value));
    return value;
}

/// What is to become a region.
class Draft {
  public:
    /// Takes all that is left of `input`.
    explicit Draft(FuzzedDataProvider& input) {
        while (input.remaining_bytes() > 0 && mBytes.size() < kMaxRegionBytes) {
            addRecords(input);
        }
    }

    /// The region but for its last `cutBytes`. A copy has pointers of its own.
    [[nodiscard]] ExactCopy regionWithout(size_t cutBytes) const {
        ExactCopy region({mBytes.data(), mBytes.size() - std::min(mBytes.size(), cutBytes)});
        for (const Pointer& pointer : mPointers) {
            const char* target = region.data() + pointer.target;
            if (pointer.place + sizeof(target) <= region.size()) {
                memcpy(region.data() + pointer.place, &target, sizeof(target));
            }
        }
        return region;
    }

    /// Where one of the records stands, by a fraction of 65536.
    [[nodiscard]] size_t placeOf(uint16_t fraction) const {
        return mPlaces.empty() ? 0 : mPlaces[mPlaces.size() * fraction / 65536];
    }

  private:
    /// A pointer at `place` to `target`, both from the start of the region.
    struct Pointer {
        size_t place;
        size_t target;
    };

    /// One record, and copies of it. What is odd about one is rare: most inputs are to get far.
    void addRecords(FuzzedDataProvider& input) {
        const auto rarely = [&] { return input.ConsumeIntegralInRange(0, 15) == 15; };
        std::string record = input.ConsumeRandomLengthString(kMaxRecordBytes);
        if (rarely()) {
            record.resize(input.ConsumeIntegralInRange<size_t>(0, kMaxRecordBytes), 'x');
        }
        record.resize((record.size() + kRecordAlignment) & ~(kRecordAlignment - 1), '\xA5');
        const auto anyType = input.ConsumeIntegral<uint8_t>();
        const auto type = input.PickValueInArray<uint8_t>(
                {RECORD_DETAILS, RECORD_ENTER, RECORD_EXIT, RECORD_INCOMPLETE, anyType});
        const size_t size = rarely() ? input.ConsumeIntegralInRange<size_t>(0, 2 * record.size())
                                     : record.size();
        const auto word = static_cast<uint32_t>(size << 8 | type);
        memcpy(record.data(), &word, sizeof(word));
        const auto target = input.ConsumeIntegralInRange<size_t>(0, record.size() + 8);
        const bool pointed =
                type == RECORD_DETAILS && record.size() >= sizeof(LogDetails) && !rarely();
        const size_t copies = rarely() ? input.ConsumeIntegralInRange<size_t>(1, kMaxCopies) : 1;
        for (size_t i = 0; i < copies; ++i) {
            const size_t place = mBytes.size();
            mPlaces.push_back(place);
            if (pointed) {
                mPointers.push_back({place + offsetof(LogDetails, message), place + target});
            }
            mBytes += record;
        }
    }

    std::string mBytes;
    std::vector<size_t> mPlaces;
    std::vector<Pointer> mPointers;
};

/// The line of the record in [record, end), if it has one.
void expectRecord(const char* record, const char* end, ComparedWriter& compared) {
    const auto type = load<uint8_t>(record);
    const auto tid = load<int32_t>(record + offsetof(LogHeader, tid));
    const auto timestamp = load<timespec>(record + offsetof(LogHeader, timestamp));
    const size_t nameOffset =
            type == RECORD_DETAILS ? LogDetails::kNameOffset : LogEnterExit::kNameOffset;
    if (end - record <= static_cast<ptrdiff_t>(nameOffset)) {
        return;
    }
    const char* name = record + nameOffset;
    if (type == RECORD_ENTER || type == RECORD_EXIT) {
        compared.expectEnterExit(tid, timestamp,
                                 load<uint32_t>(record + offsetof(LogEnterExit, serial)),
                                 load<uint32_t>(record + offsetof(LogEnterExit, moduleId)),
                                 load<uint32_t>(record + offsetof(LogEnterExit, requestNo)),
                                 {name, end}, type == RECORD_ENTER ? '+' : '-');
    }
    const auto* message = load<const char*>(record + offsetof(LogDetails, message));
    const std::less<> before;
    if (type == RECORD_DETAILS && !before(message, name) && before(message, end)) {
        compared.expectDetails(tid, timestamp, load<uint8_t>(record + offsetof(LogDetails, level)),
                               {name, end}, {message, end});
    }
}

/// The lines of [begin, end); returns how many records there are.
uint32_t expectRecords(const char* begin, const char* end, ComparedWriter& compared) {
    uint32_t records = 0;
    for (const char* place = begin; end - place >= static_cast<ptrdiff_t>(sizeof(LogHeader));) {
        const size_t size = load<uint32_t>(place) >> 8;
        if (size < sizeof(LogHeader) || size % kRecordAlignment != 0 ||
            size > static_cast<size_t>(end - place)) {
            break;
        }
        expectRecord(place, place + size, compared);
        ++records;
        place += size;
    }
    return records;
}

/// A call that hands over the region up to a place near a record.
struct Piece {
    uint16_t record;
    uint8_t words;
    bool flush;
};

void testInput(FuzzedDataProvider& input) {
    std::string prefix = input.ConsumeRandomLengthString(40);
    std::replace_if(
            prefix.begin(), prefix.end(), [](char c) { return c == '/' || c == '\0'; }, '_');
    const bool silent = input.ConsumeBool();
    ComparedWriter compared(prefix, silent, silent && input.ConsumeBool());
    std::array<Piece, 3> pieces{};
    for (Piece& piece : pieces) {
        piece.record = input.ConsumeIntegral<uint16_t>();
        piece.words = input.ConsumeIntegralInRange<uint8_t>(0, 7);
        piece.flush = input.ConsumeBool();
    }
    const auto cutBytes = input.ConsumeIntegralInRange<size_t>(0, 48);
    const Draft draft(input);
    const ExactCopy region = draft.regionWithout(cutBytes);
    size_t begin = 0;
    const auto append = [&](size_t end) {
        const char* first = region.data() + begin;
        const char* last = region.data() + end;
        const uint32_t records = compared.writer().appendRecords(first, last);
        check(records == expectRecords(first, last, compared), "all records are counted");
        begin = std::max(begin, end);
    };
    for (const Piece& piece : pieces) {
        const size_t end = draft.placeOf(piece.record) + piece.words * kRecordAlignment;
        append(std::min(end, region.size() & ~(kRecordAlignment - 1)));
        if (piece.flush) {
            compared.flush();
        }
    }
    append(region.size());
    compared.finish();
}

}  // namespace

}  // namespace JCam::Fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    JCam::Fuzz::testInput(input);
    return 0;
}
