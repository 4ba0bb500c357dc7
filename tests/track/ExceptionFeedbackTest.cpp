#include <atomic>
#include <climits>
#include <cstring>

#include "track/TrackTest.h"

namespace JCam::Utils::JLog::Track {
namespace {

using Support::readFile;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr char kNode[] = "/proc/cam_kern_fb";

class ExceptionFeedbackTest : public TrackTest {
  protected:
    ExceptionFeedbackTest() {
        sWrites = 0;
        Interpose::onWrite([](int) { ++sWrites; });
    }

    static inline std::atomic<int> sWrites;
};

TEST_F(ExceptionFeedbackTest, TheCollectorGetsOneRecordPerException) {
    mTracker->camJlcRaiseException(0x1002510B);
    EXPECT_THAT(takeLines(), ElementsAre(info("jlc raise exception exceptionId = 0x1002510b")));
    unsigned char expected[288] = {0x00, 0xF1, 0x53, 0x65, 0, 0, 0, 0, 0x0B, 0x51, 0x02, 0x10};
    expected[24] = 0x21;
    expected[28] = 0x04;
    ASSERT_EQ(mRecords.size(), 1U);
    EXPECT_EQ(memcmp(mRecords.data(), expected, sizeof(expected)), 0);

    mOnRaise = [] { return -3; };
    mTracker->camJlcRaiseException(0xFFFFFFFF);
    EXPECT_EQ(takeLines().back(), error("jlc_raise_exception failed"));
    // Only camera exceptions reach it.
    for (const unsigned int id : {0U, 0x40010001U, 0x10024FFFU, 0x00025000U}) {
        mTracker->camJlcRaiseException(id);
        EXPECT_EQ(takeLines().back(), error("exception id in not camera type"));
    }
    EXPECT_EQ(mRecords.size(), 2U);
}

TEST_F(ExceptionFeedbackTest, TheNodeGetsOnePayloadInOneWriteWhateverTheTextsAre) {
    struct Row {
        std::string detail;
        const char* package;
        int openId;
        unsigned int opMode;
        std::string numbers;
    };
    int64_t payloads = 0;
    for (const Row& row : {
                 Row{"%s%n%1000000d\n\nEXP_HARDWARE:NULL$$EventField@@OTHER",
                     "%n%s$$camID@@7\n\xFF", INT_MIN, UINT_MAX,
                     "-2147483648$$operationMode@@0xffffffff"},
                 Row{std::string(5000, '\xFF'), "com.app", 1, 0xFFFF,
                     "1$$operationMode@@0xffffffff"},
                 // What is unknown stays as it was.
                 Row{"", "", -1, 0, "1$$operationMode@@0x0"},
         }) {
        Interpose::setWallClock(kNow + 30 * ++payloads);
        mTracker->setTrackInfo(row.openId, row.opMode);
        mProperties.set("jovix.camera.packname", row.package);
        mLog.clear();
        mTracker->sendHalExcepFbData(0x10025012, row.detail.c_str());
        const std::string payload =
                "EXP_HARDWARE:NULL$$EventField@@OIS_SET_FAIL$$FieldData@@0x10025012$$pkgName@@" +
                std::string(row.package) + "$$camID@@" + row.numbers +
                "$$detailData@@otherData = " + row.detail;
        EXPECT_EQ(readFile(node()), payload.substr(0, 1023));
        EXPECT_EQ(sWrites, payloads);
    }
    EXPECT_EQ(takeLines().front(), error("get PackName Error! ret:0 curPkgName:"));
    mTracker->sendHalExcepFbData(0x10025013, nullptr);
    EXPECT_THAT(takeLines().back().text, ::testing::EndsWith("$$detailData@@otherData = NULL"));
}

TEST_F(ExceptionFeedbackTest, ACodeIsHeldBackFor30Seconds) {
    struct Row {
        int64_t atSec;
        bool sent;
        int64_t lastSec;
    };
    constexpr int64_t kAhead = kNow + (int64_t{1} << 32);
    // A device without a clock begins in 1970. Later the clock is set back, and far ahead.
    for (const Row& row : {Row{29, false, 0}, Row{30, true, 0}, Row{kNow, true, 30},
                           Row{kNow, false, kNow}, Row{kNow + 29, false, kNow},
                           Row{kNow + 30, true, kNow}, Row{kNow - 1000, false, kNow + 30},
                           Row{kAhead, true, kNow + 30}, Row{kNow + 60, false, kAhead}}) {
        Interpose::setWallClock(row.atSec);
        mTracker->clearData();  // does not forget feedback
        mTracker->sendHalExcepFbData(0x10025012, nullptr);
        const std::string skipped =
                "skip exp feedback, record time = " + std::to_string(row.lastSec) +
                ", now time = " + std::to_string(row.atSec);
        ASSERT_THAT(takeLines(), ElementsAre(row.sent ? info("final payload = " + readFile(node()))
                                                      : error(skipped)));
    }
    // Others are none of its business, and those without a row are always held back.
    mTracker->sendHalExcepFbData(0x10025013, nullptr);
    mTracker->sendHalExcepFbData(0x10025001, nullptr);
    EXPECT_THAT(mLog.texts(),
                ElementsAre(HasSubstr("ESD_recovery"),
                            "skip exp feedback, record time = 0, now time = 1700000060"));
    EXPECT_EQ(sWrites, 5);
}

TEST_F(ExceptionFeedbackTest, ThreadsWithOneCodeSendOnePayload) {
    for (int64_t round = 1; round <= 50; round++) {
        Interpose::setWallClock(kNow + 30 * round);
        runThreads(4, [this](int) { mTracker->sendHalExcepFbData(0x10025500, "t"); });
        EXPECT_EQ(mLog.count("final payload"), 1U);
        EXPECT_EQ(mLog.count("skip"), 3U);
        mLog.clear();
    }
}

TEST_F(ExceptionFeedbackTest, NothingIsLockedWhileTheCollectorOrTheNodeIsBusy) {
    // What another thread would do meanwhile.
    int handedOut = 0;
    mOnRaise = [&] {
        mTracker->clearData();
        handedOut = EventTrackJLogger::getInstance()->readPersistentErrCode();
        mTracker->sendHalExcepFbData(0x10025100, nullptr);
        return 0;
    };
    mTracker->caughtPersistentErrCode(1, 0);
    EXPECT_EQ(handedOut, 0x10025100);
    mLog.clear();
    Interpose::onWrite([](int) {
        Interpose::onWrite(nullptr);
        EventTrackJLogger::getInstance()->sendHalExcepFbData(0x10025500, "the same");
        EventTrackJLogger::getInstance()->sendHalExcepFbData(0x10025501, "another");
    });
    mTracker->sendHalExcepFbData(0x10025500, "first");
    EXPECT_THAT(mLog.texts(),
                ElementsAre(HasSubstr("= first"), StartsWith("skip"), HasSubstr("= another")));
}

TEST_F(ExceptionFeedbackTest, APayloadThatTheNodeRefusesIsTriedOnceAndCountsTowardsTheLimit) {
    Faults::arm({{.call = Faults::Call::WRITE, .error = Faults::kShortWrite, .times = 1}});
    mTracker->sendHalExcepFbData(0x10025200, nullptr);
    EXPECT_THAT(mLog.texts("final payload = ")[0],
                StartsWith("final payload = " + readFile(node())));
    EXPECT_EQ(takeLines().back(), error("/proc/cam_kern_fb took 76 of 153 bytes, errno 0"));

    Interpose::redirect(kNode, "/dev/full");
    mTracker->sendHalExcepFbData(0x10025201, nullptr);
    EXPECT_EQ(takeLines().back(), error("/proc/cam_kern_fb took -1 of 151 bytes, errno 28"));
    EXPECT_EQ(sWrites, 2);

    Interpose::redirect(kNode, mFolder.path());
    mTracker->sendHalExcepFbData(0x10025202, nullptr);
    EXPECT_EQ(takeLines().back(), error("fd err = 21 "));
    mTracker->sensorProbeFailedFb();
    EXPECT_EQ(takeLines().back(), error("fd err = 21 "));
    mTracker->sendHalExcepFbData(0x10025202, nullptr);
    EXPECT_EQ(mLog.count("skip"), 1U);
}

TEST_F(ExceptionFeedbackTest, AFailedProbeIsAnsweredWithTheSensorsNameIfThereIsOne) {
    const std::string head =
            "EXP_HARDWARE:NULL$$EventField@@EXCEP_PROBE$$FieldData@@0x10025005$$detailData@@"
            "sensorName = ";
    int answers = 0;
    for (const std::string& content :
         {std::string("ov64b %d\n"), std::string(600, 's'), std::string(), std::string("\0s", 2)}) {
        Support::writeFile(node(), content);
        mTracker->sensorProbeFailedFb();
        const std::string name = content.substr(0, 512);
        std::vector<Support::LogLine> expected = {
                info("revCount = " + std::to_string(name.size()))};
        if (name.size() > 2) {
            expected.push_back(info("payload = " + head + name));
            EXPECT_EQ(readFile(node()), name + head + name);
            ++answers;
        }
        EXPECT_EQ(takeLines(), expected);
        EXPECT_EQ(sWrites, answers);
    }
    Interpose::redirect(kNode, "/proc/self/mem");  // nothing is at address 0
    mTracker->sensorProbeFailedFb();
    EXPECT_THAT(takeLines(),
                ElementsAre(error("cannot read /proc/cam_kern_fb, errno 5"), info("revCount = 0")));
}

}  // namespace
}  // namespace JCam::Utils::JLog::Track
