#pragma once

namespace JCam::Utils::JLog::File {

/// Bytes that hold the path of the log folder, which is a property value.
inline constexpr unsigned long kFolderPathBytes = 128;

/// Creates the folder `path` if it is missing, but not what it lies in. A failure is logged;
/// opening a file will then take its own measures.
void makeLogFolder(const char* path);

/// Writes the log folder that the properties name to `path` (PROPERTY_VALUE_MAX bytes), and creates
/// it likewise.
void prepareLogFolder(char* path);

}  // namespace JCam::Utils::JLog::File
