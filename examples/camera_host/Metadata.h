#pragma once

#include "Request.h"

namespace CameraHost {

/// Logs the metadata of a request as a block of lines, if the module's verbose messages are wanted.
void dumpMetadata(unsigned int moduleId, const Request& request);

}  // namespace CameraHost
