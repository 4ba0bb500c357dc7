#pragma once

namespace JCam::Utils::JLog::Track {

/// The Android log tag of exception tracking.
inline constexpr char kTrackLogTag[] = "EventTrackJLogger";

}  // namespace JCam::Utils::JLog::Track
