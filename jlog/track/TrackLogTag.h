#pragma once

namespace JCam::Utils::JLog::Track {

/// The tag of exception tracking on the Android log.
inline constexpr char kTrackLogTag[] = "EventTrackJLogger";

}  // namespace JCam::Utils::JLog::Track
