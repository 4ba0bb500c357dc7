#include <algorithm>
#include <atomic>
#include <climits>

#include "track/TrackTest.h"

namespace JCam::Utils::JLog::Track {
namespace {

using ExceptionCaptureTest = TrackTest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(ExceptionCaptureTest, AnExceptionIsRaisedThenFedBack) {
    mTracker->writeExceptionErrCode(0, 5, "i2c nack");
    const std::string payload = Support::readFile(node());
    EXPECT_THAT(takeLines(), ElementsAre(info("jlc raise exception exceptionId = 0x10025005"),
                                         info("EXCEPTION_ERR_CODE_SAVE code = 0x10025005"),
                                         info("final payload = " + payload)));
    EXPECT_THAT(payload, ::testing::EndsWith("otherData = i2c nack"));

    // The collector is told again within the time in which the node is not.
    mTracker->writeExceptionErrCode(0, 5, nullptr);
    EXPECT_EQ(mLog.count("skip exp feedback"), 1U);
    ASSERT_EQ(mRecords.size(), 2U);
    EXPECT_EQ(mRecords[1].exceptionId, 0x10025005U);
}

TEST_F(ExceptionCaptureTest, ClassAndNumberMustBothBeInRange) {
    constexpr int kBad[][2] = {{8, 40}, {8, 0},        {0, 33},      {-1, 5},
                               {5, -1}, {INT_MAX, 32}, {7, INT_MIN}, {0x100, 0x100}};
    for (const auto& [type, subCode] : kBad) {
        mTracker->writeExceptionErrCode(type, subCode, nullptr);
        mTracker->caughtPersistentErrCode(type, subCode);
        EXPECT_THAT(takeLines(),
                    ElementsAre(error("input params invaild"), error("input params invaild")));
    }
    EXPECT_THAT(mRecords, IsEmpty());
    EXPECT_EQ(mTracker->readPersistentErrCode(), 0);

    mTracker->writeExceptionErrCode(7, 32, nullptr);
    mTracker->caughtPersistentErrCode(7, 32);
    mTracker->caughtPersistentErrCode(0, 0);
    ASSERT_EQ(mRecords.size(), 3U);
    EXPECT_EQ(mRecords[0].exceptionId, 0x10025720U);
    EXPECT_EQ(mTracker->readPersistentErrCode(), 0x10025720);
}

TEST_F(ExceptionCaptureTest, PersistentCodesComeOldestFirstAndOnce) {
    mTracker->caughtPersistentErrCode(2, 1);
    EXPECT_THAT(takeLines(),
                ElementsAre(info("Persistent EXCEPTION_ERR_CODE_SAVE code = 0x10025201"),
                            info("jlc raise exception exceptionId = 0x10025201")));
    // All that there are. One is kept already and becomes newer, another one comes again at the
    // end.
    std::vector<int> expected;
    for (int type = 0; type < 8; type++) {
        for (int subCode = 0; subCode < 33; subCode++) {
            mTracker->caughtPersistentErrCode(type, subCode);
            expected.push_back(0x10025000 + 0x100 * type + subCode);
        }
    }
    mTracker->caughtPersistentErrCode(0, 0);
    std::rotate(expected.begin(), expected.begin() + 1, expected.end());
    EXPECT_FALSE(std::filesystem::exists(node()));
    EXPECT_EQ(mRecords.size(), expected.size() + 2);
    for (const int code : expected) {
        mTracker->clearData();
        ASSERT_EQ(mTracker->readPersistentErrCode(), code);
    }
    mTracker->clearData();
    EXPECT_EQ(mTracker->readPersistentErrCode(), 0);
}

TEST_F(ExceptionCaptureTest, PersistentCodesComeNoFasterThanOneIn4Seconds) {
    EXPECT_EQ(mTracker->readPersistentErrCode(), 0);  // nothing to hand out: delays no code
    for (int subCode = 1; subCode <= 5; subCode++) {
        mTracker->caughtPersistentErrCode(0, subCode);
    }
    struct Row {
        int64_t atSec;
        int code;
    };
    for (const Row& row : {Row{0, 0x10025001}, Row{3, 0}, Row{4, 0x10025002}, Row{7, 0},
                           // A clock that was set back holds nothing back.
                           Row{3, 0x10025003}, Row{6, 0}, Row{-1000, 0x10025004}}) {
        Interpose::setWallClock(kNow + row.atSec);
        EXPECT_EQ(mTracker->readPersistentErrCode(), row.code) << row.atSec;
    }
}

TEST_F(ExceptionCaptureTest, EachPersistentCodeOfManyThreadsIsHandedOutOnce) {
    constexpr int kWriters = 2;
    constexpr int kSubCodes = 33;
    std::atomic<int> writers{kWriters};
    std::vector<int> codes[2];
    runThreads(kWriters + 2, [&](int i) {
        if (i < kWriters) {
            for (int subCode = 0; subCode < kSubCodes; subCode++) {
                mTracker->caughtPersistentErrCode(i, subCode);
            }
            --writers;
            return;
        }
        for (bool done = false; !done;) {
            done = writers == 0;
            mTracker->clearData();
            for (int code = mTracker->readPersistentErrCode(); code != 0;
                 code = mTracker->readPersistentErrCode()) {
                codes[i - kWriters].push_back(code);
                mTracker->clearData();
                done = false;
            }
        }
    });
    std::vector<int> expected;
    for (int type = 0; type < kWriters; type++) {
        for (int subCode = 0; subCode < kSubCodes; subCode++) {
            expected.push_back(0x10025000 + 0x100 * type + subCode);
        }
    }
    codes[0].insert(codes[0].end(), codes[1].begin(), codes[1].end());
    EXPECT_THAT(codes[0], ::testing::UnorderedElementsAreArray(expected));
}

TEST_F(ExceptionCaptureTest, TheCollectorMayCallTheTracker) {
    int handedOut = 0;
    mOnRaise = [&] {
        mTracker->clearData();
        handedOut = EventTrackJLogger::getInstance()->readPersistentErrCode();
        mTracker->sendHalExcepFbData(0x10025100, nullptr);
    };
    mTracker->caughtPersistentErrCode(1, 0);
    EXPECT_EQ(handedOut, 0x10025100);
}

}  // namespace
}  // namespace JCam::Utils::JLog::Track
