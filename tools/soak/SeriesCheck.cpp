#include "SeriesCheck.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <utility>

#include <fmt/format.h>

#include "ExpectedLine.h"
#include "Fault.h"

namespace JCam::Soak {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kMark = "-- CONTINUED --\n";
/// Above this a file is followed by the next one. The mark does not count.
constexpr uint64_t kMaxFileBytes = 188743680;
constexpr std::string_view kStampShape = "00-00 00:00:00.000000";

/// Whether each character is the shape's, or a digit where that has a 0.
bool isStamp(std::string_view text) {
    return text.size() == kStampShape.size() &&
           std::equal(text.begin(), text.end(), kStampShape.begin(), [](char c, char shape) {
               return shape == '0' ? c >= '0' && c <= '9' : c == shape;
           });
}

/// `text` for a message, from shortly before byte `from` on.
std::string quote(std::string_view text, size_t from = 0) {
    constexpr size_t kBefore = 60;
    constexpr size_t kQuoteBytes = 160;
    const size_t start = from - std::min(from, kBefore);
    std::string quoted = start > 0 ? "..." : "";
    for (const char c : text.substr(std::min(start, text.size()), kQuoteBytes)) {
        quoted += c >= ' ' && c <= '~' && c != '\\'
                          ? std::string(1, c)
                          : fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
    }
    return quoted;
}

size_t commonBytes(std::string_view a, std::string_view b) {
    const auto [inA, inB] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
    return static_cast<size_t>(inA - a.begin());
}

/// The files of a series by their index, which counts from 1.
std::vector<fs::path> listSeries(const fs::path& folder, pid_t pid) {
    std::vector<fs::path> paths;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        paths.push_back(entry.path());
    }
    // Names of one series differ in the index alone, which has two digits or more.
    std::sort(paths.begin(), paths.end(), [](const fs::path& a, const fs::path& b) {
        return std::pair(a.native().size(), a) < std::pair(b.native().size(), b);
    });
    const std::string prefix = fmt::format("cam_jlog_{}_", pid);
    constexpr size_t kStampChars = sizeof("YYYY_MMDD_hhmmss") - 1;
    const std::string first = paths.empty() ? "" : paths.front().filename().string();
    for (size_t i = 0; i < paths.size(); ++i) {
        const std::string stem = first.substr(0, prefix.size() + kStampChars);
        if (!stem.starts_with(prefix) ||
            paths[i].filename() != fmt::format("{}_{:02}.txt", stem, i + 1)) {
            throw Fault(fmt::format("{} does not belong there", paths[i].string()));
        }
    }
    return paths;
}

}  // namespace

SeriesCheck::SeriesCheck(const Material& material, const LedgerBook& ledgers,
                         std::vector<uint32_t> writes, bool monotonic)
        : mMaterial(material), mPid(getpid()), mMonotonic(monotonic), mWrites(std::move(writes)) {
    for (const ThreadLedger& ledger : ledgers) {
        Thread& thread = mThreads[ledger.tid];
        thread.origin = originText(mPid, ledger.tid);
        thread.ledgers.push_back(&ledger);
    }
}

SeriesCounts SeriesCheck::check(const fs::path& folder) {
    const std::vector<fs::path> paths = listSeries(folder, mPid);
    for (const fs::path& path : paths) {
        checkFile(path, path == paths.front(), path == paths.back());
        ++mCounts.files;
    }
    checkEnd();
    return mCounts;
}

void SeriesCheck::checkFile(const fs::path& path, bool isFirst, bool isLast) {
    FileWindow file(path);
    mPlace = path.string();
    if (!isFirst) {
        takeMark(file);
    }
    const uint64_t uncounted = file.offset();
    std::string_view text = file.ahead();
    for (; !text.empty(); text = file.ahead()) {
        mPlace = fmt::format("{}, offset {}", path.string(), file.offset());
        if (file.offset() - uncounted > kMaxFileBytes) {
            fail("the file should have ended here");
        }
        takeBytes(file, checkRecord(text));
        ++mCounts.records;
    }
    if (!isLast && file.offset() - uncounted <= kMaxFileBytes) {
        fail(fmt::format("the file ends early, with {} bytes", file.offset()));
    }
    mCounts.bytes += file.offset();
}

void SeriesCheck::takeMark(FileWindow& file) {
    if (!file.ahead().starts_with(kMark)) {
        fail("the file does not go on with a mark: " + quote(file.ahead()));
    }
    takeBytes(file, kMark.size());
}

