#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "Ledger.h"

namespace CameraHost {

/// The ledgers of a run, numbered from 0, in memory that a child process shares with its parent: of
/// a process that crashes they are all that is left to tell what it has logged.
class LedgerBook {
  public:
    /// Throws without memory.
    explicit LedgerBook(size_t threads);
    ~LedgerBook();
    LedgerBook(const LedgerBook&) = delete;
    LedgerBook& operator=(const LedgerBook&) = delete;

    [[nodiscard]] std::span<Ledger> all() const { return {mShared->ledgers(), mThreads}; }
    /// Marks all ledgers, and notes the time. Once: when the run is over, or just before the
    /// process is to crash.
    void mark() const;
    /// On the steady clock; 0 before mark().
    [[nodiscard]] int64_t markedNs() const { return mShared->markedNs; }

    // Of all threads together.

    [[nodiscard]] EventCounts counts() const;
    [[nodiscard]] EventCounts marked() const;

  private:
    struct alignas(Ledger) Shared {
        [[nodiscard]] Ledger* ledgers() { return reinterpret_cast<Ledger*>(this + 1); }

        int64_t markedNs = 0;
    };

    [[nodiscard]] size_t bytes() const { return sizeof(Shared) + mThreads * sizeof(Ledger); }

    const size_t mThreads;
    Shared* const mShared;
};

}  // namespace CameraHost
