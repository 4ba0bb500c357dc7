#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Check.h"
#include "Crash.h"
#include "Ends.h"
#include "Options.h"

namespace CameraHost {

/// What came of the children that ended in one way.
struct EndSum {
    uint64_t children = 0;
    uint64_t returned = 0;  // calls
    uint64_t lost = 0;
    uint64_t onlyInBlackBox = 0;
};

/// The sum of what came of many crashes, or other ends.
struct StormFindings {
    uint64_t children = 0;
    std::array<EndSum, kEnds> byEnd{};
    std::map<int, uint64_t> bySignal;
    std::array<uint64_t, kCrashPlaces> byPlace{};
    uint64_t wrongEnds = 0;  // by another signal than the one that was sent, or by none
    uint64_t hangs = 0;
    uint64_t returned = 0;               // calls
    Findings sum;                        // of all children
    std::vector<int64_t> signalToEndNs;  // sorted; of children that ended by themselves
    std::vector<int64_t> recoveryNs;     // sorted; from the start of a process until boxes are gone
    uint64_t killedRecoveries = 0;       // on purpose
    uint64_t failedRecoveries = 0;       // that came to no end, or left a box
    std::vector<std::string> notes;      // the first few faults, for people
    uint64_t unclean = 0;                // children of which something is amiss

    [[nodiscard]] bool isClean() const { return unclean == 0 && children > 0 && returned > 0; }
};

/// Lets children that log at full speed crash one after the other, by a signal of the three, or end
/// in another way; end, thread and time are random. With a black box another process recovers what
/// is in it. The files of a child that leaves nothing to wish for are deleted, those of the first
/// others stay. The properties are set.
[[nodiscard]] StormFindings runStorm(const Options& options);

}  // namespace CameraHost
