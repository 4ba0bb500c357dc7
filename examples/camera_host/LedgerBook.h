#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

#include "Ledger.h"
#include "SharedMapping.h"

namespace CameraHost {

/// The ledgers of a run, in memory that a child process shares with its parent: of a process that
/// crashes they are all that is left to tell what it has logged.
class LedgerBook {
  public:
    /// `capacity`: the most ledgers it can hold. Throws without memory.
    explicit LedgerBook(size_t capacity);

    /// Adds the ledger of thread `number`. One thread at a time; ledgers never move.
    Ledger& add(uint32_t number);
    [[nodiscard]] std::span<Ledger> all() const;

  private:
    const size_t mCapacity;
    const SharedMapping mMemory;
    std::atomic<size_t>* const mCount;
    Ledger* const mLedgers;
};

}  // namespace CameraHost
