#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

namespace JCam::Bench {

/// What every logger is given to do. The work is that of a camera: an enter event with a name of
/// twelve characters and a message of sixty with its tag, in turn, each a line of about 107 bytes.
struct Workload {
    static constexpr char kName[] = "processFrame";
    static constexpr char kTag[] = "IspNode";
    static constexpr size_t kTextBytes = 60;

    /// Where the files go. It exists and is empty.
    std::filesystem::path folder;
    /// The text of messages.
    std::string text;
    /// Messages only, no enter events.
    bool messagesOnly{false};

    /// A text of `bytes` characters.
    static std::string makeText(size_t bytes) {
        constexpr char kPattern[] = "frame 4711: exposure 16666 us, gain 2.5, lens 0.35 dpt; ";
        std::string text;
        while (text.size() < bytes) {
            text += kPattern;
        }
        text.resize(bytes);
        return text;
    }
};

}  // namespace JCam::Bench
