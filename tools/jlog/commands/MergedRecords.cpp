#include "tools/jlog/commands/MergedRecords.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <queue>
#include <thread>
#include <utility>
#include <vector>

namespace JCam::Tool {

namespace {

/// A record with bytes of its own.
struct Kept {
    explicit Kept(const Entry& copied, const Scope* itsScope) : entry(copied), scope(itsScope) {
        bytes = copied.bytes;
        const std::string_view all = copied.bytes;
        if (copied.kind == Kind::SKIPPED) {
            reason = copied.text;
            entry.text = reason;
        } else {
            textAt = static_cast<size_t>(copied.text.data() - all.data());
        }
    }

    /// The views of the entry into the bytes, wherever they are now.
    const Entry& view() {
        entry.bytes = bytes;
        entry.text = entry.kind == Kind::SKIPPED
                             ? std::string_view(reason)
                             : std::string_view(bytes).substr(textAt, entry.text.size());
        return entry;
    }

    Entry entry;
    const Scope* scope;
    std::string bytes;
    std::string reason;
    size_t textAt = 0;
};

/// The records of a series, one after the other. A thread of its own reads ahead, if there is much
/// to read.
class Puller {
  public:
    explicit Puller(const Analysis& log) : mLog(log) {
        constexpr uint64_t kFewBytes = uint64_t{256} * 1024;
        if (log.files.bytes() > kFewBytes) {
            mThread = std::jthread([this](const std::stop_token& stop) { read(stop); });
        } else {
            mLog.forEachRecord(
                    [this](const Entry& entry, uint32_t scope) { keep(mBatch, entry, scope); });
            mIsDone = true;
        }
    }
    ~Puller() = default;  // the thread is asked to stop, and joined
    Puller(const Puller&) = delete;
    Puller& operator=(const Puller&) = delete;

    [[nodiscard]] const Analysis& log() const { return mLog; }

    /// nullptr at the end. What reading throws comes out here.
    Kept* next() {
        if (mNext < mBatch.size()) {
            return &mBatch[mNext++];
        }
        std::unique_lock lock(mMutex);
        mFilled.wait(lock, [&] { return !mBatches.empty() || mIsDone; });
        if (mBatches.empty()) {
            if (mError) {
                std::rethrow_exception(mError);
            }
            return nullptr;
        }
        mBatch = std::move(mBatches.front());
        mBatches.pop_front();
        mSpace.notify_one();
        mNext = 1;
        return mBatch.data();
    }

  private:
    static constexpr size_t kBatchRecords = 512;
    static constexpr size_t kMaxBatches = 8;
    struct Stopped {};

    void keep(std::vector<Kept>& batch, const Entry& entry, uint32_t scope) const {
        batch.emplace_back(entry, scope == kNone ? nullptr : &mLog.scopes[scope]);
    }

    void read(const std::stop_token& stop) {
        std::vector<Kept> batch;
        const auto hand = [&](bool isDone) {
            std::unique_lock lock(mMutex);
            if (!mSpace.wait(lock, stop, [&] { return mBatches.size() < kMaxBatches || isDone; })) {
                throw Stopped();
            }
            if (!batch.empty()) {
                mBatches.push_back(std::move(batch));
            }
            batch.clear();
            mIsDone = isDone;
            mFilled.notify_one();
        };
        try {
            mLog.forEachRecord([&](const Entry& entry, uint32_t scope) {
                keep(batch, entry, scope);
                if (batch.size() == kBatchRecords) {
                    hand(false);
                }
            });
            hand(true);
        } catch (const Stopped&) {  // NOLINT(bugprone-empty-catch): nobody wants more
        } catch (...) {
            const std::lock_guard lock(mMutex);
            mError = std::current_exception();
            mIsDone = true;
            mFilled.notify_one();
        }
    }

    const Analysis& mLog;
    std::vector<Kept> mBatch;  // the consumer's
    size_t mNext = 0;
    std::mutex mMutex;  // guards what follows
    std::deque<std::vector<Kept>> mBatches;
    bool mIsDone = false;
    std::exception_ptr mError;
    std::condition_variable_any mSpace;
    std::condition_variable mFilled;
    std::jthread mThread;  // last: it uses all of the others
};

/// A series that is being merged.
struct Source {
    std::unique_ptr<Puller> puller;
    Kept* record = nullptr;
    int64_t time = kNoTime;  // never goes back, so that the order of the series stays

