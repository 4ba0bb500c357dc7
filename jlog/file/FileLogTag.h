#pragma once

namespace JCam::Utils::JLog::File {

/// Under this tag all of file logging speaks on the Android log.
inline constexpr char kFileLogTag[] = "FileAloneJLogger";

/// What the writer says once it has no file, and the flush thread for every buffer that is lost so.
inline constexpr char kNoFileText[] =
        "Unable to open file. Please disable SELinux and restart camerahalserver. !!!";

}  // namespace JCam::Utils::JLog::File
