#pragma once

namespace JCam::Utils::JLog::File {

/// Bytes that hold the path of the log folder, which is a property value.
inline constexpr unsigned long kFolderPathBytes = 128;

/// Creates the folder `path` if it is missing, but not its parents. Logs a failure; opening a file
/// then falls back.
void makeLogFolder(const char* path);

/// Writes the log folder that the properties name to `path` (PROPERTY_VALUE_MAX bytes), and creates
/// it likewise.
void prepareLogFolder(char* path);

/// Compares identities: one folder may have many names. False if one cannot be looked at.
/// Signal-safe.
bool isSameFolder(const char* a, const char* b);

}  // namespace JCam::Utils::JLog::File
