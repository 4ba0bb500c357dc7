#pragma once

#include <functional>
#include <string>

namespace JCam::Platform {

/// Takes a property; false when the value is too long for the key.
using PropertySink = std::function<bool(const std::string& key, const std::string& value)>;

/// Reads properties in the manner of a build.prop file: one key=value a line, "#" opens a comment
/// line, blanks around keys and values and the CR of a CRLF do not count. A line may have any
/// length and the last one need not end. Lines that are neither are reported on stderr with their
/// number, and skipped. False when the file cannot be opened or read, with errno set to the reason.
[[nodiscard]] bool readPropertyFile(const char* path, const PropertySink& sink);

}  // namespace JCam::Platform
