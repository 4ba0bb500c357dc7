#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "reader/LogFile.h"
#include "reader/Records.h"
#include "tools/jlog/analysis/Numbers.h"
#include "tools/jlog/analysis/Pairing.h"
#include "tools/jlog/analysis/WallClock.h"
#include "tools/jlog/commands/Commands.h"
#include "tools/jlog/export/Json.h"
#include "tools/jlog/Text.h"

namespace JCam::Tool {

namespace {

namespace fs = std::filesystem;

constexpr int kIntervalMs = 100;

volatile std::sig_atomic_t gIsStopped = 0;

/// Waits until it is time to look again. False once nobody reads the output any more.
bool wait() {
    pollfd output{STDOUT_FILENO, 0, 0};
    return poll(&output, 1, kIntervalMs) <= 0;
}

/// Makes entries of records as they come, with the scope that their thread is in.
class LiveEntries {
  public:
    explicit LiveEntries(const Reader::LogFile& file)
            : mLog(seriesOf(file)),
              mPairing(mLog.scopes, mLog.names),
              mClock(mLog.start, std::nullopt, false) {}
    LiveEntries(const LiveEntries&) = delete;
    LiveEntries& operator=(const LiveEntries&) = delete;

    /// Calls `visit` with the tables, the entry and the scope, nullptr if there is none.
    template <typename Visit>
    void read(const Reader::Record& record, const Visit& visit) {
        Entry entry;
        entry.bytes = record.bytes;
        uint32_t scope = kNone;
        if (record.line) {
            scope = fill(entry, *record.line);
        } else {
            entry.wall = entry.time = kNoTime;
            entry.text = record.skipped;
        }
        visit(mLog, entry, scope == kNone ? nullptr : &mLog.scopes[scope]);
        if (entry.kind == Kind::EXIT) {
            mPairing.recycle(scope);
        }
    }

  private:
    static SeriesFiles seriesOf(const Reader::LogFile& file) {
        SeriesFiles series;
        series.pid = file.pid;
        series.start = file.start;
        return series;
    }

    uint32_t fill(Entry& entry, const Reader::Line& line) {
        entry.thread = numberOf(mThreads, line.origin.tid,
                                [&] { mLog.threads.emplace_back().tid = line.origin.tid; });
        entry.level = line.level;
        entry.text = line.text;
        entry.wall = entry.time = mClock.wallOf(dateOf(line.origin.date), line.origin.microseconds);
        if (!line.scope) {
            entry.kind = Kind::DETAILS;
            entry.name = numberOf(mTags, std::string(line.tag),
                                  [&] { mLog.tags.emplace_back(line.tag); });
            return mPairing.innermost(entry.thread);
        }
        entry.kind = line.scope->sign == '+' ? Kind::ENTER : Kind::EXIT;
        entry.request = line.scope->requestNo;
        entry.serial = line.scope->serial;
        entry.name = numberOf(mNames,
                              std::pair(line.scope->moduleId, std::string(line.scope->name)), [&] {
                                  ScopeName& name = mLog.names.emplace_back();
                                  name.module = line.scope->module;
                                  name.moduleId = line.scope->moduleId;
                                  name.name = line.scope->name;
                              });
        const Pairing::Event event{entry.thread, entry.name, entry.request, mOrdinal++, entry.time};
        return entry.kind == Kind::ENTER ? mPairing.enter(event) : mPairing.exit(event);
    }

    Analysis mLog;  // its tables, and the scopes that are open
    Pairing mPairing;
    WallClock mClock;
    std::map<int, uint32_t> mThreads;
    std::map<std::string, uint32_t> mTags;
    std::map<std::pair<uint32_t, std::string>, uint32_t> mNames;
    uint32_t mOrdinal = 0;
};

/// The end of the newest file of a series.
class Tail {
  public:
    /// From the end of what is there on, with some lines in front of it, or from its begin.
    Tail(Reader::LogFile file, bool fromBegin) : mFile(std::move(file)) {
        std::error_code error;
        const uint64_t size = fs::file_size(mFile.path, error);
        constexpr uint64_t kContextBytes = 1000;
        mOffset = error || fromBegin || size < kContextBytes ? 0 : size - kContextBytes;
        mIsBehindBegin = mOffset > 0;
    }

    [[nodiscard]] const Reader::LogFile& file() const { return mFile; }

    /// Goes on with the next file, whose begin is new. What the last one has no end of is lost.
    void rotate(Reader::LogFile next) {
        mFile = std::move(next);
        mOffset = 0;
        mIsBehindBegin = false;
        mPending.clear();
    }

