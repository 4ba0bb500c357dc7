#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <iterator>

#include "support/Await.h"
#include "track/TrackTest.h"

namespace JCam::Utils::JLog::Track {
namespace {

using Support::writeFile;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kKernelPath[] = "/sys/class/jovix_cam/cam_event/hardware_exception";
constexpr char kHalFolder[] = "data/vendor/camera_dump";
constexpr char kHalPath[] = "data/vendor/camera_dump/mtkExceptionErrCode.txt";

class ExceptionFilesTest : public TrackTest {
  protected:
    ExceptionFilesTest() {
        Interpose::redirect(kKernelPath, kernelFile());
        std::filesystem::create_directories(kHalFolder);
    }

    [[nodiscard]] std::string kernelFile() const { return mFolder.path("hardware_exception"); }
};

TEST_F(ExceptionFilesTest, TheKernelsLineIsTakenApart) {
    struct Row {
        std::string content;
        int code;
        std::vector<std::string> texts;
    };
    const std::string type = "kernel camera event type 0x";
    const std::string camera = "kernel event camera id ";
    const std::string time = "kernel camera exception time 0x";
    const Row rows[] = {
            {"1073807361_0_1234", 0x10025001, {type + "40010001", camera + "0", time + "4d2"}},
            {"1073807362_1", 0x10025003, {type + "40010002", camera + "1"}},
            {"__1073807361___3__9_8\n", 0x10025001, {type + "40010001", camera + "3", time + "9"}},
            {"1073807361\n", 0x10025001, {type + "40010001"}},
            {"0_1_2", 0, {type + "0"}},
            {"12_0_1", 0, {type + "c", camera + "0", time + "1"}},
            {"-1_x_-1", 0, {type + "ffffffff", camera + "0", time + "ffffffff"}},
            {"no digits\n1073807361_0_1\n", 0, {type + "0"}},
            {"99999999999999999999_0", 0, {type + "ffffffff", camera + "0"}},
            {"___", 0, {}},
            // 31 characters are read.
            {"1073807361_00000000000000000010_77", 0x10025001, {type + "40010001", camera + "10"}},
    };
    for (const Row& row : rows) {
        writeFile(kernelFile(), row.content);
        EXPECT_EQ(mTracker->readKernelExceptionErrCode(), row.code) << row.content;
        const std::string line = row.content.substr(0, row.content.find('\n') + 1);
        std::vector<Support::LogLine> expected = {
                info("kernel camera event " + (line.empty() ? row.content : line).substr(0, 31))};
        for (const std::string& text : row.texts) {
            expected.push_back(info(text));
        }
        EXPECT_EQ(takeLines(), expected) << row.content;
        EXPECT_EQ(Support::readFile(kernelFile()), row.content);
    }
    writeFile(kernelFile(), "");
    EXPECT_EQ(mTracker->readKernelExceptionErrCode(), 0);
    EXPECT_THAT(takeLines(), IsEmpty());
}

TEST_F(ExceptionFilesTest, TheHalsFirstNumberIsTakenAndItsFileDeleted) {
    struct Row {
        std::string content;
        std::vector<std::string> slots;
        int code;
    };
    std::string manyLines = "7\n";
    std::vector<std::string> manySlots = {"7\n"};
    for (int i = 1; i < 40; i++) {
        manyLines += "8\n";
        manySlots.emplace_back("8\n");
    }
    manySlots.resize(32);
    const Row rows[] = {
            {"268587013\n268587014\n", {"268587013\n", "268587014\n"}, 0x10025005},
            {"268587013 sensor 0 was not found\n9",
             {"268587013 sensor 0 was ", "not found\n", "9"},
             0x10025005},
            {"-5 ", {"-5 "}, -5},
            {"junk\n268587013\n", {"junk\n", "268587013\n"}, 0},
            {"", {}, 0},
            {manyLines, manySlots, 7},
    };
    for (const Row& row : rows) {
        writeFile(kHalPath, row.content);
        EXPECT_EQ(mTracker->readHalExceptionErrCode(), row.code) << row.content;
        std::vector<Support::LogLine> expected;
        for (const std::string& slot : row.slots) {
            expected.push_back(info("readExceptionErrCode = " + slot));
        }
        char code[16];
        snprintf(code, sizeof(code), "0x%x", static_cast<unsigned int>(row.code));
        expected.push_back(info("readExceptionErrCode first errcode = " + std::string(code) + ", " +
                                (row.slots.empty() ? "" : row.slots[0])));
        EXPECT_EQ(takeLines(), expected);
        EXPECT_FALSE(std::filesystem::exists(kHalPath));
    }
}

TEST_F(ExceptionFilesTest, AMissingFileAndAFolderInItsPlaceHaveNoCode) {
    EXPECT_EQ(mTracker->readKernelExceptionErrCode(), 0);
    EXPECT_EQ(mTracker->readHalExceptionErrCode(), 0);
    EXPECT_THAT(
            takeLines(),
            ElementsAre(error(std::string("readExceptionErrCode ") + kKernelPath + " not exsist"),
                        error(std::string("readExceptionErrCode ") + kHalPath + " not exsist")));
    std::filesystem::create_directories(kernelFile());
    std::filesystem::create_directories(std::string(kHalPath) + "/full");
    EXPECT_EQ(mTracker->readKernelExceptionErrCode(), 0);
    EXPECT_EQ(mTracker->readHalExceptionErrCode(), 0);
    EXPECT_THAT(takeLines(),
                ElementsAre(info("readExceptionErrCode first errcode = 0x0, "),
                            error(std::string("cannot remove ") + kHalPath + ", errno 39")));
}

TEST_F(ExceptionFilesTest, AFileThatCannotBeLockedIsNotRead) {
    writeFile(kernelFile(), "1073807361_0_1");
    writeFile(kHalPath, "5");
    Faults::arm({{.call = Faults::Call::LOCK, .error = ENOLCK, .times = 2}});
    EXPECT_EQ(mTracker->readKernelExceptionErrCode(), 0);
    EXPECT_EQ(mTracker->readHalExceptionErrCode(), 0);
    EXPECT_THAT(takeLines(), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(kHalPath));

    Faults::arm({{.call = Faults::Call::LOCK, .error = EINTR, .times = 3}});
    EXPECT_EQ(mTracker->readKernelExceptionErrCode(), 0x10025001);
}

TEST_F(ExceptionFilesTest, OneThreadReadsWhileTheFileIsLockedAndOthersGetNothing) {
    writeFile(kHalPath, "");
    FILE* const writer = fopen(kHalPath, "r+");
    ASSERT_EQ(flock(fileno(writer), LOCK_EX), 0);
    Faults::arm({});
    std::thread reader([&] { EXPECT_EQ(mTracker->readExceptionErrCode(), 0x10025005); });
    EXPECT_TRUE(Support::await([] { return Faults::calls(Faults::Call::LOCK) == 1; }));
    mLog.clear();
    EXPECT_EQ(mTracker->readExceptionErrCode(), 0);
    EXPECT_THAT(takeLines(), IsEmpty());
    mTracker->clearData();  // holds for the next call, whatever the reader does then
    fputs("268587013", writer);
    fclose(writer);
    reader.join();
    mLog.clear();
    EXPECT_EQ(mTracker->readExceptionErrCode(), 0);
    EXPECT_EQ(lastLine(), info("hal excption error code 0x0"));
}

TEST_F(ExceptionFilesTest, TheKernelsCodeGoesFirstAndBothFilesAreReadOnce) {
    writeFile(kernelFile(), "1073807362_1_2");
    writeFile(kHalPath, "268587013");
    EXPECT_EQ(mTracker->readExceptionErrCode(), 0x10025003);
    EXPECT_EQ(mLog.texts().front(), "kernel camera event 1073807362_1_2");
    EXPECT_EQ(lastLine(), info("kernel excption error code 0x10025003"));
    EXPECT_FALSE(std::filesystem::exists(kHalPath));

    writeFile(kHalPath, "268587013");
    mLog.clear();
    EXPECT_EQ(mTracker->readExceptionErrCode(), 0);
    EXPECT_THAT(takeLines(), IsEmpty());
    EXPECT_TRUE(std::filesystem::exists(kHalPath));

    mTracker->clearData();
    std::filesystem::remove(kernelFile());
    EXPECT_EQ(mTracker->readExceptionErrCode(), 0x10025005);
    EXPECT_EQ(lastLine(), info("hal excption error code 0x10025005"));

    mTracker->clearData();
    EXPECT_EQ(mTracker->readExceptionErrCode(), 0);
    EXPECT_EQ(lastLine(), info("hal excption error code 0x0"));
    writeFile(kHalPath, "268587013");
    EXPECT_EQ(mTracker->readExceptionErrCode(), 0);  // also after a read without a code
}

TEST_F(ExceptionFilesTest, NoFailureLeaksADescriptor) {
    const auto openFiles = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    mAnswer = -1;
    writeFile(kernelFile(), "1073807361_0_1");
    const auto before = openFiles();
    for (int round = 1; round <= 1000; round++) {
        Interpose::redirect("/proc/cam_kern_fb", "/dev/full");
        Interpose::setWallClock(kNow + int64_t{30} * round);
        mTracker->writeExceptionErrCode(0, 5, nullptr);
        Interpose::redirect("/proc/cam_kern_fb", "/proc/self/mem");
        mTracker->sensorProbeFailedFb();
        Interpose::redirect("/proc/cam_kern_fb", "/");
        mTracker->writeExceptionErrCode(0, 16, nullptr);
        mTracker->sensorProbeFailedFb();
        Interpose::redirect(kKernelPath, round % 2 == 0 ? kernelFile() : mFolder.path());
        writeFile(kHalPath, "1");
        Faults::arm({{.call = Faults::Call::LOCK, .error = ENOLCK, .times = 2}});
        mTracker->clearData();
        mTracker->readExceptionErrCode();
        mTracker->readExceptionErrCode();
        mTracker->writeDarkScreenErrCode(0, nullptr);
    }
    EXPECT_EQ(openFiles(), before);
}

}  // namespace
}  // namespace JCam::Utils::JLog::Track
