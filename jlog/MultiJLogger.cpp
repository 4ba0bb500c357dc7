#include "jlog/MultiJLogger.h"

#include "jlog/DefaultJLogger.h"
#include "jlog/file/FileAloneJLogger.h"
#include "jlog/file/FileMergeJLogger.h"
#include "jlog/TraceJLogger.h"

namespace JCam::Utils::JLog {

// The pairs that JLogInitializer installs.
template class MultiJLogger<DefaultJLogger, TraceJLogger>;
template class MultiJLogger<File::FileMergeJLogger, TraceJLogger>;
template class MultiJLogger<File::FileAloneJLogger, TraceJLogger>;

}  // namespace JCam::Utils::JLog
