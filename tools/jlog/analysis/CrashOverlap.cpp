#include "tools/jlog/analysis/CrashOverlap.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "reader/Records.h"

namespace JCam::Tool {

namespace {

/// How far a record is looked for when the two files differ: the records of one instant that
/// threads were making.
constexpr size_t kMaxSkip = 64;
/// The records that were being made when a dump was written have fewer bytes.
constexpr uint64_t kSlackBytes = uint64_t{256} * 1024;
/// Dumps have some megabytes. What is behind so many bytes is taken for new.
constexpr uint64_t kMaxDumpBytes = uint64_t{64} * 1024 * 1024;

struct Item {
    std::string_view bytes;
    size_t piece = 0;     // in SeriesFiles::pieces
    uint64_t offset = 0;  // in its file
    uint64_t line = 0;    // from the first byte that was read
    bool isScope = false;
    bool isTorn = false;
};

/// The bytes from `begin` to `end`, or as many of them as there are. Files are not mapped: one that
/// is truncated meanwhile would end the program.
std::string readPart(const std::string& path, uint64_t begin, uint64_t end) {
    std::string bytes(static_cast<size_t>(end - begin), '\0');
    size_t size = 0;
    if (const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC); fd >= 0) {
        for (ssize_t got = 1; size < bytes.size() && got > 0; size += static_cast<size_t>(got)) {
            do {
                got = pread(fd, bytes.data() + size, bytes.size() - size,
                            static_cast<off_t>(begin + size));
            } while (got < 0 && errno == EINTR);
            got = std::max<ssize_t>(got, 0);
        }
        close(fd);
    }
    bytes.resize(size);
    return bytes;
}

/// `offset`: of the first byte in its file.
void addItems(std::vector<Item>& items, std::string_view bytes, int pid, size_t piece,
              uint64_t offset) {
    Reader::Records records(bytes, pid);
    while (const Reader::Record* const record = records.next()) {
        if (!record->crash) {
            items.push_back({record->bytes, piece, offset + record->offset, record->lineNumber,
                             record->line && record->line->scope, record->isTorn});
        }
    }
}

/// A part of the records that a series has.
class Log {
  public:
    explicit Log(const SeriesFiles& series) : mSeries(series) {}

    /// Takes the records around the last one that has the bytes of `anchor`: from `before` bytes in
    /// front of it on, and `after` behind it. False if there is none.
    bool takeAround(std::string_view anchor, uint64_t before, uint64_t after) {
        for (size_t piece = mSeries.pieces.size(); piece-- > 0;) {
            if (const std::optional<uint64_t> found = findLast(piece, anchor)) {
                take(piece, *found, before, after);
                const auto item =
                        std::find_if(mItems.begin(), mItems.end(), [&](const Item& candidate) {
                            return candidate.piece == piece && candidate.offset == *found;
                        });
                mAnchor = static_cast<size_t>(item - mItems.begin());
                return item != mItems.end();
            }
        }
        return false;
    }

    /// Takes the last records.
    void takeEnd(uint64_t bytes) {
        if (!mSeries.pieces.empty()) {
            take(mSeries.pieces.size() - 1, mSeries.pieces.back().end, bytes, 0);
        }
    }

    [[nodiscard]] const std::vector<Item>& items() const { return mItems; }
    [[nodiscard]] size_t anchor() const { return mAnchor; }
    /// The log ends with half a line, the last item.
    [[nodiscard]] bool isTorn() const { return !mItems.empty() && mItems.back().isTorn; }

  private:
    [[nodiscard]] std::string read(const Piece& piece, uint64_t begin, uint64_t end) const {
        return readPart(mSeries.files[piece.file].path.string(), begin, end);
    }

    /// The offset of the last line of a piece that begins with `anchor`.
    [[nodiscard]] std::optional<uint64_t> findLast(size_t number, std::string_view anchor) const {
        const Piece& piece = mSeries.pieces[number];
        constexpr uint64_t kStep = uint64_t{4} * 1024 * 1024;
        for (uint64_t end = piece.end; end > piece.begin;) {
            const uint64_t step = end - std::min(kStep, end - piece.begin);
            // With the byte in front, which ends the line before, and what an anchor may be longer.
            const uint64_t begin = step > piece.begin ? step - 1 : step;
            const std::string bytes = read(piece, begin, std::min(end + anchor.size(), piece.end));
            for (size_t at = bytes.size(); at > 0;) {
                const size_t newline = bytes.rfind('\n', at - 1);
                const bool isFirst = newline == std::string::npos;
                const size_t line = isFirst ? 0 : newline + 1;
                if ((!isFirst || begin == piece.begin) &&
                    std::string_view(bytes).substr(line).starts_with(anchor)) {
                    return begin + line;
                }
                at = isFirst ? 0 : newline;
            }
            end = step;
        }
        return std::nullopt;
    }

