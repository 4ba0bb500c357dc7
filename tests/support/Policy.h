#pragma once

#include "jlog/JLogger.h"
#include "jlog/JLogInitializerImpl.h"

namespace JCam::Support {

/// What the start-up policy and the front end remember is as when the library was loaded.
inline void resetPolicy() {
    using namespace Utils::JLog;
    using Impl = JLogInitializerImpl;
    Impl::sDefaultLogLevel = 0;
    Impl::sReleaseVer = Impl::sPreVer = Impl::sMarketVer = Impl::sLaoEnable = false;
    Impl::sJlogEnable4Market = Impl::sJlogEnable4Pre = false;
    JLogger::sDebugLevel = 0;
    JLogger::sInitJlogLevel = JLogger::sLevel = JLogger::sMode = 0;
    JLogger::sFilter = 0;
}

}  // namespace JCam::Support
