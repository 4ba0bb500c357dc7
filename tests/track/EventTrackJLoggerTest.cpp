#include "jlog/track/EventTrackJLogger.h"

#include <atomic>
#include <cstdlib>
#include <sstream>
#include <string_view>

#include "support/Await.h"
#include "support/ChildProcess.h"
#include "track/TrackTest.h"

namespace JCam::Utils::JLog::Track {
namespace {

using EventTrackJLoggerTest = TrackTest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string addressOf(const EventTrackJLogger* tracker) {
    return ::testing::PrintToString(static_cast<const void*>(tracker));
}

TEST_F(EventTrackJLoggerTest, IsOneObjectForAllThreads) {
    constexpr int kThreads = 4;
    static std::atomic<int> sAsking;
    static std::atomic<int> sMade;
    // Whoever makes it takes until all others ask for it, too.
    __android_log_set_logger([](const __android_log_message* message) {
        if (std::string_view(message->message).starts_with("EventTrackJLogger 0x")) {
            ++sMade;
            EXPECT_TRUE(Support::await([] { return sAsking == kThreads; }));
        }
    });
    for (int round = 0; round < 20; round++) {
        EventTrackJLogger::releaseInstance();
        sAsking = sMade = 0;
        EventTrackJLogger* found[kThreads] = {};
        runThreads(kThreads, [&found](int i) {
            ++sAsking;
            found[i] = EventTrackJLogger::getInstance();
        });
        EXPECT_THAT(found, ::testing::Each(found[0]));
        EXPECT_EQ(sMade, 1);
    }
}

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
    EXPECT_EQ(mTracker->init(), 0);
    EXPECT_EQ(mTracker->unInit(), 0);
    const std::string address = addressOf(mTracker);
    EventTrackJLogger::releaseInstance();
    EventTrackJLogger::releaseInstance();
    EXPECT_THAT(takeLines(), ElementsAre(info("~EventTrackJLogger " + address)));

