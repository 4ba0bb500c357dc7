// Every call that a logger with a black box makes of libc fails, one at a time and at random, while
// it recovers the box of a dead process: whatever fails, its records are in one file in the end.

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "faults/FaultTest.h"
#include "jlog/file/BoxLayout.h"
#include "support/Await.h"
#include "support/OpenLogger.h"
#include "support/Properties.h"

namespace JCam::Utils::JLog::File {
namespace {

namespace fs = std::filesystem;
using namespace Support;

constexpr char kBox[] = "cam_jlog_4321_01.box";
constexpr int kRecords = 700;  // in two blocks
const std::string kFiller(400, '.');

class BoxFaultsTest : public FaultTest {
  protected:
    BoxFaultsTest() {
        for (const int sig : {SIGABRT, SIGSEGV, SIGBUS}) {
            signal(sig, SIG_DFL);  // a sanitizer's otherwise
        }
        const TempFolder folder;
        const TempFolder boxes(TempFolder::inMemory());
        const Properties properties = propertiesOf(folder, boxes);
        runChild([] {
            auto* logger = new BufferingLogger;
            for (int i = 0; i < kRecords; ++i) {
                logger->log("record " + std::to_string(i) + kFiller);
            }
            _exit(0);
        });
        mBox = readFile(boxes.path(boxes.names().front()));
        mBox.resize(kBoxHeadBytes + 2 * kBufferBytes);  // which is less to copy each time
    }

    static Properties propertiesOf(const TempFolder& folder, const TempFolder& boxes) {
        return {{"vendor.debug.camera.ulog.folder", folder.path()},
                {"vendor.debug.camera.jlog.flushms", "100"},
                {"vendor.debug.camera.jlog.blackbox", boxes.path()}};
    }

    /// One start, which recovers what it can.
    void start(const TempFolder& boxes) {
        const auto told = [this] {
            return mLog.count("Black box left alone") + mLog.count("Unable to start the flush");
        };
        const size_t before = told();
        RunningLogger logger;
        logger.onInit();
        logger.log("of the logger itself");
        EXPECT_TRUE(await([&] { return !fs::exists(boxes.path(kBox)) || told() > before; }));
        logger.onUninit();
    }

    /// A start in which what is armed strikes, and one without a fault.
    void live() {
        const TempFolder folder(TempFolder::inMemory());
        const TempFolder boxes(TempFolder::inMemory());
        const TempFolder fallback(TempFolder::inMemory());
        Interpose::redirect("/data/vendor", fallback.path());
        const Properties properties = propertiesOf(folder, boxes);
        writeFile(boxes.path(kBox), mBox);
        const size_t descriptors = openDescriptors();
        mLog.clear();
        start(boxes);
        const uint32_t faults = Faults::struck();
        Faults::disarm();
        start(boxes);
        EXPECT_EQ(openDescriptors(), descriptors);
        EXPECT_FALSE(fs::exists(boxes.path(kBox)));

        // In which folders: another one has another file.
        std::map<std::string, int> found;
        for (const TempFolder* each : {&folder, &fallback}) {
            std::map<std::string, int> foundHere;
            for (const std::string& name : each->names()) {
                for (const std::string& line : splitLines(readFile(each->path(name)))) {
                    ++foundHere[line.substr(std::min(line.size(), line.find(" I ")))];
                }
            }
            for (int i = 0; i < kRecords; ++i) {
                EXPECT_LE(foundHere[lineOf(i)], 1) << i;
                found[lineOf(i)] += foundHere[lineOf(i)];
            }
        }
        for (int i = 0; i < kRecords; ++i) {
            EXPECT_TRUE(found[lineOf(i)] == 1 || (found[lineOf(i)] == 2 && faults > 1)) << i;
        }
    }

    static std::string lineOf(int record) {
        return " I Test    : record " + std::to_string(record) + kFiller;
    }

    std::string mBox;
};

TEST_F(BoxFaultsTest, ABoxIsRecoveredWhateverFails) {
    Faults::arm({});
    live();
    tryEachFault([this](const Faults::Rule& rule) {
        Faults::arm({rule});
        live();
    });
    tryAtRandom(40, {3, 10, 50}, [this](uint64_t seed, uint32_t oneIn) {
        Faults::armAtRandom(seed, oneIn);
        live();
    });
}

}  // namespace
}  // namespace JCam::Utils::JLog::File
