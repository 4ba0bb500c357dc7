#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "Call.h"

namespace JCam::Soak {

/// " PPPPP TTTTT ", which stands behind the time stamp of every line of a thread.
[[nodiscard]] std::string originText(pid_t pid, int tid);

/// Appends what stands behind the origin in the line that `call`, which is a record's, has to leave
/// in the file, newline and all. `serial` is for enter and exit.
void appendLine(std::string& line, const Call& call, uint32_t serial);

}  // namespace JCam::Soak
