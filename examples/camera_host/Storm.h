#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Check.h"
#include "Crash.h"
#include "Options.h"

namespace CameraHost {

/// The sum of what came of many crashes.
struct StormFindings {
    uint64_t children = 0;
    std::map<int, uint64_t> bySignal;
    std::array<uint64_t, kCrashPlaces> byPlace{};
    uint64_t wrongEnds = 0;  // by another signal than the one that was sent, or by none
    uint64_t hangs = 0;
    uint64_t returned = 0;               // calls
    Findings sum;                        // of all children
    std::vector<int64_t> signalToEndNs;  // sorted; of children that ended by themselves
    std::vector<std::string> notes;      // the first few faults, for people
    uint64_t unclean = 0;                // children of which something is amiss

    [[nodiscard]] bool isClean() const { return unclean == 0 && children > 0 && returned > 0; }
};

/// Lets children that log at full speed crash one after the other: by a signal of the three, in a
/// thread and after a time that are all random. The files of a child that leaves nothing to wish
/// for are deleted, those of others stay. The properties are set.
[[nodiscard]] StormFindings runStorm(const Options& options);

}  // namespace CameraHost