    void take(size_t piece, uint64_t offset, uint64_t before, uint64_t after) {
        const std::vector<Piece>& pieces = mSeries.pieces;
        size_t first = piece;
        uint64_t begin = offset;
        for (uint64_t left = before; left > 0;) {
            const uint64_t step = std::min(left, begin - pieces[first].begin);
            begin -= step;
            left -= step;
            if (left == 0 || first == 0) {
                break;
            }
            begin = pieces[--first].end;
        }
        uint64_t left = after + (first == piece ? offset - begin : offset - pieces[piece].begin);
        for (size_t next = first; next < pieces.size(); next++) {
            const uint64_t from = next == first ? begin : pieces[next].begin;
            uint64_t end = pieces[next].end;
            if (next >= piece) {
                end = from + std::min(left, end - from);
                left -= end - from;
            }
            addPart(next, from, end);
            if (end < pieces[next].end) {
                if (!mItems.empty() && mItems.back().piece == next) {
                    mItems.pop_back();  // the end of it may be missing
                }
                break;
            }
        }
        for (size_t i = 0; i < mItems.size(); i++) {
            mItems[i].isTorn = mItems[i].isTorn && i + 1 == mItems.size();
        }
    }

    void addPart(size_t number, uint64_t begin, uint64_t end) {
        const Piece& piece = mSeries.pieces[number];
        // The byte in front tells whether a line begins here.
        const uint64_t lead = begin > piece.begin ? 1 : 0;
        const std::string& bytes = mTexts.emplace_back(read(piece, begin - lead, end));
        const size_t from = lead == 0 ? 0
                                      : Reader::findRecord(bytes, std::min<size_t>(1, bytes.size()),
                                                           mSeries.pid);
        addItems(mItems, std::string_view(bytes).substr(from), mSeries.pid, number,
                 begin - lead + from);
    }

    const SeriesFiles& mSeries;
    std::deque<std::string> mTexts;  // that the items are views of
    std::vector<Item> mItems;
    size_t mAnchor = 0;
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
        if (item.isTorn) {
            break;
        }
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
              mLogEnd(log.size()) {
        for (size_t i = 0; i < log.size(); i++) {
            if (log[i].isScope && !log[i].isTorn) {
                mScopes[log[i].bytes] = i;
            }
        }
    }

    /// From the first serial of the dump that the log has; false if there is none.
    bool align() {
        for (size_t i = 0; i < mDump.size(); i++) {
            if (const std::optional<size_t> log = findScope(i)) {
                align(*log, i);
                return true;
            }
        }
        return false;
    }

