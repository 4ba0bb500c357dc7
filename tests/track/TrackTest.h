#pragma once

#include <filesystem>
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
#include "support/Threads.h"

namespace JCam::Utils::JLog::Track {

namespace Faults = Support::Faults;
namespace Interpose = Support::Interpose;
using Support::runThreads;

/// Lines of the tracker on the Android log.
inline Support::LogLine error(const std::string& text) {
    return {ANDROID_LOG_ERROR, "EventTrackJLogger", text};
}
inline Support::LogLine info(const std::string& text) {
    return {ANDROID_LOG_INFO, "EventTrackJLogger", text};
}

/// A fresh tracker in a working directory of its own, with a client package, at a fixed time, with
/// a feedback node that is a file, and with a log collector that keeps its records.
class TrackTest : public ::testing::Test {
  public:
    /// The log collector.
    static int raise(const JlcExceptionRecord& record) {
        {
            const std::lock_guard<std::mutex> lock(sTest->mMutex);
            sTest->mRecords.push_back(record);
        }
        return sTest->mOnRaise();
    }

  protected:
    static constexpr int64_t kNow = 1'700'000'000;

    TrackTest() {
        sTest = this;
        std::filesystem::current_path(mFolder.path());
        Interpose::redirect("/proc/cam_kern_fb", node());
        Interpose::setWallClock(kNow);
        EventTrackJLogger::releaseInstance();
        mTracker = EventTrackJLogger::getInstance();
        mLog.clear();
    }
    ~TrackTest() override {
        EventTrackJLogger::releaseInstance();
        std::filesystem::current_path("/");
    }

    [[nodiscard]] std::string node() const { return mFolder.path("cam_kern_fb"); }

    /// The lines since the last call.
    std::vector<Support::LogLine> takeLines() {
        std::vector<Support::LogLine> lines = mLog.lines();
        mLog.clear();
        return lines;
    }

    Support::LogCapture mLog;
    Support::TempFolder mFolder;
    Support::Properties mProperties{{"jovix.camera.packname", "com.app"}};
    Interpose::Scope mScope;
    EventTrackJLogger* mTracker;

    /// What the collector does, and its answer. Set while no thread raises.
    std::function<int()> mOnRaise = [] { return 0; };
    std::vector<JlcExceptionRecord> mRecords;  // guarded by mMutex while threads raise

  private:
    static inline TrackTest* sTest;  // the one that runs
    std::mutex mMutex;
};

}  // namespace JCam::Utils::JLog::Track
