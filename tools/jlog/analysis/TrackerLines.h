#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/jlog/analysis/Logcat.h"

namespace JCam::Tool {

/// Makes exceptions of the lines that the tracker writes to the Android log. A report is several
/// lines of one thread; those of other threads and processes may stand between them. A log may
/// begin within a report.
class TrackerLines {
  public:
    /// Appends to `exceptions`.
    explicit TrackerLines(std::vector<CameraException>& exceptions) : mExceptions(exceptions) {}

    /// The next line with the tracker's tag.
    void add(const LogcatLine& line);
    [[nodiscard]] uint64_t refusedCalls() const { return mRefusedCalls; }

  private:
    /// What the next line of a thread may belong to.
    enum class Stage : uint8_t {
        NONE,
        KEPT,     // a persistent code, which is raised next
        RAISED,   // and perhaps saved next
        SAVED,    // the node is told next
        NAMING,   // the kernel is told the name of a sensor
        PAYLOAD,  // texts of the caller may have more lines
        STATS,    // likewise
    };
    struct Thread {
        Stage stage = Stage::NONE;
        size_t exception = 0;  // index into mExceptions
        int64_t payloadWall = kNoTime;
    };
    struct Process {
        std::optional<int> camera;
        std::optional<uint32_t> mode;
    };

    CameraException& begin(Stage stage, ExceptionKind kind, uint32_t code);
    /// The exception of the thread if it is at `stage`; null if not.
    CameraException* at(Stage stage);
    void raise(uint32_t code);
    void save(uint32_t code);
    void tellNode(std::string_view payload);
    void answerSensorProbe(std::string_view payload);
    void reportDarkScreen(std::string_view payload);
    void holdBack();
    void failToOpenNode(int error);
    /// False if the line is none of them.
    bool addCapture(std::string_view text);
    bool addFeedback(std::string_view text);
    bool addStats(std::string_view text);
    bool addOther(std::string_view text);

    std::vector<CameraException>& mExceptions;
    std::map<std::pair<int, int>, Thread> mThreads;  // by pid and tid
    std::map<int, Process> mProcesses;
    uint64_t mRefusedCalls = 0;
    // Of the line that is being added.
    const LogcatLine* mLine = nullptr;
    Thread* mThread = nullptr;
    Process* mProcess = nullptr;
};

}  // namespace JCam::Tool
