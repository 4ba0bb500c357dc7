#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "Call.h"

namespace JCam::Soak {

/// Makes `line` the one that `call`, which is a record's, has to leave in the file, newline and
/// all. `serial` is for enter and exit.
void renderLine(std::string& line, std::string_view stamp, pid_t pid, int tid, const Call& call,
                uint32_t serial);

}  // namespace JCam::Soak
