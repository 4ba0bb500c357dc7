#pragma once

#include <cstdint>
#include <deque>
#include <vector>

namespace JCam::Soak {

/// What one thread has called: the truth that the files are held against. A bit a call, since the
/// seed gives all the rest again. The thread writes it; the check reads it after the join.
struct ThreadLedger {
    uint64_t seed;
    /// Kernel thread id. The kernel may give the id of an ended thread to a later one.
    int tid{0};
    /// By index of the call: whether it was made, or its test said no.
    std::vector<bool> made{};
};

/// The ledgers of a generation, in the order in which the threads were started. None ever moves.
using LedgerBook = std::deque<ThreadLedger>;

}  // namespace JCam::Soak
