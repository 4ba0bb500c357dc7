#include <aidl/android/frameworks/stats/IStats.h>

#include <climits>
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
        return answer();
    }

    std::vector<VendorAtom> atoms;
    std::function<ndk::ScopedAStatus()> answer = [] {
        return ndk::ScopedAStatus::fromStatus(STATUS_OK);
    };
};

class StatsReportTest : public TrackTest {
  protected:
    StatsReportTest() {
        ServiceRegistry::setDeclared(kInstance, true);
        ServiceRegistry::setRunning(kInstance, mStats);
    }
    ~StatsReportTest() override {
        ServiceRegistry::setRunning(kInstance, nullptr);
        ServiceRegistry::setDeclared(kInstance, false);
    }

    /// Reports a dark screen; the lines after that of the payload.
    std::vector<std::string> report() {
        mLog.clear();
        mTracker->writeDarkScreenErrCode(0, nullptr);
        const std::vector<std::string> texts = mLog.texts();
        return {texts.begin() + 1, texts.end()};
    }

    std::shared_ptr<RecordingStats> mStats = ndk::SharedRefBase::make<RecordingStats>();
};

TEST_F(StatsReportTest, TheServiceIsLookedForUntilItIsDeclared) {
    // In a process of its own, from its start: none ever forgets that the service was declared.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
            {
                const std::string noService = "Unable to get Stats service!";
                ServiceRegistry::setDeclared(kInstance, false);
                for (int i = 0; i < 2; i++) {
                    EXPECT_THAT(report(),
                                ElementsAre("Stats service is not registered.", noService));
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
    const auto values = [](int camera, const char* package, int mode) {
        const auto number = VendorAtomValue::make<VendorAtomValue::intValue, const int&>;
        const auto text = VendorAtomValue::make<VendorAtomValue::stringValue, const std::string&>;
        return std::vector<VendorAtomValue>{number(-1),    text("-1"),   text("-1"), number(camera),
                                            text(package), number(mode), text("-1")};
    };
    mTracker->setTrackInfo(1, 0x10);
    mTracker->writeDarkScreenErrCode(0, "luma 3");
    mTracker->setTrackInfo(-7, 0xFFFFFFFE);
    mProperties.set("jovix.camera.packname", "");
    mTracker->writeDarkScreenErrCode(3, nullptr);
    EXPECT_EQ(mLog.texts("payload"),
              (std::vector<std::string>{
                      "payload = exceptionId:101147,pkgName:com.app,captureMode:0x10,cameraID:1,"
                      "detailData:luma 3",
                      "payload = exceptionId:101150,pkgName:,captureMode:0xfffffffe,cameraID:-7,"
                      "detailData:NULL"}));
    ASSERT_EQ(mStats->atoms.size(), 2U);
    EXPECT_FALSE(mStats->atoms[0].reverseDomainName.empty());
    EXPECT_EQ(mStats->atoms[0].atomId, 101147);
    EXPECT_EQ(mStats->atoms[0].values, values(1, "com.app", 16));
    EXPECT_EQ(mStats->atoms[1].atomId, 101150);
    EXPECT_EQ(mStats->atoms[1].values, values(-7, "", -2));
    for (const int moduleId : {4, -1, INT_MIN}) {
        mTracker->writeDarkScreenErrCode(moduleId, "x");
        EXPECT_EQ(takeLines().back(),
                  error("input module_id:" + std::to_string(moduleId) + " invaild"));
    }
    EXPECT_EQ(mStats->atoms.size(), 2U);
}

TEST_F(StatsReportTest, AFailedReportIsToldOnce) {
    const auto notSent = ElementsAre("Unable to send dark screen info to Stats service");
    for (const auto& answer : std::vector<std::function<ndk::ScopedAStatus()>>{
                 [] { return ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT); },
                 [] { return ndk::ScopedAStatus(); },
                 []() -> ndk::ScopedAStatus { throw std::runtime_error("no"); },
                 []() -> ndk::ScopedAStatus { throw 42; },
         }) {
        mStats->answer = answer;
        EXPECT_THAT(report(), notSent);
    }
    EXPECT_EQ(mStats->atoms.size(), 4U);
    class OtherService : public ndk::ICInterface {};
    ServiceRegistry::setRunning(kInstance, ndk::SharedRefBase::make<OtherService>());
    EXPECT_THAT(report(), ElementsAre("Unable to get Stats service!"));
}

}  // namespace
}  // namespace JCam::Utils::JLog::Track
