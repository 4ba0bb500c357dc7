#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "reader/MappedFile.h"
#include "tools/jlog/analysis/Entry.h"

namespace JCam::Tool {

/// A line of a logcat file. Lines of other form ("--------- beginning of main") have the time of
/// the line before, and no level.
struct LogcatLine {
    int64_t wall = kNoTime;  // see Entry::wall
    bool isCoarse = false;   // of a whole number of milliseconds, as the stamp has but 3 digits
    int pid = 0;
    int tid = 0;
    char level = '\0';
    std::string_view tag;
    std::string_view text;
    std::string_view bytes;  // all of it, with the newline
    uint64_t number = 0;     // from 1
};

enum class ExceptionKind : uint8_t {
    REPORTED,
    PERSISTENT,    // kept until the host asks for it
    LEFT_BEHIND,   // read from the file of the kernel or the camera stack
    SENSOR_PROBE,  // the answer to the kernel, which asks for the name of a sensor
    DARK_SCREEN,
};

/// A camera exception that the tracker tells of, and what became of it. What is not known is empty.
struct CameraException {
    ExceptionKind kind = ExceptionKind::REPORTED;
    uint32_t code = 0;  // of a dark screen the atom's id; 0 if the log does not tell
    int64_t wall = kNoTime;
    int pid = 0;
    int tid = 0;
    std::optional<int> camera;
    std::optional<uint32_t> mode;
    std::string package;
    std::string detail;
    // What the receivers answered, in words.
    std::string collector;
    std::string node;
    std::string stats;
};

/// The Android log in a file, as "adb logcat -v threadtime" writes it, with a fraction of 3, 6 or 9
/// digits and perhaps a year. Any bytes are survived.
class Logcat {
  public:
    /// `reference`: a time near the log's, which has no year as a rule. A file that cannot be read
    /// throws std::runtime_error with a message for the user.
    Logcat(const std::filesystem::path& path, int64_t reference);

    /// In the order of their first lines.
    [[nodiscard]] const std::vector<CameraException>& exceptions() const { return mExceptions; }
    /// How many microseconds a stamp stands for: 1000 if there are only 3 digits.
    [[nodiscard]] int64_t resolution() const { return mResolution; }
    /// Calls of the tracker whose class, number or module is none.
    [[nodiscard]] uint64_t refusedCalls() const { return mRefusedCalls; }
    /// As in WallClock, of the newest status line of the process's file logger that has both
    /// clocks: the clock on the wall may have been set before, and the monotonic one stands while
    /// the device sleeps.
    [[nodiscard]] std::optional<int64_t> bootTime(int pid) const;

    /// All lines, in the order of the file.
    void forEachLine(const std::function<void(const LogcatLine& line)>& visit) const;

  private:
    void noteStatus(const LogcatLine& line);

    const Reader::MappedFile mFile;
    const int64_t mReference;
    std::vector<CameraException> mExceptions;
    uint64_t mRefusedCalls = 0;
    int64_t mResolution = 1;
    std::map<int, int64_t> mBootTimes;  // by pid
};

/// The name of an exception's code and that of its class; empty if the tracker's table lacks it.
struct ExceptionName {
    std::string_view name;
    std::string_view category;
};
[[nodiscard]] ExceptionName nameOf(const CameraException& exception);

}  // namespace JCam::Tool
