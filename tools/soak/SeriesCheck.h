#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Call.h"
#include "Ledger.h"
#include "WriteWalk.h"

namespace JCam::Soak {

/// What series held, and what their threads had called.
struct SeriesCounts {
    std::array<uint64_t, kCallKinds> calls{};
    uint64_t refused{0};  // by a test
    uint64_t records{0};
    uint64_t cuts{0};
    uint64_t files{0};
    uint64_t bytes{0};
};

/// Holds the files of one logger against the ledgers, byte by byte: every record is there once, in
/// the order of its thread, with the exact text; nothing else is; serials count from 1; files are
/// as long as they should be. Records are found by their lengths, since a text may have any byte.
/// Everything that is not so is a Fault that tells where.
class SeriesCheck {
  public:
    /// `material`, `ledgers` and `counts`, to which it adds, must outlive it. `writes`: see
    /// WriteWalk. With `monotonic`, a thread's time stamps are also held against each other.
    SeriesCheck(const Material& material, const LedgerBook& ledgers, std::vector<uint32_t> writes,
                bool monotonic, SeriesCounts& counts);

    /// Checks all files of `folder`, which has nothing else.
    void check(const std::filesystem::path& folder);

  private:
    /// The calls of one kernel thread id, in their order.
    struct Thread {
        std::deque<const ThreadLedger*> ledgers;
        uint64_t nextCall{0};  // of the first ledger
        std::string lastStamp;
    };

    void checkFile(const std::filesystem::path& path, bool isFirst, bool isLast);
    /// Returns the length of the record at the start of `text`.
    size_t checkRecord(std::string_view text);
    void checkEnd();
    /// The next call of the thread that left a record; false if there is none.
    bool nextRecord(Thread& thread, Call& call);
    void takeBytes(std::string_view& rest, size_t bytes);
    [[noreturn]] void fail(const std::string& what) const;

    const Material& mMaterial;
    const pid_t mPid;
    const bool mMonotonic;
    WriteWalk mWrites;
    std::unordered_map<int, Thread> mThreads;
    uint32_t mSerial{0};
    std::string mLine;
    std::string mPlace;  // of the record that is looked at
    SeriesCounts& mCounts;
};

}  // namespace JCam::Soak
