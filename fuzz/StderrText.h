#pragma once

#include <string>

namespace JCam::Fuzz {

/// What dprintf has sent to stderr since the last call. It stays here instead: a fuzzer with this
/// source has a dprintf of its own.
std::string takeStderrText();

}  // namespace JCam::Fuzz
