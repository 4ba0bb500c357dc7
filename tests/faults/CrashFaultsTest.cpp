// Every call that the crash handler makes of libc fails, one at a time and at random, in children
// that die. Each must die of its signal, and leave whole lines of every record that it had logged.

#include <unistd.h>

#include <csignal>
#include <functional>
#include <string>
#include <unordered_map>

#include <gtest/gtest.h>

#include "faults/FaultTest.h"
#include "jlog/file/FileAloneJLogger.h"
#include "support/Properties.h"

namespace JCam::Utils::JLog::File {
namespace {

namespace Faults = Support::Faults;
using Support::Ending;

constexpr int kRecords = 600;  // more than two buffers

std::string textOf(int number) {
    return "n" + std::to_string(number) + std::string(static_cast<size_t>(900 + number % 100), '.');
}

class CrashFaultsTest : public Support::FaultTest {
  protected:
    /// A process that crashes with records in memory. The fault is armed just before. What was
    /// given to the kernel, by the flush thread before or by the dump, is every record, unless the
    /// dump had no file. Returns whether it had.
    bool crash(const std::function<void()>& armFault) {
        const Support::TempFolder folder(Support::TempFolder::inMemory());
        const Support::TempFolder fallback(Support::TempFolder::inMemory());
        Support::writeFile(folder.path("old"), "");
        Support::Interpose::redirect("/data/vendor", fallback.path());
        Support::Interpose::setFreeBytes(1);
        const Support::Properties properties{{"vendor.debug.camera.ulog.folder", folder.path()},
                                             {"vendor.debug.camera.jlog.flushms", "100000"}};
        mTape->clear();
        Faults::record(&*mTape);
        EXPECT_EQ(Support::runChild([&] {
                      FileAloneJLogger logger;
                      logger.onInit();
                      logger.onFlush(60);  // the thread is in its pause
                      for (int i = 0; i < kRecords; ++i) {
                          const std::string text = textOf(i);
                          logger.onLogDetails(1, "Tag", LEVEL_INFO, text.c_str(), text.size());
                      }
                      armFault();
                      raise(SIGSEGV);
                  }),
                  (Ending{Ending::KILLED, SIGSEGV}));
        Faults::disarm();
        Faults::record(nullptr);

        std::unordered_map<std::string, int> lines = linesOnTape();
        const auto dumps = static_cast<int>(std::erase_if(lines, [](const auto& line) {
            return line.first.starts_with("SIGSEGV : addr = ") && line.second == 1;
        }));
        for (int i = 0; i < kRecords; ++i) {
            const int count = lines[" I Tag     : " + textOf(i)];
            EXPECT_GE(count, dumps) << "record " << i;
            EXPECT_LE(count, 2) << "record " << i;
        }
        EXPECT_EQ(lines.size(), static_cast<size_t>(kRecords)) << "something never logged";
        return dumps > 0;
    }
};

TEST_F(CrashFaultsTest, OneFaultCostsNothing) {
    EXPECT_TRUE(crash([] { Faults::arm({}, gettid()); }));
    tryEachFault([this](const Faults::Rule& rule) {
        EXPECT_TRUE(crash([&] { Faults::arm({rule}, gettid()); }));
    });
}

TEST_F(CrashFaultsTest, FaultsAtRandomKeepNoProcessFromDying) {
    int dumps = 0;
    tryAtRandom(200, {2, 4, 10}, [&](uint64_t seed, uint32_t oneIn) {
        dumps += crash([&] { Faults::armAtRandom(seed, oneIn); }) ? 1 : 0;
    });
    EXPECT_GT(dumps, 0);
}

}  // namespace
}  // namespace JCam::Utils::JLog::File
