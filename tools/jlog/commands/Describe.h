#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "tools/jlog/analysis/Analysis.h"
#include "tools/jlog/analysis/Statistics.h"
#include "tools/jlog/Text.h"

namespace JCam::Tool {

/// "Preview/IspNode".
[[nodiscard]] std::string nameOf(const Analysis& log, uint32_t name);

/// "SIGSEGV : addr = 0x10", or "ended without a dump (black box)".
[[nodiscard]] std::string describeCause(const Analysis& log, const Crash& crash);

/// "series 4321 2024-03-15 14:25:30", what its files hold, and when.
void printSeries(const Analysis& log, Page& page);

/// The first line of the text of a record, "D IspNode: request 116: done"; empty if it cannot be
/// read.
[[nodiscard]] std::string quote(const Analysis& log, const Place& place);

/// Lines with what each thread was doing at the scope event `ordinal`, which was at `time`.
/// `threads`: those of the log, or a crash's.
void printInFlight(const Analysis& log, uint32_t ordinal, int64_t time,
                   const std::vector<Thread>& threads, Page& page);
[[nodiscard]] nlohmann::ordered_json inFlightToJson(const Analysis& log, uint32_t ordinal,
                                                    int64_t time,
                                                    const std::vector<Thread>& threads);

}  // namespace JCam::Tool
