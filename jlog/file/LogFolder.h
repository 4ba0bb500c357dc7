#pragma once

namespace JCam::Utils::JLog::File {

/// Bytes that hold the path of the log folder, which is a property value.
inline constexpr unsigned long kFolderPathBytes = 128;

/// Writes the log folder that the properties name to `path` (PROPERTY_VALUE_MAX bytes) and creates
/// it if it is missing. A failure is logged; opening the first file will then take its own
/// measures.
void prepareLogFolder(char* path);

}  // namespace JCam::Utils::JLog::File
