#pragma once

#include <functional>
#include <string>

namespace JCam::Platform {

/// Takes a property; returns false if the value is too long for the key.
using PropertySink = std::function<bool(const std::string& key, const std::string& value)>;

/// Reads properties like a build.prop file: one key=value a line; a comment line starts with "#";
/// blanks around keys and values and the CR of a CRLF are ignored. A line may have any length, and
/// the last one needs no newline. Reports other lines on stderr with their number, and skips them.
/// Returns false if the file cannot be opened or read; errno is then the reason.
[[nodiscard]] bool readPropertyFile(const char* path, const PropertySink& sink);

}  // namespace JCam::Platform
