#pragma once

#include <gtest/gtest.h>

#include <android/log.h>

#include "support/Interpose.h"
#include "support/LogCapture.h"
#include "support/OpenLogger.h"
#include "support/Properties.h"
#include "support/TempFolder.h"

namespace JCam::Support {

inline constexpr char kFolderProperty[] = "vendor.debug.camera.ulog.folder";
inline constexpr char kIntervalProperty[] = "vendor.debug.camera.jlog.flushms";
/// The tag of the file logger's own lines.
inline constexpr char kFileTag[] = "FileAloneJLogger";
inline constexpr char kUnableToOpen[] =
        "Unable to open file. Please disable SELinux and restart camerahalserver. !!!";

/// Loggers write to a folder of the test's own. Lines in the Android log are kept, but for those of
/// single reservations, which would bury the others.
class FileLoggerTest : public ::testing::Test {
  protected:
    FileLoggerTest() {
        mProperties.set(kFolderProperty, mFolder.path());
        __android_log_set_minimum_priority(ANDROID_LOG_INFO);
    }
    ~FileLoggerTest() override { __android_log_set_minimum_priority(ANDROID_LOG_DEFAULT); }

    LogCapture mLog;
    Interpose::Scope mInterpose;
    TempFolder mFolder;
    Properties mProperties;
};

}  // namespace JCam::Support
