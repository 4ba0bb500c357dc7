#include "LedgerBook.h"

#include <new>
#include <stdexcept>

namespace CameraHost {

namespace {

/// In front of the ledgers, which are aligned behind it.
constexpr size_t kCountBytes = alignof(Ledger);
static_assert(sizeof(std::atomic<size_t>) <= kCountBytes);

}  // namespace

LedgerBook::LedgerBook(size_t capacity)
        : mCapacity(capacity),
          mMemory(kCountBytes + capacity * sizeof(Ledger)),
          mCount(new (mMemory.get()) std::atomic<size_t>(0)),
          mLedgers(reinterpret_cast<Ledger*>(mMemory.get() + kCountBytes)) {}

Ledger& LedgerBook::add(uint32_t number) {
    const size_t index = all().size();
    if (index == mCapacity) {
        throw std::length_error("more threads than ledgers");
    }
    auto* ledger = new (mLedgers + index) Ledger(number);
    // Release: whoever counts it sees it whole.
    mCount->store(index + 1, std::memory_order_release);
    return *ledger;
}

std::span<Ledger> LedgerBook::all() const {
    return {mLedgers, mCount->load(std::memory_order_acquire)};
}

}  // namespace CameraHost
