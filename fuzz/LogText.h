#pragma once

#include <algorithm>
#include <initializer_list>
#include <string>
#include <string_view>

#include <android/log.h>

#include "support/LogCapture.h"

namespace JCam::Fuzz {

/// A line of the Android log in a text of many.
inline std::string logLine(int priority, std::string_view tag, std::string_view text) {
    std::string line = std::to_string(priority);
    return line.append("/").append(tag).append(": ").append(text).append("\n");
}

/// Takes the whole Android log over, whatever the environment filters out, and makes a text of it.
class LogText {
  public:
    LogText() { __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE); }

    /// The lines with one of these tags since the last call.
    std::string take(std::initializer_list<std::string_view> tags) {
        std::string text;
        for (const Support::LogLine& line : mLog.lines()) {
            if (std::find(tags.begin(), tags.end(), line.tag) != tags.end()) {
                text += logLine(line.priority, line.tag, line.text);
            }
        }
        mLog.clear();
        return text;
    }

  private:
    Support::LogCapture mLog;
};

}  // namespace JCam::Fuzz
