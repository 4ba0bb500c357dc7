#pragma once

namespace JCam::Utils::JLog {

/// Under this tag the front end and the initializer speak on the Android log.
inline constexpr char kLogTag[] = "JLOG";

}  // namespace JCam::Utils::JLog
