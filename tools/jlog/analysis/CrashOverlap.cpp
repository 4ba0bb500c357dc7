#include "tools/jlog/analysis/CrashOverlap.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "reader/MappedFile.h"
#include "reader/Records.h"

namespace JCam::Tool {

namespace {

/// How far a record is looked for when the two files differ: the records of one instant that
/// threads were making.
constexpr size_t kMaxSkip = 64;
/// Records of the log that are compared when no serial tells where to look.
constexpr size_t kMaxTail = 1 << 20;

struct Item {
    std::string_view bytes;
    size_t piece = 0;     // in SeriesFiles::pieces
    uint64_t offset = 0;  // in its file
    bool isScope = false;
    bool isTorn = false;
};

std::vector<Item> listItems(std::string_view bytes, int pid, size_t piece, uint64_t begin) {
    std::vector<Item> items;
    Reader::Records records(bytes.substr(begin), pid);
    while (const std::optional<Reader::Record> record = records.next()) {
        if (!record->crash) {
            items.push_back({record->bytes, piece, begin + record->offset,
                             record->line && record->line->scope, record->isTorn});
        }
    }
    return items;
}

/// The log files of a series, mapped when they are needed.
class Log {
  public:
    explicit Log(const SeriesFiles& series) : mSeries(series), mMapped(series.pieces.size()) {}

    [[nodiscard]] std::string_view bytesOf(size_t piece) {
        const Piece& wanted = mSeries.pieces[piece];
        if (!mMapped[piece]) {
            mMapped[piece] = std::make_unique<Reader::MappedFile>(mSeries.files[wanted.file].path);
        }
        return mMapped[piece]->bytes().substr(0, wanted.end);
    }

    /// Items of the log up to its end: from `context` records in front of the record `anchor` on.
    /// Empty if it is not there.
    std::vector<Item> itemsAround(std::string_view anchor, size_t context, size_t& at) {
        for (size_t piece = mSeries.pieces.size(); piece-- > 0;) {
            if (isCrash(piece)) {
                continue;
            }
            const std::string_view bytes = bytesOf(piece);
            const size_t found = bytes.rfind(anchor);
            if (found != std::string_view::npos && (found == 0 || bytes[found - 1] == '\n')) {
                return itemsFrom(piece, found, context, at);
            }
        }
        return {};
    }

    /// The last `count` items of the log.
    std::vector<Item> tail(size_t count) {
        std::vector<Item> items;
        for (size_t piece = mSeries.pieces.size(); piece-- > 0 && items.size() < count;) {
            if (!isCrash(piece)) {
                const std::string_view bytes = bytesOf(piece);
                prepend(items, piece, backBy(piece, bytes.size(), count - items.size()));
            }
        }
        items.erase(items.begin(),
                    items.end() - static_cast<std::ptrdiff_t>(std::min(count, items.size())));
        return items;
    }

  private:
    [[nodiscard]] bool isCrash(size_t piece) const {
        return mSeries.files[mSeries.pieces[piece].file].isCrash;
    }

    std::vector<Item> itemsFrom(size_t piece, size_t found, size_t context, size_t& at) {
        const int pid = mSeries.pid;
        std::vector<Item> items;
        const size_t begin = backBy(piece, found, context);
        prepend(items, piece, begin);
        at = static_cast<size_t>(
                std::find_if(items.begin(), items.end(),
                             [&](const Item& item) { return item.offset == found; }) -
                items.begin());
        if (at < context && piece > 0 && !isCrash(piece - 1)) {
            const size_t before = items.size();
            const std::string_view bytes = bytesOf(piece - 1);
            prepend(items, piece - 1, backBy(piece - 1, bytes.size(), context - at));
            at += items.size() - before;
        }
        for (size_t next = piece + 1; next < mSeries.pieces.size(); next++) {
            if (!isCrash(next)) {
                const std::vector<Item> more =
                        listItems(bytesOf(next), pid, next, mSeries.pieces[next].begin);
                items.insert(items.end(), more.begin(), more.end());
            }
        }
        return items;
    }