    void advance() {
        record = puller->next();
        if (record == nullptr || record->entry.wall == kNoTime) {
            return;
        }
        // A clock that was set takes the stream with it.
        constexpr int64_t kMaxCrossing = 1000000;
        const int64_t wall = record->entry.wall;
        time = wall < time && time - wall < kMaxCrossing ? time : wall;
    }
};

int64_t beginOf(const Analysis& log) {
    return log.firstTime == kNoTime ? kNoTime : log.wallOf(log.firstTime, 0);
}

/// `visit` also gets the time of the stream.
template <typename Visit>
void mergeSeries(const Logs& logs, const Visit& visit) {
    std::vector<const Analysis*> waiting;
    for (const auto& log : logs) {
        waiting.push_back(log.get());
    }
    // A series is opened when the stream has come to its begin.
    std::stable_sort(waiting.begin(), waiting.end(), [](const Analysis* a, const Analysis* b) {
        return beginOf(*a) < beginOf(*b);
    });
    std::vector<Source> sources(logs.size());
    using Next = std::pair<int64_t, size_t>;  // the time of a source, and which
    std::priority_queue<Next, std::vector<Next>, std::greater<>> queue;
    const auto go = [&](size_t index) {
        sources[index].advance();
        if (sources[index].record == nullptr) {
            sources[index].puller.reset();
        } else {
            queue.emplace(sources[index].time, index);
        }
    };
    for (size_t opened = 0; opened < waiting.size() || !queue.empty();) {
        if (opened < waiting.size() &&
            (queue.empty() || beginOf(*waiting[opened]) <= queue.top().first)) {
            sources[opened].puller = std::make_unique<Puller>(*waiting[opened]);
            sources[opened].time = beginOf(*waiting[opened]);
            go(opened++);
            continue;
        }
        const size_t index = queue.top().second;
        queue.pop();
        Source& source = sources[index];
        visit(source.time, source.puller->log(), source.record->view(), source.record->scope);
        go(index);
    }
}

}  // namespace

void forEachMerged(const Logs& logs, const Logcat* logcat, const OnRecord& onRecord,
                   const OnLine& onLine) {
    std::vector<LogcatLine> lines;
    if (logcat != nullptr) {
        logcat->forEachLine([&](const LogcatLine& line) { lines.push_back(line); });
    }
    auto line = lines.cbegin();
    mergeSeries(logs,
                [&](int64_t time, const Analysis& log, const Entry& entry, const Scope* scope) {
                    for (; line != lines.cend() && line->wall <= time; line++) {
                        onLine(*line);
                    }
                    onRecord(log, entry, scope);
                });
    for (; line != lines.cend(); line++) {
        onLine(*line);
    }
}

bool takesLine(const Selection& selection, const LogcatLine& line) {
    if (line.level == '\0') {
        return !selection.pid && !selection.tid && !selection.module &&
               selection.since == INT64_MIN && selection.until == INT64_MAX;
    }
    return !selection.module && (!selection.pid || *selection.pid == line.pid) &&
           (!selection.tid || *selection.tid == line.tid) && line.wall >= selection.since &&
           line.wall <= selection.until && isAsImportant(line.level, selection.level);
}

void printLine(const LogcatLine& line, Page& page) {
    if (line.level != '\0' && line.bytes.substr(2, 1) == "-") {
        page.add(formatDateTime(line.wall).substr(0, sizeof("YYYY-") - 1));
    }
    page.addLogged(line.bytes, colourOf(line.level));
    if (!line.bytes.ends_with('\n')) {
        page.endLine();
    }
}

void printRecord(const Analysis& log, const Entry& entry, Page& page) {
    constexpr size_t kStampChars = sizeof("MM-DD hh:mm:ss.uuuuuu") - 1;
    std::string_view bytes = entry.bytes;
    if (entry.wall != kNoTime && bytes.size() > kStampChars) {
        const std::string time = formatDateTime(entry.wall);
        if (log.isMonotonic && bytes[kStampChars] == ' ') {
            page.add(time);
            bytes.remove_prefix(kStampChars);
        } else {
            page.add(std::string_view(time).substr(0, sizeof("YYYY-") - 1));
        }
    }
    page.addLogged(bytes, colourOf(entry.level));
    if (!bytes.ends_with('\n')) {
        page.endLine();
    }
}

}  // namespace JCam::Tool
