#include "track/TrackTest.h"

#include <barrier>
#include <filesystem>
#include <thread>

namespace JCam::Utils::JLog::Track {

namespace {
TrackTest* sTest = nullptr;  // the one that runs
}  // namespace

void runThreads(int count, const std::function<void(int)>& body) {
    std::barrier gate(count);
    std::vector<std::thread> threads;
    for (int i = 0; i < count; i++) {
        threads.emplace_back([&, i] {
            gate.arrive_and_wait();
            body(i);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TrackTest::TrackTest() {
    sTest = this;
    std::filesystem::current_path(mFolder.path());
    Interpose::redirect("/proc/cam_kern_fb", node());
    Interpose::setWallClock(kNow);
    EventTrackJLogger::releaseInstance();
    mTracker = EventTrackJLogger::getInstance();
    mLog.clear();
}

TrackTest::~TrackTest() {
    EventTrackJLogger::releaseInstance();
    std::filesystem::current_path("/");
    sTest = nullptr;
}

std::vector<Support::LogLine> TrackTest::takeLines() {
    std::vector<Support::LogLine> lines = mLog.lines();
    mLog.clear();
    return lines;
}

Support::LogLine TrackTest::lastLine() const {
    const std::vector<Support::LogLine> lines = mLog.lines();
    return lines.empty() ? Support::LogLine{} : lines.back();
}

}  // namespace JCam::Utils::JLog::Track

using JCam::Utils::JLog::Track::sTest;

int jlc_raise_exception(JlcExceptionRecord* record) {
    {
        const std::lock_guard<std::mutex> lock(sTest->mRecordsMutex);
        sTest->mRecords.push_back(*record);
    }
    if (sTest->mOnRaise) {
        sTest->mOnRaise();
    }
    return sTest->mAnswer;
}