    /// Calls `visit` for what has been written since the last call.
    template <typename Visit>
    void read(const Visit& visit) {
        const int fd = open(mFile.path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) {
            return;  // deleted; another one follows
        }
        constexpr size_t kReadBytes = 1 << 16;
        for (ssize_t got = 1; got > 0 && gIsStopped == 0;) {
            const size_t before = mPending.size();
            mPending.resize(before + kReadBytes);
            got = pread(fd, mPending.data() + before, kReadBytes, static_cast<off_t>(mOffset));
            mPending.resize(before + static_cast<size_t>(std::max<ssize_t>(got, 0)));
            mOffset += static_cast<uint64_t>(std::max<ssize_t>(got, 0));
            visitPending(visit);
        }
        close(fd);
    }

  private:
    template <typename Visit>
    void visitPending(const Visit& visit) {
        // A line whose end has not been written yet waits for it.
        const size_t end = mPending.rfind('\n') + 1;  // npos + 1 is 0
        std::string_view whole = std::string_view(mPending).substr(0, end);
        if (mIsBehindBegin && end > 0) {
            whole.remove_prefix(Reader::findRecord(whole, 1, mFile.pid));
            mIsBehindBegin = false;
        }
        Reader::Records records(whole, mFile.pid);
        while (const Reader::Record* const record = records.next()) {
            visit(*record);
        }
        mPending.erase(0, end);
    }

    Reader::LogFile mFile;
    uint64_t mOffset = 0;
    bool mIsBehindBegin = false;  // what comes first is the end of some line
    std::string mPending;
};

class Follower {
  public:
    Follower(const Options& options, const Selection& selection, Output& out)
            : mFolder(options.paths.front()),
              mIsJson(options.json),
              mSelection(selection),
              mOut(out),
              mPage(out) {}

    void run() {
        do {
            look();
            mIsRunning = true;
            for (const auto& [key, followed] : mSeries) {
                if (followed) {
                    read(*followed);
                }
            }
            mOut.flush();
        } while (wait() && gIsStopped == 0);
    }

  private:
    using Key = std::pair<int, std::string>;
    struct Followed {
        Followed(const Reader::LogFile& file, bool fromBegin)
                : tail(file, fromBegin), entries(file) {}
        Tail tail;
        LiveEntries entries;
    };

    /// Finds new files. The first time, the newest series of each process is followed; later each
    /// that appears.
    void look() {
        std::vector<Reader::LogFile> files = Reader::listLogFiles(mFolder);
        for (size_t i = 0; i < files.size(); i++) {
            Reader::LogFile& file = files[i];
            if (mSelection.pid && *mSelection.pid != file.pid) {
                continue;
            }
            if (file.isCrash) {
                tellCrash(file);
                continue;
            }
            const auto [found, isNew] = mSeries.try_emplace({file.pid, file.start});
            std::unique_ptr<Followed>& followed = found->second;
            const bool isNewest =
                    i + 1 == files.size() || files[i + 1].pid != file.pid || files[i + 1].isCrash;
            if (mIsRunning ? isNew : isNewest) {
                followed = std::make_unique<Followed>(file, mIsRunning);
            } else if (followed && file.index > followed->tail.file().index) {
                read(*followed);  // the last of it
                followed->tail.rotate(std::move(file));
            }
        }
    }

    void tellCrash(const Reader::LogFile& file) {
        if (!mCrashes.insert(file.path).second || !mIsRunning) {
            return;
        }
        const std::string what = file.isBlackBox ? "black box file " : "crash file ";
        if (mIsJson) {
            fmt::print(stderr, "jlog: {}{}\n", what, file.path.string());
        } else {
            mPage.add(what, Colour::RED).addLogged(file.path.string()).endLine();
        }
    }

    void read(Followed& followed) {
        const auto print = [&](const Analysis& log, const Entry& entry, const Scope* scope) {
            if (!mSelection.takes(log, entry, scope)) {
                return;
            }
            if (mIsJson) {
                mJson.clear();
                appendRecord(mJson, log, entry, scope, "");
                mOut.write(mJson);
            } else {
                mPage.addLogged(entry.bytes, colourOf(entry.level));
            }
        };
        followed.tail.read(
                [&](const Reader::Record& record) { followed.entries.read(record, print); });
    }

    const fs::path mFolder;
    const bool mIsJson;
    const Selection& mSelection;
    Output& mOut;
    Page mPage;
    std::string mJson;
    std::map<Key, std::unique_ptr<Followed>> mSeries;  // null: older than those that are followed
    std::set<fs::path> mCrashes;                       // that have been told of
    bool mIsRunning = false;
};

}  // namespace

int follow(const Options& options, Output& out) {
    if (!fs::is_directory(options.paths.front())) {
        throw std::runtime_error(options.paths.front().string() + ": not a folder");
    }
    Selection selection;
    selection.pid = options.pid;
    selection.tid = options.tid;
    selection.module = options.module;
    selection.level = options.level[0];
    for (const int sig : {SIGINT, SIGTERM}) {
        std::signal(sig, [](int) { gIsStopped = 1; });
    }
    Follower(options, selection, out).run();
    out.close();
    return EXIT_FINE;
}

}  // namespace JCam::Tool
