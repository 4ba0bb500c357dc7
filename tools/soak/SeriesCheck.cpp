#include "SeriesCheck.h"

#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include <fmt/format.h>

#include "ExpectedLine.h"
#include "Fault.h"
#include "reader/Line.h"
#include "reader/LogFile.h"
#include "reader/MappedFile.h"

namespace JCam::Soak {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kMark = "-- CONTINUED --\n";
/// Above this a file is followed by the next one. The mark does not count.
constexpr uint64_t kMaxFileBytes = 188743680;
constexpr size_t kStampBytes = sizeof("MM-DD hh:mm:ss.uuuuuu") - 1;

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

/// The files of a series by their index, which counts from 1. The folder has nothing else.
std::vector<Reader::LogFile> listSeries(const fs::path& folder, pid_t pid) {
    std::vector<Reader::LogFile> files = Reader::listLogFiles(folder);
    for (size_t i = 0; i < files.size(); ++i) {
        if (files[i].path.filename() !=
            fmt::format("cam_jlog_{}_{}_{:02}.txt", pid, files.front().start, i + 1)) {
            throw Fault(fmt::format("{} does not belong there", files[i].path.string()));
        }
    }
    if (std::distance(fs::directory_iterator(folder), {}) != std::ssize(files)) {
        throw Fault(fmt::format("{} has other files than a series", folder.string()));
    }
    return files;
}

}  // namespace

SeriesCheck::SeriesCheck(const Material& material, const LedgerBook& ledgers,
                         std::vector<uint32_t> writes, bool monotonic, SeriesCounts& counts)
        : mMaterial(material),
          mPid(getpid()),
          mMonotonic(monotonic),
          mWrites(std::move(writes)),
          mCounts(counts) {
    for (const ThreadLedger& ledger : ledgers) {
        mThreads[ledger.tid].ledgers.push_back(&ledger);
    }
}

void SeriesCheck::check(const fs::path& folder) {
    const std::vector<Reader::LogFile> files = listSeries(folder, mPid);
    for (const Reader::LogFile& file : files) {
        checkFile(file.path, file.index == 1, file.index == files.size());
        ++mCounts.files;
    }
    checkEnd();
}

void SeriesCheck::checkFile(const fs::path& path, bool isFirst, bool isLast) {
    mPlace = path.string();
    const Reader::MappedFile file(path);
    if (!file.isOpen()) {
        fail("the file cannot be read");
    }
    std::string_view rest = file.bytes();
    if (!isFirst && !rest.starts_with(kMark)) {
        fail("the file does not go on with a mark: " + quote(rest));
    }
    const uint64_t uncounted = isFirst ? 0 : kMark.size();
    takeBytes(rest, uncounted);
    while (!rest.empty()) {
        const uint64_t offset = file.bytes().size() - rest.size();
        mPlace = fmt::format("{}, offset {}", path.string(), offset);
        if (offset - uncounted > kMaxFileBytes) {
            fail("the file should have ended here");
        }
        takeBytes(rest, checkRecord(rest));
        ++mCounts.records;
    }
    if (!isLast && file.bytes().size() - uncounted <= kMaxFileBytes) {
        fail(fmt::format("the file ends early, with {} bytes", file.bytes().size()));
    }
    mCounts.bytes += file.bytes().size();
}

void SeriesCheck::takeBytes(std::string_view& rest, size_t bytes) {
    if (mWrites.isTooLong()) {
        fail(fmt::format("write {} was longer than a text buffer", mWrites.number()));
    }
    if (bytes > mWrites.left()) {
        fail(fmt::format("write {} ended {} bytes into this line of {}", mWrites.number(),
                         mWrites.left(), bytes));
    }
    mWrites.advance(bytes);
    rest.remove_prefix(bytes);
}

size_t SeriesCheck::checkRecord(std::string_view text) {
    std::string_view behindOrigin = text;
    Reader::Origin origin;
    if (!Reader::takeOrigin(behindOrigin, origin)) {
        fail("no time, process and thread: " + quote(text));
    }
    const auto thread = mThreads.find(origin.tid);
    Call call = {};
    if (thread == mThreads.end() || !nextRecord(thread->second, call)) {
        fail("nothing more was logged by this thread: " + quote(text));
    }
    // As a text, which stands for a time of one year in UTC.
    const std::string_view stamp = text.substr(0, kStampBytes);
    if (mMonotonic && stamp < thread->second.lastStamp) {
        fail(fmt::format("the thread's time goes back from {}: {}", thread->second.lastStamp,
                         quote(text)));
    }
    thread->second.lastStamp = stamp;
    renderLine(mLine, stamp, mPid, origin.tid, call,
               call.kind == CallKind::DETAILS ? 0 : ++mSerial);
    if (text.starts_with(mLine)) {
        return mLine.size();
    }
    // Where a full buffer was written, the end of its last line is missing.
    const size_t same = commonBytes(text, mLine);
    const size_t left = mWrites.left();
    if (mWrites.isFull() && left > kStampBytes && left < mLine.size() && same >= left) {
        ++mCounts.cuts;
        return left;
    }
    fail(
            fmt::format("call {} of seed {} should stand here, and byte {} differs\n"
                        "  expected: {}\n  found:    {}",
                        thread->second.nextCall - 1, thread->second.ledgers.front()->seed, same,
                        quote(mLine, same), quote(text, same)));
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
            renderLine(mLine, "", mPid, tid, call, mSerial + 1);
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
