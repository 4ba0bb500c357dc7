#include "jlog/track/EventTrackJLogger.h"

#include <atomic>
#include <string_view>

#include "support/Await.h"
#include "track/TrackTest.h"

int jlc_raise_exception(JlcExceptionRecord* record) {
    return JCam::Utils::JLog::Track::TrackTest::raise(*record);
}

namespace JCam::Utils::JLog::Track {
namespace {

using EventTrackJLoggerTest = TrackTest;
using ::testing::ElementsAre;
using ::testing::StartsWith;

TEST_F(EventTrackJLoggerTest, IsMadeOnceAndDeletedOnceForAllThreads) {
    static std::atomic<int> sAsking;
    static std::atomic<int> sMade;
    static std::atomic<int> sDeleted;
    // Whoever makes it takes until all others ask for it, too.
    __android_log_set_logger([](const __android_log_message* message) {
        const std::string_view text = message->message;
        sDeleted += text.starts_with("~EventTrackJLogger 0x") ? 1 : 0;
        if (text.starts_with("EventTrackJLogger 0x")) {
            ++sMade;
            EXPECT_TRUE(Support::await([] { return sAsking == 4; }));
        }
    });
    EventTrackJLogger::releaseInstance();
    for (int round = 0; round < 20; round++) {
        sAsking = sMade = sDeleted = 0;
        runThreads(4, [](int) {
            ++sAsking;
            EventTrackJLogger::getInstance();
        });
        runThreads(4, [](int) { EventTrackJLogger::releaseInstance(); });
        EXPECT_EQ(sMade, 1);
        EXPECT_EQ(sDeleted, 1);
    }
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

TEST_F(EventTrackJLoggerTest, RaisesAnExceptionThenFeedsItBackUnderItsName) {
    struct Row {
        int type, subCode, row;
        const char* code;
        const char* category;
        const char* name;
    };
    for (const Row& row : {Row{0, 5, 0, "0x10025005", "EXP_HARDWARE", "EXCEP_PROBE"},
                           Row{1, 10, 15, "0x1002510a", "EXP_TALVEX", "EXCEPTION_RTT_BOOT"},
                           Row{6, 2, 29, "0x10025602", "EXP_CAM_OTHER", "DARK_AE_ANOMALOUS"}}) {
        const int code = 0x10025000 + 0x100 * row.type + row.subCode;
        EXPECT_EQ(mTracker->findEventId(code), row.row);
        EXPECT_STREQ(mTracker->acquireErrorCodeDesc(code), row.name);
        mTracker->writeExceptionErrCode(row.type, row.subCode, nullptr);
        const std::string payload = Support::readFile(node());
        EXPECT_THAT(payload, StartsWith(std::string(row.category) + ":NULL$$EventField@@" +
                                        row.name + "$$FieldData@@" + row.code + "$$"));
        EXPECT_THAT(takeLines(),
                    ElementsAre(info(std::string("jlc raise exception exceptionId = ") + row.code),
                                info(std::string("EXCEPTION_ERR_CODE_SAVE code = ") + row.code),
                                info("final payload = " + payload)));
    }
    // The collector is told again within the time in which the node is not.
    mTracker->writeExceptionErrCode(0, 5, nullptr);
    EXPECT_EQ(mLog.count("skip exp feedback"), 1U);
    EXPECT_EQ(mRecords.size(), 4U);
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
