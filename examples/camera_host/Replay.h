#pragma once

#include <cstddef>
#include <cstdint>
#include <future>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "jlog/JLogger.h"
#include "LedgerBook.h"

namespace CameraHost {

/// A log that can be played again: the messages of each thread in the order of the file.
struct ReplayScript {
    struct Message {
        JCam::Utils::JLog::JLogLevel level;
        std::string tag;
        std::string text;
    };
    struct UnreadableLine {
        size_t number;
        std::string_view reason;
    };

    std::map<int, std::vector<Message>> threads;  // by the file's thread id
    size_t messages = 0;
    size_t fatal = 0;  // messages of level F, which are logged as errors
    size_t unreadable = 0;
    std::vector<UnreadableLine> firstUnreadable;
};

/// Reads a logcat threadtime file. A file that cannot be read throws.
[[nodiscard]] ReplayScript loadReplay(const std::string& path);

/// Logs a script through the front end, each of its threads on one of our own, as fast as it can.
class Replay {
  public:
    /// There is a ledger for each thread of the script. Both must outlive the replay.
    Replay(const ReplayScript& script, const LedgerBook& ledgers)
            : mScript(script), mLedgers(ledgers) {}
    /// Waits for the threads: a replay must be gone before logging is shut down.
    ~Replay() = default;
    Replay(const Replay&) = delete;
    Replay& operator=(const Replay&) = delete;

    void start();
    /// Waits up to a second; true when everything has been logged.
    [[nodiscard]] bool waitSecond();
    /// How many messages were logged, the others not being wanted. Call it when waitSecond() said
    /// true.
    [[nodiscard]] uint64_t logged() const { return mLogged; }

  private:
    const ReplayScript& mScript;
    const LedgerBook& mLedgers;
    uint64_t mLogged = 0;
    std::vector<std::future<uint64_t>> mThreads;  // last: they use everything above
};

}  // namespace CameraHost
