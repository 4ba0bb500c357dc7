#include <dlfcn.h>

#include <atomic>
#include <climits>
#include <cstring>

#include <cutils/properties.h>

#include "track/TrackTest.h"

namespace {
bool sPropertiesFail = false;
}  // namespace

/// In front of the real one: fails when it is told to, with something left in the buffer.
#pragma GCC visibility push(default)
int property_get(const char* key, char* value, const char* default_value) {
    if (sPropertiesFail) {
        strcpy(value, "rest");
        return -1;
    }
    static const auto sNext =
            reinterpret_cast<decltype(&property_get)>(dlsym(RTLD_NEXT, "property_get"));
    return sNext(key, value, default_value);
}
#pragma GCC visibility pop

namespace JCam::Utils::JLog::Track {
namespace {

using ExceptionFeedbackTest = TrackTest;
using Support::readFile;
using Support::writeFile;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

std::atomic<int> sWrites{0};

/// Counts writes from now on.
void countWrites() {
    sWrites = 0;
    Interpose::onWrite([](int) { ++sWrites; });
}

TEST_F(ExceptionFeedbackTest, TheCollectorGetsOneRecordPerException) {
    mTracker->camJlcRaiseException(0x1002510B);
    EXPECT_THAT(takeLines(), ElementsAre(info("jlc raise exception exceptionId = 0x1002510b")));
    unsigned char expected[288] = {0x00, 0xF1, 0x53, 0x65, 0, 0, 0, 0, 0x0B, 0x51, 0x02, 0x10};
    expected[24] = 0x21;
    expected[28] = 0x04;
    ASSERT_EQ(mRecords.size(), 1U);
    EXPECT_EQ(memcmp(mRecords.data(), expected, sizeof(expected)), 0);

    mAnswer = -3;
    mTracker->camJlcRaiseException(0xFFFFFFFF);
    EXPECT_THAT(takeLines(), ElementsAre(info("jlc raise exception exceptionId = 0xffffffff"),
                                         error("jlc_raise_exception failed")));
    // Only camera exceptions reach it.
    for (const unsigned int id : {0U, 0x40010001U, 0x10024FFFU, 0x00025000U}) {
        mTracker->camJlcRaiseException(id);
        EXPECT_EQ(lastLine(), error("exception id in not camera type"));
    }
    EXPECT_EQ(mRecords.size(), 2U);
}

TEST_F(ExceptionFeedbackTest, TheNodeGetsOnePayloadInOneWrite) {
    countWrites();
    mTracker->sendHalExcepFbData(0x10025005, nullptr);
    const std::string bare =
            "EXP_HARDWARE:NULL$$EventField@@EXCEP_PROBE$$FieldData@@0x10025005$$"
            "pkgName@@com.app$$camID@@-1$$operationMode@@0xffff$$detailData@@otherData = NULL";
    EXPECT_EQ(readFile(node()), bare);
    EXPECT_THAT(takeLines(), ElementsAre(info("final payload = " + bare)));

    mTracker->setTrackInfo(1, 0x8001);
    mProperties.set("jovix.camera.packname", "");
    mLog.clear();
    mTracker->sendHalExcepFbData(0x10025602, "luma 100%s $$camID@@9");
    const std::string full =
            "EXP_CAM_OTHER:NULL$$EventField@@DARK_AE_ANOMALOUS$$FieldData@@0x10025602$$"
            "pkgName@@$$camID@@1$$operationMode@@0x8001$$detailData@@"
            "otherData = luma 100%s $$camID@@9";
    EXPECT_EQ(readFile(node()), full);
    EXPECT_THAT(takeLines(), ElementsAre(error("get PackName Error! ret:0 curPkgName:"),
                                         info("final payload = " + full)));

    sPropertiesFail = true;
    mTracker->sendHalExcepFbData(0x10025010, std::string(5000, 'd').c_str());
    sPropertiesFail = false;
    EXPECT_EQ(takeLines().front(), error("get PackName Error! ret:-1 curPkgName:rest"));
    EXPECT_THAT(readFile(node()), HasSubstr("$$pkgName@@$$camID@@1$$"));
    EXPECT_EQ(readFile(node()).size(), 1023U);
    EXPECT_EQ(readFile(node()).substr(1000), std::string(23, 'd'));
    EXPECT_EQ(sWrites, 3);
}

TEST_F(ExceptionFeedbackTest, HostileTextsAndNumbersStayInOnePayload) {
    mTracker->setTrackInfo(INT_MIN, UINT_MAX);
    mProperties.set("jovix.camera.packname", "%n%s$$camID@@7\n\xFF");
    const std::string head =
            "EXP_HARDWARE:NULL$$EventField@@OIS_SET_FAIL$$FieldData@@0x10025012$$"
            "pkgName@@%n%s$$camID@@7\n\xFF$$camID@@-2147483648$$operationMode@@0xffffffff$$"
            "detailData@@otherData = ";
    countWrites();
    int64_t payloads = 0;
    for (const std::string& detail :
         {std::string("\n\nEXP_HARDWARE:NULL$$EventField@@OTHER"), std::string("%s%n%1000000d%p"),
          std::string("\x01\x7F\x80\xFF"), std::string(2000, '$'), std::string()}) {
        Interpose::setWallClock(kNow + 30 * ++payloads);
        mTracker->sendHalExcepFbData(0x10025012, detail.c_str());
        EXPECT_EQ(readFile(node()), (head + detail).substr(0, 1023));
        EXPECT_EQ(sWrites, payloads);
    }
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
        std::filesystem::remove(node());
        mTracker->clearData();  // does not forget feedback
        mTracker->sendHalExcepFbData(0x10025012, nullptr);
        ASSERT_EQ(std::filesystem::exists(node()), row.sent) << row.atSec;
        EXPECT_THAT(takeLines(),
                    ElementsAre(row.sent ? info("final payload = " + readFile(node()))
                                         : error("skip exp feedback, record time = " +
                                                 std::to_string(row.lastSec) +
                                                 ", now time = " + std::to_string(row.atSec))));
    }
    // Others are none of its business, and those without a row are always held back.
    mTracker->sendHalExcepFbData(0x10025013, nullptr);
    EXPECT_EQ(lastLine(), info("final payload = " + readFile(node())));
    mTracker->sendHalExcepFbData(0x10025001, nullptr);
    EXPECT_EQ(lastLine(),
              error("skip exp feedback, record time = 0, now time = " + std::to_string(kNow + 60)));
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

TEST_F(ExceptionFeedbackTest, ANodeThatIsBusyHoldsNobodyElseBack) {
    // What another thread would do while the first payload is being written.
    Interpose::onWrite([](int) {
        Interpose::onWrite(nullptr);
        EventTrackJLogger::getInstance()->sendHalExcepFbData(0x10025500, "the same");
        EventTrackJLogger::getInstance()->sendHalExcepFbData(0x10025501, "another");
    });
    mTracker->sendHalExcepFbData(0x10025500, "first");
    EXPECT_THAT(mLog.texts(),
                ElementsAre(HasSubstr("= first"), StartsWith("skip"), HasSubstr("= another")));
}

TEST_F(ExceptionFeedbackTest, ANodeThatCannotBeOpenedCountsTowardsTheLimit) {
    Interpose::redirect("/proc/cam_kern_fb", mFolder.path("absent/node"));
    mTracker->sendHalExcepFbData(0x10025300, nullptr);
    EXPECT_EQ(mLog.texts("fd err"), (std::vector<std::string>{"fd err = 2 "}));
    mTracker->sensorProbeFailedFb();
    EXPECT_EQ(lastLine(), error("fd err = 2 "));

    Interpose::redirect("/proc/cam_kern_fb", mFolder.path());
    mTracker->sendHalExcepFbData(0x10025301, nullptr);
    EXPECT_EQ(lastLine(), error("fd err = 21 "));

    Interpose::redirect("/proc/cam_kern_fb", node());
    mTracker->sendHalExcepFbData(0x10025300, nullptr);
    EXPECT_EQ(mLog.count("skip"), 1U);
}

TEST_F(ExceptionFeedbackTest, APayloadThatTheNodeRefusesIsWrittenOnce) {
    countWrites();
    Faults::arm({{.call = Faults::Call::WRITE, .error = Faults::kShortWrite, .times = 1}});
    mTracker->sendHalExcepFbData(0x10025200, nullptr);
    const std::string payload =
            mLog.texts("final")[0].substr(std::string("final payload = ").size());
    const std::string half = payload.substr(0, payload.size() / 2);
    EXPECT_EQ(readFile(node()), half);
    EXPECT_EQ(lastLine(), error("/proc/cam_kern_fb took " + std::to_string(half.size()) + " of " +
                                std::to_string(payload.size()) + " bytes, errno 0"));

    Interpose::redirect("/proc/cam_kern_fb", "/dev/full");
    mTracker->sendHalExcepFbData(0x10025202, nullptr);
    EXPECT_THAT(lastLine().text, AllOf(StartsWith("/proc/cam_kern_fb took -1 of "),
                                       ::testing::EndsWith(" bytes, errno 28")));
    EXPECT_EQ(sWrites, 2);
}

TEST_F(ExceptionFeedbackTest, AFailedProbeIsAnsweredWithTheSensorsName) {
    const std::string head =
            "EXP_HARDWARE:NULL$$EventField@@EXCEP_PROBE$$FieldData@@0x10025005$$detailData@@"
            "sensorName = ";
    struct Row {
        std::string content;
        std::string name;
    };
    for (const Row& row : {Row{"ov64b %d\n", "ov64b %d\n"}, Row{"x", "x"},
                           Row{std::string(600, 's'), std::string(512, 's')}}) {
        writeFile(node(), row.content);
        countWrites();
        mTracker->sensorProbeFailedFb();
        EXPECT_EQ(sWrites, 1);
        EXPECT_EQ(readFile(node()), row.name + head + row.name);
        EXPECT_THAT(takeLines(), ElementsAre(info("revCount = " + std::to_string(row.name.size())),
                                             info("payload = " + head + row.name)));
    }
}

TEST_F(ExceptionFeedbackTest, ANodeWithoutASensorsNameIsNotAnswered) {
    countWrites();
    writeFile(node(), "");
    mTracker->sensorProbeFailedFb();
    EXPECT_THAT(takeLines(), ElementsAre(info("revCount = 0")));
    writeFile(node(), std::string("\0name", 5));
    mTracker->sensorProbeFailedFb();
    EXPECT_THAT(takeLines(), ElementsAre(info("revCount = 5")));
    EXPECT_EQ(readFile(node()).size(), 5U);

    Interpose::redirect("/proc/cam_kern_fb", "/proc/self/mem");  // nothing is at address 0
    mTracker->sensorProbeFailedFb();
    EXPECT_THAT(takeLines(),
                ElementsAre(error("cannot read /proc/cam_kern_fb, errno 5"), info("revCount = 0")));
}

}  // namespace
}  // namespace JCam::Utils::JLog::Track
