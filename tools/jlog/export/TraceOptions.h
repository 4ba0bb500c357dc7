#pragma once

#include <string>

namespace JCam::Tool {

/// What both trace formats can leave out or have to know.
struct TraceOptions {
    bool scopesOnly = false;  // no details
    std::string
            timeZone;  // of the log's stamps, as in the variable TZ; empty: that of this machine
};

}  // namespace JCam::Tool