    void prepend(std::vector<Item>& items, size_t piece, size_t begin) {
        std::vector<Item> first = listItems(bytesOf(piece), mSeries.pid, piece, begin);
        first.insert(first.end(), items.begin(), items.end());
        items = std::move(first);
    }

    /// The begin of a record that is at least `records` in front of `offset`, or of the piece.
    size_t backBy(size_t piece, size_t offset, size_t records) {
        constexpr size_t kMaxRecordBytes = 1300;
        const uint64_t begin = mSeries.pieces[piece].begin;
        const uint64_t distance =
                std::min<uint64_t>(offset - begin, (records + 1) * kMaxRecordBytes);
        const size_t from = offset - static_cast<size_t>(distance);
        return from == begin ? from : Reader::findRecord(bytesOf(piece), from, mSeries.pid);
    }

    const SeriesFiles& mSeries;
    std::vector<std::unique_ptr<Reader::MappedFile>> mMapped;
};

/// How many items at the end of `log` are those that `dump` begins with.
size_t countCommon(const std::vector<Item>& log, const std::vector<Item>& dump) {
    // The longest border of the dump, a separator, and the log: the prefix function.
    const auto equal = [](const Item& a, const Item& b) { return a.bytes == b.bytes; };
    std::vector<size_t> border(dump.size(), 0);
    for (size_t i = 1, length = 0; i < dump.size(); i++) {
        while (length > 0 && !equal(dump[i], dump[length])) {
            length = border[length - 1];
        }
        length += equal(dump[i], dump[length]) ? 1U : 0U;
        border[i] = length;
    }
    size_t length = 0;
    for (const Item& item : log) {
        while (length > 0 && (length == dump.size() || !equal(item, dump[length]))) {
            length = border[length - 1];
        }
        length += length < dump.size() && equal(item, dump[length]) ? 1U : 0U;
    }
    return length;
}

/// Marks which items of a dump the log has, and where the others belong.
class Alignment {
  public:
    Alignment(const std::vector<Item>& log, const std::vector<Item>& dump)
            : mLog(log),
              mDump(dump),
              mPlaces(dump.size(), log.size()),
              mIsRepeat(dump.size()),
              mLogEnd(log.size()) {}

    /// From two items that are the same: forward to the end of either, and back.
    void align(size_t log, size_t dump) {
        for (size_t i = log, j = dump; i-- > 0 && j-- > 0;) {
            if (mLog[i].bytes != mDump[j].bytes) {
                break;
            }
            setRepeat(j);
        }
        while (log < mLog.size() && dump < mDump.size()) {
            if (mLog[log].bytes == mDump[dump].bytes) {
                setRepeat(dump++);
                log++;
            } else if (const size_t skip = find(mLog, log, mDump[dump]); skip > 0) {
                log += skip;
            } else if (const size_t missing = find(mDump, dump, mLog[log]); missing > 0) {
                for (size_t i = 0; i < missing; i++) {
                    mPlaces[dump++] = log;
                }
            } else {
                mPlaces[dump++] = log;
                if (mLog[log].isTorn) {
                    break;
                }
                log++;
            }
        }
        mLogEnd = log;
    }

    void setRepeat(size_t dump) { mIsRepeat[dump] = true; }
    [[nodiscard]] bool isRepeat(size_t dump) const { return mIsRepeat[dump]; }
    /// Where the dump was written: the log goes on with this item, if it goes on.
    [[nodiscard]] size_t logEnd() const { return mLogEnd; }
    /// The item of the log in front of which an item belongs that is no repeat; at the end: all.
    [[nodiscard]] size_t placeOf(size_t dump) const { return mPlaces[dump]; }

  private:
    /// How far behind `from` the item is; 0 if it is not near.
    static size_t find(const std::vector<Item>& items, size_t from, const Item& item) {
        const size_t end = std::min(items.size(), from + kMaxSkip);
        for (size_t i = from + 1; i < end; i++) {
            if (items[i].bytes == item.bytes) {
                return i - from;
            }
        }
        return 0;
    }

    const std::vector<Item>& mLog;
    const std::vector<Item>& mDump;
    std::vector<size_t> mPlaces;
    std::vector<bool> mIsRepeat;
    size_t mLogEnd;
};

/// Puts parts of the crash file between the parts of the log files.
class Splicer {
  public:
    Splicer(SeriesFiles& series, uint32_t crashFile) : mSeries(series), mCrashFile(crashFile) {}

