#pragma once

#include <functional>
#include <istream>
#include <string>

namespace JCam::Platform {

/// Takes a property; false when the value is too long for the key.
using PropertySink = std::function<bool(const std::string& key, const std::string& value)>;

/// Reads properties in the manner of a build.prop file: one key=value a line, "#" opens a comment
/// line, blanks around keys and values and the CR of a CRLF do not count. A line may have any
/// length and the last one need not end. Lines that are neither are reported on stderr under
/// `name` and their number, and skipped. False when reading itself fails, with errno set to the
/// reason if the stream leaves one.
[[nodiscard]] bool readPropertyFile(std::istream& input, const char* name,
                                    const PropertySink& sink);

}  // namespace JCam::Platform
