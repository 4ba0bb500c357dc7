#pragma once

namespace JCam::Utils::JLog {

/// The Android log tag of the front end and the initializer.
inline constexpr char kLogTag[] = "JLOG";

}  // namespace JCam::Utils::JLog
