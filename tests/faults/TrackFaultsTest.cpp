// Every call that the tracker makes of libc fails, one at a time and at random. Codes and payloads
// are delivered or given up, never changed and never doubled, and no descriptor stays open.

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <aidl/android/frameworks/stats/IStats.h>
#include <host/ServiceRegistry.h>

#include "faults/FaultTest.h"
#include "jlog/track/EventTrackJLogger.h"
#include "support/Properties.h"

namespace JCam::Utils::JLog::Track {
namespace {

namespace Faults = Support::Faults;
using aidl::android::frameworks::stats::IStats;
using aidl::android::frameworks::stats::VendorAtom;
using Faults::Call;
using Platform::ServiceRegistry;
using Support::Interpose::redirect;

constexpr char kInstance[] = "android.frameworks.stats.IStats/default";
constexpr char kHalFile[] = "data/vendor/camera_dump/mtkExceptionErrCode.txt";
constexpr char kKernelPath[] = "/sys/class/jovix_cam/cam_event/hardware_exception";
constexpr char kNodePath[] = "/proc/cam_kern_fb";

int sAtoms = 0;

/// A stats service that counts whole atoms.
class CountingStats : public IStats {
  public:
    ndk::ScopedAStatus reportVendorAtom(const VendorAtom& atom) override {
        sAtoms += atom.atomId == 101148 && atom.values.size() == 7 ? 1 : 100;
        return ndk::ScopedAStatus();
    }
};

/// What a session delivers: three codes, the number of atoms, and two payloads.
using Outcome = std::vector<std::string>;
const Outcome kAll = {
        std::to_string(0x10025001),
        std::to_string(0x10025005),
        std::to_string(0x10025201),
        "1",
        ("EXP_P1_NODE:NULL$$EventField@@SENSOR_SOF_TIMEOUT$$FieldData@@0x10025200$$"
         "pkgName@@com.app$$camID@@1$$operationMode@@0x10$$detailData@@otherData = slow"),
        ("EXP_HARDWARE:NULL$$EventField@@EXCEP_PROBE$$FieldData@@0x10025005$$"
         "detailData@@sensorName = imx"),
};

class TrackFaultsTest : public Support::FaultTest {
  protected:
    TrackFaultsTest() {
        ServiceRegistry::setDeclared(kInstance, true);
        ServiceRegistry::setRunning(kInstance, ndk::SharedRefBase::make<CountingStats>());
        std::filesystem::current_path(mFolder.path());
        std::filesystem::create_directories("data/vendor/camera_dump");
    }
    ~TrackFaultsTest() override {
        EventTrackJLogger::releaseInstance();
        std::filesystem::current_path("/");
        ServiceRegistry::setRunning(kInstance, nullptr);
        ServiceRegistry::setDeclared(kInstance, false);
    }

    /// A session with everything that the tracker does, in which an armed fault strikes.
    Outcome live() {
        EventTrackJLogger::releaseInstance();
        const std::string kernel = mFolder.path("kernel");
        const std::string node = mFolder.path("node");
        const std::string probe = mFolder.path("probe");
        Support::writeFile(kernel, "1073807361_0_99\n");
        Support::writeFile(kHalFile, "268587013\n7\n");
        Support::writeFile(node, "");
        Support::writeFile(probe, "imx");
        const size_t descriptors = Support::openDescriptors();
        sAtoms = 0;
        EventTrackJLogger* tracker = EventTrackJLogger::getInstance();
        tracker->setTrackInfo(1, 0x10);
        redirect(kKernelPath, kernel);
        const int kernelCode = tracker->readKernelExceptionErrCode();
        const int halCode = tracker->readHalExceptionErrCode();
        redirect(kNodePath, node);
        tracker->writeExceptionErrCode(2, 0, "slow");
        tracker->caughtPersistentErrCode(2, 1);
        const int persistentCode = tracker->readPersistentErrCode();
        redirect(kNodePath, probe);
        tracker->sensorProbeFailedFb();
        static_cast<void>(getStatsService());
        tracker->writeDarkScreenErrCode(1, "dark");
        Faults::disarm();
        EXPECT_EQ(Support::openDescriptors(), descriptors);
        // The second payload is behind the name that was read, and that a node would not keep.
        return {std::to_string(kernelCode),     std::to_string(halCode),
                std::to_string(persistentCode), std::to_string(sAtoms),
                Support::readFile(node),        Support::readFile(probe).substr(3)};
    }

    /// How many of its results a session has given up; the others must be as ever.
    static int givenUp(const Outcome& outcome) {
        int count = 0;
        for (size_t i = 0; i < kAll.size(); ++i) {
            const std::string& found = outcome[i];
            if (found != kAll[i]) {
                // A payload that was taken in part is not sent once more.
                EXPECT_TRUE(found == "0" || found.empty() ||
                            found == kAll[i].substr(0, kAll[i].size() / 2))
                        << found;
                ++count;
            }
        }
        return count;
    }

    Support::TempFolder mFolder{Support::TempFolder::inMemory()};
    Support::Properties mProperties{{"jovix.camera.packname", "com.app"}};
};

TEST_F(TrackFaultsTest, OneFaultCostsAtMostOneResult) {
    EXPECT_EQ(live(), kAll);
    Faults::arm({});
    EXPECT_EQ(live(), kAll);
    tryEachFault([this](const Faults::Rule& rule) {
        Faults::arm({rule});
        const int lost = givenUp(live());
        const bool isHalFileLeft = std::filesystem::exists(kHalFile);
        const bool isInterrupted = rule.error == EINTR && rule.call != Call::READ;
        EXPECT_LE(lost, isInterrupted ? 0 : 1);
        // It is consumed unless it cannot be opened or deleted.
        EXPECT_TRUE(!isHalFileLeft || rule.call == Call::FOPEN || rule.call == Call::REMOVE);
        EXPECT_EQ(live(), kAll) << "once it is over";
    });
}

TEST_F(TrackFaultsTest, FaultsAtRandomChangeAndDoubleNothing) {
    tryAtRandom(500, {3, 10}, [this](uint64_t seed, uint32_t oneIn) {
        Faults::armAtRandom(seed, oneIn);
        givenUp(live());
    });
    EXPECT_EQ(live(), kAll);
}

}  // namespace
}  // namespace JCam::Utils::JLog::Track
