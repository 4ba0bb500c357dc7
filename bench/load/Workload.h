#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

namespace JCam::Bench {

/// The load, the same for every logger. As in a camera, an enter event with a name of 12 characters
/// and a message of 60 with its tag take turns; each is a line of about 107 bytes.
struct Workload {
    static constexpr char kName[] = "processFrame";
    static constexpr char kTag[] = "IspNode";
    static constexpr size_t kTextBytes = 60;

    /// For the log files. It exists and is empty.
    std::filesystem::path folder;
    std::string text;
    bool messagesOnly{false};

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

/// Event `i` of a load: enters and messages take turns, unless only messages are wanted.
template <typename Logger>
void logEvent(Logger& logger, const Workload& work, unsigned int i) {
    if (i % 2 == 0 && !work.messagesOnly) {
        logger.logEnter(i);
    } else {
        logger.logMessage();
    }
}

}  // namespace JCam::Bench