    /// From two items that are the same: forward to the end of either, and back.
    void align(size_t log, size_t dump) {
        alignFront(log, dump, 0);
        while (log < mLog.size() && dump < mDump.size()) {
            if (mLog[log].bytes == mDump[dump].bytes) {
                setRepeat(dump++);
                log++;
                continue;
            }
            const size_t skip = find(mLog, log, mDump[dump]);
            const size_t missing = find(mDump, dump, mLog[log]);
            if (skip > 0 && (missing == 0 || skip <= missing)) {
                log += skip;
                continue;
            }
            if (missing == 0 && leap(log, dump)) {
                continue;
            }
            for (size_t i = 0; i < std::max<size_t>(missing, 1); i++) {
                mPlaces[dump++] = log;
            }
            if (missing == 0) {
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
    /// The place of an item of the dump in the log, if it has a serial that the log has.
    [[nodiscard]] std::optional<size_t> findScope(size_t dump) const {
        const auto found = mDump[dump].isScope ? mScopes.find(mDump[dump].bytes) : mScopes.end();
        return found == mScopes.end() ? std::nullopt : std::optional(found->second);
    }

    /// Over whole buffers that the dump lacks, to the next serial that both have.
    bool leap(size_t& log, size_t& dump) {
        const size_t end = std::min(mDump.size(), dump + kMaxSkip);
        for (size_t i = dump; i < end; i++) {
            const std::optional<size_t> place = findScope(i);
            if (place && *place >= log + kMaxSkip) {
                alignFront(*place, i, dump);
                log = *place;
                dump = i;
                return true;
            }
        }
        return false;
    }

    /// The items in front of two that are the same, as far as `first`.
    void alignFront(size_t log, size_t dump, size_t first) {
        while (dump > first) {
            const Item& wanted = mDump[dump - 1];
            size_t at = log;
            while (at > 0 && log - at < kMaxSkip && mLog[at - 1].bytes != wanted.bytes) {
                at--;
            }
            dump--;
            if (at > 0 && mLog[at - 1].bytes == wanted.bytes) {
                setRepeat(dump);
                log = at - 1;
            } else {
                mPlaces[dump] = log;
            }
        }
    }

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
    std::unordered_map<std::string_view, size_t> mScopes;  // the items of the log with a serial
    std::vector<size_t> mPlaces;
    std::vector<bool> mIsRepeat;
    size_t mLogEnd;
};

/// Puts parts of the crash file between the parts of the log files.
class Splicer {
  public:
    Splicer(SeriesFiles& series, uint32_t crashFile) : mSeries(series), mCrashFile(crashFile) {}

    /// In front of an item of the log.
    void insert(const Item& before, uint64_t begin, uint64_t end, uint64_t line) {
        if (!mInserts.empty() && mInserts.back().piece == before.piece &&
            mInserts.back().offset == before.offset && mInserts.back().part.end == begin) {
            mInserts.back().part.end = end;
        } else {
            mInserts.push_back({before.piece, before.offset, {mCrashFile, begin, end, line}});
        }
    }
    void append(uint64_t begin, uint64_t end, uint64_t line) {
        if (!mAppended.empty() && mAppended.back().end == begin) {
            mAppended.back().end = end;
        } else if (begin < end) {
            mAppended.push_back({mCrashFile, begin, end, line});
        }
    }
    void finish() {
        std::vector<Piece> pieces;
        auto insert = mInserts.begin();
        for (size_t i = 0; i < mSeries.pieces.size(); i++) {
            Piece rest = mSeries.pieces[i];
            for (; insert != mInserts.end() && insert->piece == i; insert++) {
                if (insert->offset > rest.begin) {
                    pieces.push_back({rest.file, rest.begin, insert->offset, rest.line});
                    rest.begin = insert->offset;
                    rest.line = 0;
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

/// Takes the part of the log that a dump of `bytes` can overlap with, and lays it beside the dump.
/// `slack`: more of the log than the dump has bytes. `isLast`: the log does not go on behind it.
Alignment alignWith(Log& log, const std::vector<Item>& dump, uint64_t bytes, uint64_t slack,
                    bool isLast) {
    const auto anchor = std::find_if(dump.begin(), dump.end(),
                                     [](const Item& item) { return item.isScope && !item.isTorn; });
    if (!isLast && anchor != dump.end() &&
        log.takeAround(anchor->bytes, anchor->offset + slack, bytes - anchor->offset + slack)) {
        Alignment alignment(log.items(), dump);
        alignment.align(log.anchor(), static_cast<size_t>(anchor - dump.begin()));
        return alignment;
    }
    log.takeEnd(bytes + slack);
    Alignment alignment(log.items(), dump);
    const size_t common = alignment.align() ? 0 : countCommon(log.items(), dump);
    for (size_t i = 0; i < common; i++) {
        alignment.setRepeat(i);
    }
    return alignment;
}

/// How much more of the log than the dump has bytes may be records that the dump lacks.
uint64_t slackOf(const SeriesFiles& series) {
    uint64_t slack = kSlackBytes;
    for (const Piece& piece : series.pieces) {
        slack += series.files[piece.file].isCrash ? piece.end - piece.begin : 0;
    }
    return slack;
}

/// A log that ends within a line is continued by the whole line in the dump.
void dropTornLine(SeriesFiles& series, const Log& log, const std::vector<Item>& dump,
                  const Alignment& alignment) {
    size_t first = 0;
    while (first < dump.size() && alignment.isRepeat(first)) {
        first++;
    }
    if (log.isTorn() && first < dump.size() &&
        dump[first].bytes.starts_with(log.items().back().bytes)) {
        series.pieces[log.items().back().piece].end = log.items().back().offset;
    }
}

}  // namespace

void joinCrashFile(SeriesFiles& series, uint32_t crashFile) {
    const uint64_t fileEnd = series.sizes[crashFile];
    const std::string path = series.files[crashFile].path.string();
    const std::string bytes = readPart(path, 0, std::min(fileEnd, kMaxDumpBytes));
    if (bytes.empty()) {
        series.problems.push_back(path + ": it cannot be read");
        return;
    }
    std::vector<Item> dump;
    addItems(dump, bytes, series.pid, 0, 0);
    const uint64_t firstRecord = dump.empty() ? bytes.size() : dump.front().offset;
    if (fileEnd > kMaxDumpBytes && !dump.empty()) {
        dump.pop_back();  // the end of it may be missing
    }

    Log log(series);
    const Alignment alignment =
            alignWith(log, dump, bytes.size(), slackOf(series), series.files[crashFile].isBlackBox);
    dropTornLine(series, log, dump, alignment);

    Splicer splicer(series, crashFile);
    const std::vector<Item>& items = log.items();
    const auto isInLog = [&](size_t place) { return place < items.size() && !items[place].isTorn; };
    const bool logGoesOn = isInLog(alignment.logEnd());
    if (!logGoesOn) {
        splicer.append(0, firstRecord, 1);
    }
    uint64_t dumpEnd = firstRecord;
    for (size_t i = 0; i < dump.size(); i++) {
        const uint64_t begin = dump[i].offset;
        dumpEnd = begin + dump[i].bytes.size();
        if (alignment.isRepeat(i)) {
            series.repeats++;
        } else if (isInLog(alignment.placeOf(i))) {
            splicer.insert(items[alignment.placeOf(i)], begin, dumpEnd, dump[i].line);
        } else {
            splicer.append(begin, dumpEnd, dump[i].line);
        }
    }
    if (logGoesOn && firstRecord > 0) {
        splicer.insert(items[alignment.logEnd()], 0, firstRecord, 1);
    }
    if (fileEnd > kMaxDumpBytes) {
        splicer.append(dumpEnd, fileEnd, 0);
    }
    splicer.finish();
}

}  // namespace JCam::Tool
