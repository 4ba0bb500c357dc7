#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/jlog/analysis/Analysis.h"
#include "tools/jlog/analysis/Selection.h"

namespace JCam::Tool {

/// Durations of the closed scopes of a name, in microseconds. Percentiles are those of the nearest
/// rank.
struct ScopeStatistics {
    uint32_t name = kNone;  // index into Analysis::names
    size_t count = 0;
    int64_t p50 = 0;
    int64_t p99 = 0;
    int64_t max = 0;
    uint32_t slowest = kNone;  // index into Analysis::scopes
};

/// Those of every name that has a closed scope, the largest p99 first.
[[nodiscard]] std::vector<ScopeStatistics> summariseScopes(const Analysis& log,
                                                           const Selection& selection);

/// A request: the scopes with its number. A number that comes again after all of them have been
/// closed for a second is another request.
struct Request {
    uint32_t number = 0;
    int64_t begin = kNoTime;   // of its first event
    int64_t end = kNoTime;     // of its last event
    bool isOpen = false;       // one of its scopes is
    uint32_t first = kNone;    // its first scope
    uint32_t slowest = kNone;  // its longest closed scope inside another one, else the longest
    uint32_t scopes = 0;
    std::vector<uint32_t> threads;
    std::vector<uint32_t> names;  // the first of each module, by appearance

    [[nodiscard]] int64_t duration() const { return end - begin; }
};

/// In the order in which they began.
[[nodiscard]] std::vector<Request> listRequests(const Analysis& log, const Selection& selection);

/// An interval between a module's first work on two requests.
struct Gap {
    int64_t interval = 0;
    uint32_t scope = kNone;  // that begins behind it
};

struct NumberRange {
    uint32_t first = 0;
    uint32_t last = 0;
};

/// How steadily requests reach a module.
struct Cadence {
    std::string module;  // empty: the whole series
    size_t requests = 0;
    int64_t median = 0;  // interval, in microseconds
    int64_t limit = 0;   // intervals above it are gaps
    std::vector<Gap> gaps;
    std::vector<NumberRange> absent;  // between the numbers that came
};

/// First the whole series, without intervals, then its modules by appearance.
[[nodiscard]] std::vector<Cadence> findGaps(const Analysis& log, const Selection& selection);

/// The scopes that are open at the scope event `ordinal`, thread by thread, outermost first.
struct InFlight {
    uint32_t thread = kNone;
    std::vector<uint32_t> scopes;
};
[[nodiscard]] std::vector<InFlight> findInFlight(const Analysis& log, uint32_t ordinal);

}  // namespace JCam::Tool
