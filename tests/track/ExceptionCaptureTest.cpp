#include <algorithm>
#include <atomic>
#include <climits>

#include "track/TrackTest.h"

namespace JCam::Utils::JLog::Track {
namespace {

using ExceptionCaptureTest = TrackTest;
using ::testing::ElementsAre;

TEST_F(ExceptionCaptureTest, ClassAndNumberMustBothBeInRange) {
    constexpr int kBad[][2] = {{8, 40}, {8, 0},        {0, 33},      {-1, 5},
                               {5, -1}, {INT_MAX, 32}, {7, INT_MIN}, {0x100, 0x100}};
    for (const auto& [type, subCode] : kBad) {
        mTracker->writeExceptionErrCode(type, subCode, nullptr);
        mTracker->caughtPersistentErrCode(type, subCode);
        EXPECT_THAT(takeLines(),
                    ElementsAre(error("input params invaild"), error("input params invaild")));
    }
    mTracker->writeExceptionErrCode(7, 32, nullptr);
    mTracker->caughtPersistentErrCode(7, 32);
    ASSERT_EQ(mRecords.size(), 2U);
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
    expected.push_back(0);
    EXPECT_FALSE(std::filesystem::exists(node()));
    EXPECT_EQ(mRecords.size(), expected.size() + 1);
    for (const int code : expected) {
        mTracker->clearData();
        ASSERT_EQ(mTracker->readPersistentErrCode(), code);
    }
}

TEST_F(ExceptionCaptureTest, PersistentCodesComeNoFasterThanOneIn4Seconds) {
    EXPECT_EQ(mTracker->readPersistentErrCode(), 0);  // nothing to hand out: delays no code
    for (int subCode = 1; subCode <= 5; subCode++) {
        mTracker->caughtPersistentErrCode(0, subCode);
    }
    const auto readAt = [this](int64_t sec) {
        Interpose::setWallClock(kNow + sec);
        return mTracker->readPersistentErrCode();
    };
    EXPECT_EQ(readAt(0), 0x10025001);
    EXPECT_EQ(readAt(3), 0);
    EXPECT_EQ(readAt(4), 0x10025002);
    EXPECT_EQ(readAt(7), 0);
    // A clock that was set back holds nothing back.
    EXPECT_EQ(readAt(3), 0x10025003);
    EXPECT_EQ(readAt(6), 0);
    EXPECT_EQ(readAt(-1000), 0x10025004);
}

TEST_F(ExceptionCaptureTest, EachPersistentCodeOfManyThreadsIsHandedOutOnce) {
    constexpr int kSubCodes = 33;
    std::atomic<int> handedOut[2][kSubCodes] = {};
    const auto take = [&] {
        mTracker->clearData();
        const int code = mTracker->readPersistentErrCode();
        if (code != 0) {
            ++handedOut[code >> 8 & 1][code & 0xFF];
        }
        return code != 0;
    };
    runThreads(4, [&](int i) {
        for (int n = 0; n < (i < 2 ? kSubCodes : 1000); n++) {
            i < 2 ? mTracker->caughtPersistentErrCode(i, n) : static_cast<void>(take());
        }
    });
    while (take()) {
    }
    for (const auto& counts : handedOut) {
        for (const auto& count : counts) {
            EXPECT_EQ(count, 1);
        }
    }
}

}  // namespace
}  // namespace JCam::Utils::JLog::Track