    EventTrackJLogger* const fresh = EventTrackJLogger::getInstance();
    fresh->setTrackInfo(-1, 0xFFFF);
    EXPECT_THAT(takeLines(), ElementsAre(info("EventTrackJLogger " + addressOf(fresh)),
                                         debug("set mOpenID:-1 mOpMode:0xffff")));
    fresh->caughtPersistentErrCode(0, 7);
    EXPECT_EQ(fresh->readPersistentErrCode(), 0x10025007);
    EXPECT_EQ(fresh->readExceptionErrCode(), 0);
    EXPECT_EQ(mLog.count("hal excption"), 1U);
    fresh->sendHalExcepFbData(0x10025010, nullptr);
    EXPECT_EQ(mLog.count("skip"), 0U);
}

TEST(EventTrackJLogger, IsDeletedAtTheEndOfTheProcess) {
    // Never unmapped: the child uses them in its last moments.
    static const auto* const sMade = new Support::Shared<std::atomic<int>>;
    static const auto* const sDeleted = new Support::Shared<std::atomic<int>>;
    **sMade = **sDeleted = 0;
    const Support::Ending ending = Support::runChild([] {
        EventTrackJLogger::releaseInstance();
        __android_log_set_logger([](const __android_log_message* message) {
            const std::string_view text = message->message;
            **sMade += text.starts_with("EventTrackJLogger 0x") ? 1 : 0;
            **sDeleted += text.starts_with("~EventTrackJLogger 0x") ? 1 : 0;
        });
        EventTrackJLogger::getInstance();
        std::exit(7);
    });
    EXPECT_EQ(ending, (Support::Ending{Support::Ending::EXITED, 7}));
    EXPECT_EQ(**sMade, 1);
    EXPECT_EQ(**sDeleted, 1);
}

TEST_F(EventTrackJLoggerTest, TrackInfoKeepsWhatIsUnknown) {
    mTracker->setTrackInfo(-1, 0xFFFF);
    mTracker->setTrackInfo(-1, 5);
    mTracker->setTrackInfo(2, 0xFFFF);
    mTracker->setTrackInfo(0, 0xFFFFFFFF);
    mTracker->clearData();
    mTracker->setTrackInfo(-2, 0);
    EXPECT_THAT(mLog.lines(),
                ElementsAre(debug("set mOpenID:-1 mOpMode:0xffff"),
                            debug("set mOpenID:-1 mOpMode:0x5"), debug("set mOpenID:2 mOpMode:0x5"),
                            debug("set mOpenID:0 mOpMode:0xffffffff"),
                            debug("set mOpenID:-2 mOpMode:0x0")));
}

TEST_F(EventTrackJLoggerTest, KnowsTheFeedbackCodesByClassAndNumber) {
    std::istringstream rows(
            "0 5 EXP_HARDWARE EXCEP_PROBE\n0 16 EXP_HARDWARE FLASHLIGHT_SET_FAIL\n"
            "0 17 EXP_HARDWARE LENS_SET_FAIL\n0 18 EXP_HARDWARE OIS_SET_FAIL\n"
            "0 19 EXP_HARDWARE ESD_recovery\n1 0 EXP_TALVEX EXCEPTION_RTT_ISP\n"
            "1 1 EXP_TALVEX EXCEPTION_RTT_NPU\n1 2 EXP_TALVEX EXCEPTION_RTT_PMIC\n"
            "1 3 EXP_TALVEX EXCEPTION_RTT_PVT\n1 4 EXP_TALVEX EXCEPTION_RTT_CPU\n"
            "1 5 EXP_TALVEX EXCEPTION_RTT_SE\n1 6 EXP_TALVEX EXCEPTION_RTT_WDT\n"
            "1 7 EXP_TALVEX EXCEPTION_RTT_BUS\n1 8 EXP_TALVEX EXCEPTION_RTT_SDIO\n"
            "1 9 EXP_TALVEX EXCEPTION_RTT_POWER\n1 10 EXP_TALVEX EXCEPTION_RTT_BOOT\n"
            "1 11 EXP_TALVEX EXCEPTION_RTT_MIPI\n2 0 EXP_P1_NODE SENSOR_SOF_TIMEOUT\n"
            "2 1 EXP_P1_NODE ACQUIRE_BUF_FAIL\n2 2 EXP_P1_NODE WAIT_FOR_AVAILABLE_BUF_FAIL\n"
            "3 0 EXP_P2S_NODE IMAGESYS_DEQUE_FAIL\n3 1 EXP_P2S_NODE IMAGESYS_MW_CONFIG_FAIL\n"
            "5 0 EXP_CAM_DEVICE CONFIG_STREAM_TIMEOUT\n5 1 EXP_CAM_DEVICE FLUSH_TIMEOUT\n"
            "5 2 EXP_CAM_DEVICE CLOSE_TIMEOUT\n5 3 EXP_CAM_DEVICE BUFFER_STATUS_ERROR\n"
            "5 4 EXP_CAM_DEVICE CAMERA_SERVER_HAS_DIED\n6 0 EXP_CAM_OTHER GYRO_ACRUIRE_FAIL\n"
            "6 1 EXP_CAM_OTHER COMMON_TRIGGER_AEE\n6 2 EXP_CAM_OTHER DARK_AE_ANOMALOUS\n");
    int row = 0;
    int type = 0;
    int subCode = 0;
    std::string category;
    for (std::string name; rows >> type >> subCode >> category >> name; row++) {
        const int code = 0x10025000 + 0x100 * type + subCode;
        EXPECT_EQ(mTracker->findEventId(code), row) << name;
        EXPECT_EQ(mTracker->acquireErrorCodeDesc(code), name);
        EXPECT_THAT(takeLines(), IsEmpty());
        mTracker->writeExceptionErrCode(type, subCode, nullptr);
        EXPECT_THAT(Support::readFile(node()),
                    ::testing::StartsWith(category + ":NULL$$EventField@@" + name + "$$"));
        mLog.clear();
    }
    EXPECT_EQ(row, 30);
    int known = 0;
    for (int code = 0x10025000; code < 0x10026000; code++) {
        known += mTracker->findEventId(code) != -1 ? 1 : 0;
    }
    EXPECT_EQ(known, 30);
    EXPECT_THAT(takeLines(), IsEmpty());
    EXPECT_EQ(mTracker->acquireErrorCodeDesc(0x10025001), nullptr);
    EXPECT_THAT(takeLines(), ElementsAre(error("not found error code:0x10025001 desc, please "
                                               "check gCamHalFbConf")));
}

}  // namespace
}  // namespace JCam::Utils::JLog::Track
