#include "LedgerBook.h"

#include <sys/mman.h>

#include <cerrno>
#include <chrono>
#include <new>
#include <system_error>

namespace CameraHost {

namespace {

/// Memory of zeros.
void* mapShared(size_t bytes) {
    void* const memory =
            mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::system_error(errno, std::generic_category(), "shared memory");
    }
    return memory;
}

}  // namespace

LedgerBook::LedgerBook(size_t threads)
        : mThreads(threads), mShared(new (mapShared(bytes())) Shared) {
    for (uint32_t number = 0; number < threads; number++) {
        new (&mShared->ledgers()[number]) Ledger(number);
    }
}

LedgerBook::~LedgerBook() {
    munmap(mShared, bytes());
}

void LedgerBook::mark() const {
    for (Ledger& ledger : all()) {
        ledger.mark();
    }
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    mShared->markedNs = std::chrono::nanoseconds(now).count();
}

EventCounts LedgerBook::counts() const {
    EventCounts sum;
    for (const Ledger& ledger : all()) {
        sum += ledger.counts();
    }
    return sum;
}

EventCounts LedgerBook::marked() const {
    EventCounts sum;
    for (const Ledger& ledger : all()) {
        sum += ledger.marked();
    }
    return sum;
}

}  // namespace CameraHost
