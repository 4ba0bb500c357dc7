#pragma once

#include <cstdint>
#include <vector>

#include "tools/jlog/analysis/Analysis.h"

namespace JCam::Tool {

/// Where a scope is drawn. No two scopes of a lane have the same depth at the same time, other than
/// by records that are out of order.
struct Slice {
    uint32_t lane = 0;  // index into Analysis::threads; behind those, into Analysis::names
    uint32_t depth = 0;
    int64_t begin = 0;
    int64_t end = 0;
    bool isInFlight = false;  // when the log ends
};

/// A slice for each scope of a log. Scopes of a thread nest; those whose name crosses threads are
/// in a lane of that name.
///
/// A scope without an exit lasts until the scope around it is left, or until its thread enters one
/// of its name again: in both cases the exit is lost. Otherwise it is in flight when the log ends.
[[nodiscard]] std::vector<Slice> sliceScopes(const Analysis& log);

}  // namespace JCam::Tool
