#pragma once

#include <string>

#include "tools/jlog/analysis/Analysis.h"
#include "tools/jlog/analysis/Logcat.h"

namespace JCam::Tool {

// Objects of one line, with columns that stay the same: docs/reading-logs.md has them. Written by
// hand, since a log has millions.

/// A record. `scope`: that it opens or closes, or that it is in; nullptr if there is none.
void appendRecord(std::string& json, const Analysis& log, const Entry& entry, const Scope* scope,
                  const std::string& label);
void appendScope(std::string& json, const Analysis& log, const Scope& scope,
                 const std::string& label);

/// A line of the Android log, in the columns of a record.
void appendLine(std::string& json, const LogcatLine& line, const std::string& label);

/// `text` in quotation marks; bytes that are no UTF-8 are replaced.
void appendQuoted(std::string& json, std::string_view text);

/// "closed", "in flight", ...
[[nodiscard]] std::string_view nameOf(Fate fate);

}  // namespace JCam::Tool
