#pragma once

namespace JCam::Utils::JLog::File {

/// Under this tag all of file logging speaks on the Android log.
inline constexpr char kFileLogTag[] = "FileAloneJLogger";

}  // namespace JCam::Utils::JLog::File
