#pragma once

#include <cstdint>
#include <string_view>

namespace JCam::Tool {

/// No index, no number.
constexpr uint32_t kNone = UINT32_MAX;

enum class Kind : uint8_t {
    ENTER,
    EXIT,
    DETAILS,
    SIGNAL,   // the first line of a crash file
    SKIPPED,  // bytes that are no record
};

/// A record in the order of its series. Views hold until the next one is visited.
struct Entry {
    Kind kind = Kind::SKIPPED;
    char level = '\0';        // one of V D I W E F; D for scopes; '\0' for what is no line
    bool isTorn = false;      // the file ends within it
    uint32_t thread = kNone;  // index into Analysis::threads
    /// Index into Analysis::names for ENTER and EXIT, into Analysis::tags for DETAILS.
    uint32_t name = kNone;
    uint32_t request = 0;  // ENTER and EXIT alone, like `serial`
    uint32_t serial = 0;
    uint32_t lines = 0;  // those without a stamp that belong to it are counted
    /// Microseconds of the clock on the wall since 1970, as local time: what the line says, and the
    /// year. kNoTime if it says nothing.
    int64_t wall = 0;
    /// The same, had nobody set that clock since the series began. Durations are taken from this.
    int64_t time = 0;
    std::string_view bytes;   // all of it, with newlines
    std::string_view text;    // of DETAILS; of SKIPPED the reason
    uint32_t file = 0;        // index into SeriesFiles::files
    uint64_t lineNumber = 0;  // of its first line
    uint64_t offset = 0;      // in the file
};

constexpr int64_t kNoTime = INT64_MIN;

}  // namespace JCam::Tool
