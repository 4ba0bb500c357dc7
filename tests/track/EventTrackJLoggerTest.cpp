#include "jlog/track/EventTrackJLogger.h"

#include "track/TrackTest.h"

int jlc_raise_exception(JlcExceptionRecord* record) {
    return JCam::Utils::JLog::Track::TrackTest::raise(*record);
}

namespace JCam::Utils::JLog::Track {
namespace {

using EventTrackJLoggerTest = TrackTest;
using ::testing::ElementsAre;
using ::testing::StartsWith;

TEST_F(EventTrackJLoggerTest, IsMadeAndDeletedAsOftenWhileThreadsCompete) {
    EventTrackJLogger::releaseInstance();
    mLog.clear();
    // Nobody uses the instance, so that anyone may release it.
    runThreads(4, [](int) {
        for (int i = 0; i < 200; i++) {
            EXPECT_NE(EventTrackJLogger::getInstance(), nullptr);
            EventTrackJLogger::releaseInstance();
        }
    });
    EXPECT_GE(mLog.count("EventTrackJLogger "), 200U);
    EXPECT_EQ(mLog.count("EventTrackJLogger "), mLog.count("~EventTrackJLogger "));
}

TEST_F(EventTrackJLoggerTest, ForgetsEverythingWhenReleased) {
    mTracker->setTrackInfo(2, 0x10);
    mTracker->caughtPersistentErrCode(0, 5);
    mTracker->caughtPersistentErrCode(0, 6);
    EXPECT_EQ(mTracker->readPersistentErrCode(), 0x10025005);
    EXPECT_EQ(mTracker->readExceptionErrCode(), 0);
    mTracker->sendHalExcepFbData(0x10025010, nullptr);
    mLog.clear();
    EventTrackJLogger::releaseInstance();
    EventTrackJLogger::releaseInstance();
    EventTrackJLogger* const fresh = EventTrackJLogger::getInstance();
    fresh->setTrackInfo(-1, 0xFFFF);
    const std::string address = ::testing::PrintToString(static_cast<const void*>(fresh));
    EXPECT_THAT(mLog.texts(),
                ElementsAre(StartsWith("~EventTrackJLogger 0x"), "EventTrackJLogger " + address,
                            "set mOpenID:-1 mOpMode:0xffff"));
    fresh->caughtPersistentErrCode(0, 7);
    EXPECT_EQ(fresh->readPersistentErrCode(), 0x10025007);
    EXPECT_EQ(fresh->readExceptionErrCode(), 0);
    EXPECT_EQ(mLog.count("hal excption"), 1U);
    fresh->sendHalExcepFbData(0x10025010, nullptr);
    EXPECT_EQ(mLog.count("skip"), 0U);
}

TEST_F(EventTrackJLoggerTest, KnowsTheFeedbackCodesByClassAndNumber) {
    struct Row {
        int type, subCode, row;
        const char* category;
        const char* name;
    };
    for (const Row& row : {Row{0, 5, 0, "EXP_HARDWARE", "EXCEP_PROBE"},
                           Row{1, 10, 15, "EXP_TALVEX", "EXCEPTION_RTT_BOOT"},
                           Row{6, 2, 29, "EXP_CAM_OTHER", "DARK_AE_ANOMALOUS"}}) {
        const int code = 0x10025000 + 0x100 * row.type + row.subCode;
        EXPECT_EQ(mTracker->findEventId(code), row.row);
        EXPECT_STREQ(mTracker->acquireErrorCodeDesc(code), row.name);
        mTracker->writeExceptionErrCode(row.type, row.subCode, nullptr);
        EXPECT_THAT(Support::readFile(node()), StartsWith(std::string(row.category) +
                                                          ":NULL$$EventField@@" + row.name + "$$"));
    }
    int known = 0;
    for (int code = 0x10025000; code < 0x10026000; code++) {
        known += mTracker->findEventId(code) != -1 ? 1 : 0;
    }
    EXPECT_EQ(known, 30);
    mLog.clear();
    EXPECT_EQ(mTracker->acquireErrorCodeDesc(0x10025001), nullptr);
    EXPECT_THAT(takeLines(), ElementsAre(error("not found error code:0x10025001 desc, please "
                                               "check gCamHalFbConf")));
}

}  // namespace
}  // namespace JCam::Utils::JLog::Track
