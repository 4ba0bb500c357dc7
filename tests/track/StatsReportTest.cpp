#include <aidl/android/frameworks/stats/IStats.h>

#include <pthread.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>

#include <host/ServiceRegistry.h>

#include "track/TrackTest.h"

namespace JCam::Utils::JLog::Track {
namespace {

using aidl::android::frameworks::stats::IStats;
using aidl::android::frameworks::stats::VendorAtom;
using aidl::android::frameworks::stats::VendorAtomValue;
using Platform::ServiceRegistry;
using ::testing::ElementsAre;

constexpr char kInstance[] = "android.frameworks.stats.IStats/default";

/// A stats service that keeps its atoms and answers as it is told.
class RecordingStats : public IStats {
  public:
    ndk::ScopedAStatus reportVendorAtom(const VendorAtom& atom) override {
        atoms.push_back(atom);
        if (beforeAnswer) {
            beforeAnswer();
        }
        return hasStatus ? ndk::ScopedAStatus::fromStatus(status) : ndk::ScopedAStatus();
    }

    std::vector<VendorAtom> atoms;
    std::function<void()> beforeAnswer;
    binder_status_t status = STATUS_OK;
    bool hasStatus = true;
};

class StatsReportTest : public TrackTest {
  protected:
    ~StatsReportTest() override {
        ServiceRegistry::setRunning(kInstance, nullptr);
        ServiceRegistry::setDeclared(kInstance, false);
    }

    /// Reports a dark screen; the lines after that of the payload.
    std::vector<Support::LogLine> report() {
        mLog.clear();
        mTracker->writeDarkScreenErrCode(0, nullptr);
        std::vector<Support::LogLine> lines = takeLines();
        EXPECT_TRUE(lines.front().text.starts_with("payload = "));
        lines.erase(lines.begin());
        return lines;
    }

    std::shared_ptr<RecordingStats> mStats = ndk::SharedRefBase::make<RecordingStats>();
};

TEST_F(StatsReportTest, TheServiceIsLookedForUntilItIsDeclared) {
    // In a process of its own, from its start: none ever forgets that the service was declared.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
            {
                const auto noService = info("Unable to get Stats service!");
                ServiceRegistry::setRunning(kInstance, mStats);
                for (int i = 0; i < 2; i++) {
                    EXPECT_THAT(report(),
                                ElementsAre(error("Stats service is not registered."), noService));
                }
                ServiceRegistry::setDeclared(kInstance, true);
                EXPECT_EQ(getStatsService(), mStats);
                ServiceRegistry::setDeclared(kInstance, false);
                EXPECT_THAT(report(), ElementsAre());
                ServiceRegistry::setRunning(kInstance, nullptr);
                EXPECT_THAT(report(), ElementsAre(noService));
                EXPECT_EQ(mStats->atoms.size(), 1U);
                EXPECT_EQ(mStats.use_count(), 1);
                std::_Exit(HasFailure() ? 1 : 0);
            },
            ::testing::ExitedWithCode(0), "");
}

TEST_F(StatsReportTest, TheAtomTellsModuleCameraPackageAndMode) {
    ServiceRegistry::setDeclared(kInstance, true);
    ServiceRegistry::setRunning(kInstance, mStats);
    mTracker->setTrackInfo(1, 0x10);
    mLog.clear();
    mTracker->writeDarkScreenErrCode(0, "luma 3");
    EXPECT_THAT(takeLines(),
                ElementsAre(info("payload = exceptionId:101147,pkgName:com.app,captureMode:0x10,"
                                 "cameraID:1,detailData:luma 3")));
    mTracker->setTrackInfo(-7, 0xFFFFFFFE);
    mProperties.set("jovix.camera.packname", "");
    mLog.clear();
    mTracker->writeDarkScreenErrCode(3, nullptr);
    EXPECT_THAT(takeLines(),
                ElementsAre(error("get PackName Error! ret:0 curPkgName:"),
                            info("payload = exceptionId:101150,pkgName:,captureMode:0xfffffffe,"
                                 "cameraID:-7,detailData:NULL")));

    const auto number = [](int32_t value) {
        return VendorAtomValue::make<VendorAtomValue::intValue>(value);
    };
    const auto text = [](const char* value) {
        return VendorAtomValue::make<VendorAtomValue::stringValue>(value);
    };
    ASSERT_EQ(mStats->atoms.size(), 2U);
    EXPECT_FALSE(mStats->atoms[0].reverseDomainName.empty());
    EXPECT_EQ(mStats->atoms[0].atomId, 101147);
    EXPECT_EQ(mStats->atoms[0].values,
              (std::vector<VendorAtomValue>{number(-1), text("-1"), text("-1"), number(1),
                                            text("com.app"), number(16), text("-1")}));
    EXPECT_EQ(mStats->atoms[1].atomId, 101150);
    EXPECT_EQ(mStats->atoms[1].values,
              (std::vector<VendorAtomValue>{number(-1), text("-1"), text("-1"), number(-7),
                                            text(""), number(-2), text("-1")}));
}

TEST_F(StatsReportTest, OtherModulesAreRefused) {
    ServiceRegistry::setDeclared(kInstance, true);
    ServiceRegistry::setRunning(kInstance, mStats);
    mProperties.set("jovix.camera.packname", "");
    for (const int moduleId : {4, -1, 100, -2147483647}) {
        mTracker->writeDarkScreenErrCode(moduleId, "x");
        EXPECT_THAT(takeLines(),
                    ElementsAre(error("get PackName Error! ret:0 curPkgName:"),
                                error("input module_id:" + std::to_string(moduleId) + " invaild")));
    }
    EXPECT_TRUE(mStats->atoms.empty());
}

TEST_F(StatsReportTest, AFailedReportIsToldOnce) {
    const auto notSent = info("Unable to send dark screen info to Stats service");
    ServiceRegistry::setDeclared(kInstance, true);
    ServiceRegistry::setRunning(kInstance, mStats);
    mStats->status = STATUS_DEAD_OBJECT;
    EXPECT_THAT(report(), ElementsAre(notSent));
    mStats->hasStatus = false;
    EXPECT_THAT(report(), ElementsAre(notSent));
    mStats->beforeAnswer = [] { throw std::runtime_error("no"); };
    EXPECT_THAT(report(), ElementsAre(notSent));
    mStats->beforeAnswer = [] { throw 42; };
    EXPECT_THAT(report(), ElementsAre(notSent));
    EXPECT_EQ(mStats->atoms.size(), 4U);

    class OtherService : public ndk::ICInterface {};
    ServiceRegistry::setRunning(kInstance, ndk::SharedRefBase::make<OtherService>());
    EXPECT_THAT(report(), ElementsAre(info("Unable to get Stats service!")));
}

#if defined(__GLIBCXX__)  // libc++ cannot rethrow what glibc unwinds by; Android cancels no thread
TEST_F(StatsReportTest, AThreadCanBeCancelledInTheService) {
    ServiceRegistry::setDeclared(kInstance, true);
    ServiceRegistry::setRunning(kInstance, mStats);
    mStats->beforeAnswer = [] {
        pthread_cancel(pthread_self());
        pthread_testcancel();
    };
    const auto entry = [](void* tracker) -> void* {
        static_cast<EventTrackJLogger*>(tracker)->writeDarkScreenErrCode(0, nullptr);
        return nullptr;
    };
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, entry, mTracker), 0);
    void* result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
}
#endif

}  // namespace
}  // namespace JCam::Utils::JLog::Track
