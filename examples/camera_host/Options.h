#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace CameraHost {

/// What the command line asks for.
struct Options {
    unsigned int mode = 0x14;
    int mask = 0x1;
    /// Set after the host's own properties, in this order.
    std::vector<std::pair<std::string, std::string>> properties;
    std::string folder = "./jlog-demo";
    std::string blackBox;  // its folder; empty: none
    unsigned int threads = 4;
    unsigned int seconds = 3;
    unsigned int rate = 30;   // requests per second and thread; 0: as fast as it can
    std::string replayFile;   // empty: run the pipeline
    int crashSignal = 0;      // not 0: the pipeline's process ends by it half way
    uint64_t storm = 0;       // not 0: so many processes crash...
    bool ends = false;        // ... or end in other ways
    bool exceptions = false;  // report camera exceptions, too
};

/// Fills `options`. A result is the exit status of a program that has nothing more to do: help was
/// asked for, or the command line is wrong and a message has been printed.
[[nodiscard]] std::optional<int> parseOptions(int argc, char** argv, Options& options);

}  // namespace CameraHost
