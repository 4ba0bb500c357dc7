// Every call that the crash handler makes of libc fails, one at a time and at random, in children
// that die. Each must die of its signal, and leave whole lines of every record that it had logged.

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include <android/log.h>

#include "faults/Campaign.h"
#include "jlog/file/FileAloneJLogger.h"
#include "support/ChildProcess.h"
#include "support/Faults.h"
#include "support/Interpose.h"
#include "support/Properties.h"
#include "support/TempFolder.h"

namespace JCam::Utils::JLog::File {
namespace {

namespace Interpose = Support::Interpose;
namespace Faults = Support::Faults;
using Support::Ending;

constexpr int kRecords = 600;  // more than two buffers
constexpr std::string_view kTag = " I Tag     : ";
constexpr Ending kDeath = {Ending::KILLED, SIGSEGV};

std::string textOf(int number) {
    return "n" + std::to_string(number) + std::string(static_cast<size_t>(900 + number % 100), '.');
}

class CrashFaultsTest : public ::testing::Test {
  protected:
    CrashFaultsTest() { __android_log_set_minimum_priority(ANDROID_LOG_FATAL); }
    ~CrashFaultsTest() override { __android_log_set_minimum_priority(ANDROID_LOG_DEFAULT); }

    /// A process that crashes with records in memory. The fault is armed just before.
    Ending crash(const std::function<void()>& armFault) {
        const Support::TempFolder folder(Support::TempFolder::inMemory());
        const Support::TempFolder fallback(Support::TempFolder::inMemory());
        Support::writeFile(folder.path("old"), "");
        Interpose::redirect("/data/vendor", fallback.path());
        Interpose::setFreeBytes(1);
        const Support::Properties properties{{"vendor.debug.camera.ulog.folder", folder.path()},
                                             {"vendor.debug.camera.jlog.flushms", "100000"}};
        mTape->clear();
        const Ending ending = Support::runChild([&] {
            FileAloneJLogger logger;
            logger.onInit();
            logger.onFlush(60);  // the thread is in its pause
            Faults::record(&*mTape);
            for (int i = 0; i < kRecords; ++i) {
                const std::string text = textOf(i);
                logger.onLogDetails(1, "Tag", LEVEL_INFO, text.c_str(), text.size());
            }
            armFault();
            raise(SIGSEGV);
        });
        Faults::disarm();
        Faults::record(nullptr);
        return ending;
    }

    /// What was given to the kernel, by the flush thread before or by the dump: whole lines, and
    /// every record, unless the dump had no file.
    void check() {
        EXPECT_EQ(mTape->torn, 0U);
        EXPECT_LE(mTape->used, Faults::Tape::kBytes);
        std::map<std::string, int> found;
        int signalLines = 0;
        for (const std::string& line : Support::splitLines(mTape->content())) {
            const size_t tag = line.find(kTag);
            if (tag != std::string::npos) {
                ++found[line.substr(tag + kTag.size())];
            } else {
                EXPECT_TRUE(line.starts_with("SIGSEGV : addr = ")) << line;
                ++signalLines;
            }
        }
        EXPECT_LE(signalLines, 1);
        for (int i = 0; i < kRecords; ++i) {
            const int count = found[textOf(i)];
            EXPECT_GE(count, signalLines) << "record " << i;
            EXPECT_LE(count, 2) << "record " << i;
        }
        EXPECT_EQ(found.size(), static_cast<size_t>(kRecords)) << "something never logged";
        mHasCrashFile = signalLines == 1;
    }

    Interpose::Scope mInterpose;
    Support::Shared<Faults::Tape> mTape;
    bool mHasCrashFile = false;
};

TEST_F(CrashFaultsTest, OneFaultCostsNothing) {
    EXPECT_EQ(crash([] { Faults::arm({}, gettid()); }), kDeath);
    check();
    Faults::tryEachFault([this](const Faults::Rule& rule) {
        EXPECT_EQ(crash([&] { Faults::arm({rule}, gettid()); }), kDeath);
        check();
        EXPECT_TRUE(mHasCrashFile);
    });
}

TEST_F(CrashFaultsTest, FaultsAtRandomKeepNoProcessFromDying) {
    constexpr int kCrashes = 200;
    uint32_t struck = 0;
    int crashFiles = 0;
    for (int i = 0; i < kCrashes; ++i) {
        SCOPED_TRACE("crash " + std::to_string(i));
        constexpr uint32_t kOneIn[] = {2, 4, 10};
        EXPECT_EQ(crash([&] { Faults::armAtRandom(static_cast<uint64_t>(i), kOneIn[i % 3]); }),
                  kDeath);
        check();
        ASSERT_FALSE(HasFailure());
        struck += Faults::struck();
        crashFiles += mHasCrashFile ? 1 : 0;
    }
    EXPECT_GT(crashFiles, 0);
    std::cout << kCrashes << " crashes, " << struck << " faults, " << crashFiles
              << " crash files\n";
}

}  // namespace
}  // namespace JCam::Utils::JLog::File
