#include "jlog/MultiJLogger.h"

#include "jlog/DefaultJLogger.h"
#include "jlog/TraceJLogger.h"

namespace JCam::Utils::JLog {

// The pairs that JLogInitializer installs.
template class MultiJLogger<DefaultJLogger, TraceJLogger>;

}  // namespace JCam::Utils::JLog
