#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/jlog/analysis/Analysis.h"

namespace JCam::Tool {

/// What of the logs a user wants to see. All records are read and paired whatever is selected: a
/// scope that began before `since` has its whole duration.
struct Selection {
    int64_t since = INT64_MIN;  // Entry::wall, microseconds
    int64_t until = INT64_MAX;
    std::optional<int> pid;
    std::optional<int> tid;
    std::optional<std::string> module;  // its name, or its id in hexadecimal
    char level = 'V';                   // the least important level of details

    [[nodiscard]] bool takesSeries(const Analysis& log) const;
    [[nodiscard]] bool takesName(const ScopeName& name) const;
    /// A scope is taken if any of it lies between the times.
    [[nodiscard]] bool takesScope(const Analysis& log, const Scope& scope) const;
    /// An enter or exit, details (whose module is that of `scope`), or what is no record.
    [[nodiscard]] bool takes(const Analysis& log, const Entry& entry, const Scope* scope) const;
    [[nodiscard]] bool takes(const Analysis& log, const Entry& entry, uint32_t scope) const {
        return takes(log, entry, scope == kNone ? nullptr : &log.scopes[scope]);
    }

  private:
    [[nodiscard]] bool takesAllScopes() const {
        return !tid && !module && since == INT64_MIN && until == INT64_MAX;
    }
};

/// Whether a level, one of V D I W E F, is `wanted` or above it.
[[nodiscard]] bool isAsImportant(char level, char wanted);

}  // namespace JCam::Tool