void SeriesCheck::takeBytes(FileWindow& file, size_t bytes) {
    if (mWrites.isTooLong()) {
        fail(fmt::format("write {} was longer than a text buffer", mWrites.number()));
    }
    if (bytes > mWrites.left()) {
        fail(fmt::format("write {} ended {} bytes into this line of {}", mWrites.number(),
                         mWrites.left(), bytes));
    }
    mWrites.advance(bytes);
    file.advance(bytes);
}

size_t SeriesCheck::checkRecord(std::string_view text) {
    const std::string_view stamp = text.substr(0, kStampShape.size());
    if (!isStamp(stamp)) {
        fail("no time stamp: " + quote(text));
    }
    Thread& thread = findThread(text);
    checkStamp(thread, stamp);
    return checkLine(thread, text);
}

SeriesCheck::Thread& SeriesCheck::findThread(std::string_view text) {
    // Behind the stamp: " PPPPP TTTTT ", of which the process id is ours.
    const std::string_view origin = text.substr(kStampShape.size());
    const size_t tidStart = origin.find_first_not_of(' ', fmt::format(" {:5} ", mPid).size());
    if (tidStart == std::string_view::npos) {
        fail("no thread id: " + quote(text));
    }
    int tid = 0;
    std::from_chars(origin.data() + tidStart, origin.data() + origin.size(), tid);
    const auto found = mThreads.find(tid);
    if (found == mThreads.end() || !origin.starts_with(found->second.origin)) {
        fail("not a line of a thread that logged: " + quote(text));
    }
    return found->second;
}

void SeriesCheck::checkStamp(Thread& thread, std::string_view stamp) const {
    // As texts, which stand for times of one year in UTC.
    if (mMonotonic && stamp < thread.lastStamp) {
        fail(fmt::format("the thread's time goes back, from {} to {}", thread.lastStamp, stamp));
    }
    thread.lastStamp = stamp;
}

size_t SeriesCheck::checkLine(Thread& thread, std::string_view text) {
    Call call = {};
    if (!nextRecord(thread, call)) {
        fail("nothing more was logged by this thread: " + quote(text));
    }
    mLine = thread.origin;
    appendLine(mLine, call, call.kind == CallKind::DETAILS ? 0 : ++mSerial);

    const std::string_view found = text.substr(kStampShape.size());
    if (found.starts_with(mLine)) {
        return kStampShape.size() + mLine.size();
    }
    // Where a full buffer was written, the end of its last line is missing.
    const size_t same = commonBytes(found, mLine);
    const size_t cutBytes = mWrites.left() - std::min(mWrites.left(), kStampShape.size());
    if (mWrites.isFull() && cutBytes > 0 && cutBytes < mLine.size() && same >= cutBytes) {
        ++mCounts.cuts;
        return kStampShape.size() + cutBytes;
    }
    const ThreadLedger& ledger = *thread.ledgers.front();
    fail(fmt::format(
            "call {} of seed {} should stand here, and byte {} behind the time differs\n"
            "  expected: {}\n  found:    {}",
            thread.nextCall - 1, ledger.seed, same, quote(mLine, same), quote(found, same)));
}

bool SeriesCheck::nextRecord(Thread& thread, Call& call) {
    while (!thread.ledgers.empty()) {
        const ThreadLedger& ledger = *thread.ledgers.front();
        while (thread.nextCall < ledger.made.size()) {
            const uint64_t index = thread.nextCall++;
            call = makeCall(mMaterial, ledger.seed, index);
            if (!ledger.made[index]) {
                ++mCounts.refused;
                continue;
            }
            ++mCounts.calls[static_cast<size_t>(call.kind)];
            if (call.isRecord()) {
                return true;
            }
        }
        thread.ledgers.pop_front();
        thread.nextCall = 0;
    }
    return false;
}

void SeriesCheck::checkEnd() {
    mPlace = "at the end of the series";
    for (auto& [tid, thread] : mThreads) {
        Call call = {};
        if (nextRecord(thread, call)) {
            mLine = thread.origin;
            appendLine(mLine, call, mSerial + 1);
            fail("a line is missing: " + quote(mLine));
        }
    }
    if (mWrites.left() > 0) {
        fail(fmt::format("write {} is in no file", mWrites.number()));
    }
}

void SeriesCheck::fail(const std::string& what) const {
    throw Fault(fmt::format("{}: {}", mPlace, what));
}

}  // namespace JCam::Soak