    /// In front of an item of the log.
    void insert(const Item& before, uint64_t begin, uint64_t end) {
        mInserts.push_back({before.piece, before.offset, {mCrashFile, begin, end}});
    }
    void append(uint64_t begin, uint64_t end) {
        if (!mAppended.empty() && mAppended.back().end == begin) {
            mAppended.back().end = end;
        } else if (begin < end) {
            mAppended.push_back({mCrashFile, begin, end});
        }
    }
    void finish() {
        std::vector<Piece> pieces;
        auto insert = mInserts.begin();
        for (size_t i = 0; i < mSeries.pieces.size(); i++) {
            Piece rest = mSeries.pieces[i];
            for (; insert != mInserts.end() && insert->piece == i; insert++) {
                if (insert->offset > rest.begin) {
                    pieces.push_back({rest.file, rest.begin, insert->offset});
                    rest.begin = insert->offset;
                }
                pieces.push_back(insert->part);
            }
            if (rest.begin < rest.end) {
                pieces.push_back(rest);
            }
        }
        pieces.insert(pieces.end(), mAppended.begin(), mAppended.end());
        mSeries.pieces = std::move(pieces);
    }

  private:
    struct Insert {
        size_t piece = 0;
        uint64_t offset = 0;
        Piece part;
    };

    SeriesFiles& mSeries;
    const uint32_t mCrashFile;
    std::vector<Insert> mInserts;  // in the order of the log
    std::vector<Piece> mAppended;
};

}  // namespace

void joinCrashFile(SeriesFiles& series, uint32_t crashFile) {
    const Reader::MappedFile mapped(series.files[crashFile].path);
    const std::string_view bytes = mapped.bytes();
    const std::vector<Item> dump = listItems(bytes, series.pid, 0, 0);
    const uint64_t firstRecord = dump.empty() ? bytes.size() : dump.front().offset;

    Log log(series);
    std::vector<Item> items;
    std::optional<Alignment> alignment;
    const auto anchor = std::find_if(dump.begin(), dump.end(),
                                     [](const Item& item) { return item.isScope && !item.isTorn; });
    size_t at = 0;
    if (anchor != dump.end()) {
        const auto context = static_cast<size_t>(anchor - dump.begin());
        items = log.itemsAround(anchor->bytes, context, at);
        alignment.emplace(items, dump);
        if (!items.empty()) {
            alignment->align(at, context);
        }
    }
    if (items.empty()) {
        items = log.tail(std::min(dump.size(), kMaxTail));
        alignment.emplace(items, dump);
        const size_t common = countCommon(items, dump);
        for (size_t i = 0; i < common; i++) {
            alignment->setRepeat(i);
        }
    }

    // A log that ends within a line is continued by the whole line in the dump.
    size_t last = dump.size();
    for (size_t i = 0; i < dump.size() && last == dump.size(); i++) {
        last = alignment->isRepeat(i) ? last : i;
    }
    if (!items.empty() && items.back().isTorn && last < dump.size() &&
        dump[last].bytes.starts_with(items.back().bytes)) {
        series.pieces[items.back().piece].end = items.back().offset;
    }

    Splicer splicer(series, crashFile);
    const bool logGoesOn = alignment->logEnd() < items.size() && !items[alignment->logEnd()].isTorn;
    if (!logGoesOn) {
        splicer.append(0, firstRecord);
    }
    for (size_t i = 0; i < dump.size(); i++) {
        const uint64_t begin = dump[i].offset;
        const uint64_t end = begin + dump[i].bytes.size();
        if (alignment->isRepeat(i)) {
            series.repeats++;
        } else if (alignment->placeOf(i) < items.size() && !items[alignment->placeOf(i)].isTorn) {
            splicer.insert(items[alignment->placeOf(i)], begin, end);
        } else {
            splicer.append(begin, end);
        }
    }
    if (logGoesOn && firstRecord > 0) {
        splicer.insert(items[alignment->logEnd()], 0, firstRecord);
    }
    splicer.finish();
}

}  // namespace JCam::Tool
