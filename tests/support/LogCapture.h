#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <android/log.h>

namespace JCam::Support {

/// One line of the Android log.
struct LogLine {
    int priority;
    std::string tag;
    std::string text;

    bool operator==(const LogLine&) const = default;
};

/// For GoogleTest's messages.
void PrintTo(const LogLine& line, std::ostream* out);

/// Takes the Android log over for a scope: what is loggable is kept instead of printed. One at a
/// time; any thread may log.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// The lines so far.
    [[nodiscard]] std::vector<LogLine> lines() const;
    /// The texts so far that begin with `prefix`.
    [[nodiscard]] std::vector<std::string> texts(std::string_view prefix = "") const;
    [[nodiscard]] size_t count(std::string_view prefix) const { return texts(prefix).size(); }
    void clear();

  private:
    static void keep(const __android_log_message* message);

    /// The one there is: complete before a thread that logs finds it.
    inline static std::atomic<LogCapture*> sCapture{nullptr};

    mutable std::mutex mMutex;
    std::vector<LogLine> mLines;
};

}  // namespace JCam::Support
