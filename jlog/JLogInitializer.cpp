#include "jlog/JLogInitializer.h"

#include <new>

#include <android/log.h>

#include "jlog/JLogInitializerImpl.h"
#include "jlog/LogTag.h"

namespace JCam::Utils::JLog {

// Without memory nothing is initialised, and the Android log stays installed.
JLogInitializer::JLogInitializer(int mask) : mImpl(new (std::nothrow) JLogInitializerImpl(mask)) {
    __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "new JLogInitializerImpl");
}

JLogInitializer::~JLogInitializer() {
    if (mImpl != nullptr) {
        JLogInitializerImpl::release();
        mImpl.reset();
    }
    __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "delete JLogInitializerImpl");
}

void JLogInitializer::updateLogLevel() {
    JLogInitializerImpl::updateLogLevel();
}

void JLogInitializer::setCamLaoEnable(bool enable) {
    JLogInitializerImpl::setCamLaoEnable(enable);
}

void JLogInitializer::setIsReleaseVer(bool release) {
    JLogInitializerImpl::setIsReleaseVer(release);
}

}  // namespace JCam::Utils::JLog
