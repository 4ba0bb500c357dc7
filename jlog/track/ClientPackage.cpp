#include "jlog/track/ClientPackage.h"

#include <android/log.h>

#include "jlog/track/TrackLogTag.h"

namespace JCam::Utils::JLog::Track {

ClientPackage::ClientPackage() {
    const int length = property_get("jovix.camera.packname", mName, "");
    if (length < 1 || mName[0] == '\0') {
        __android_log_print(ANDROID_LOG_ERROR, kTrackLogTag,
                            "get PackName Error! ret:%d curPkgName:%s", length, mName);
        mName[0] = '\0';  // a call that fails may leave anything
    }
}

}  // namespace JCam::Utils::JLog::Track
