#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <android/log.h>
#include <jlc/jlc_exception.h>

#include "jlog/track/EventTrackJLogger.h"
#include "support/Faults.h"
#include "support/Interpose.h"
#include "support/LogCapture.h"
#include "support/Properties.h"
#include "support/TempFolder.h"

namespace JCam::Utils::JLog::Track {

namespace Faults = Support::Faults;
namespace Interpose = Support::Interpose;

/// Lines of the tracker on the Android log.
inline Support::LogLine error(const std::string& text) {
    return {ANDROID_LOG_ERROR, "EventTrackJLogger", text};
}
inline Support::LogLine info(const std::string& text) {
    return {ANDROID_LOG_INFO, "EventTrackJLogger", text};
}
inline Support::LogLine debug(const std::string& text) {
    return {ANDROID_LOG_DEBUG, "EventTrackJLogger", text};
}

/// Runs `body` on `count` threads at once, each with its number.
void runThreads(int count, const std::function<void(int)>& body);

/// A fresh tracker in a working directory of its own, with a client package, at a fixed time, with
/// a feedback node that is a file, and with a log collector that keeps its records.
class TrackTest : public ::testing::Test {
  protected:
    static constexpr int64_t kNow = 1'700'000'000;

    TrackTest();
    ~TrackTest() override;

    [[nodiscard]] std::string node() const { return mFolder.path("cam_kern_fb"); }

    /// The lines since the last call.
    std::vector<Support::LogLine> takeLines();
    [[nodiscard]] Support::LogLine lastLine() const;

    Support::LogCapture mLog;
    Support::TempFolder mFolder;
    Support::Properties mProperties{{"jovix.camera.packname", "com.app"}};
    Interpose::Scope mScope;
    EventTrackJLogger* mTracker;

    /// What the collector does before it answers, and its answer. Set while no thread raises.
    std::function<void()> mOnRaise;
    int mAnswer = 0;
    std::vector<JlcExceptionRecord> mRecords;  // guarded by mRecordsMutex while threads raise

  private:
    friend int ::jlc_raise_exception(JlcExceptionRecord* record);
    std::mutex mRecordsMutex;
};

}  // namespace JCam::Utils::JLog::Track
