#include <sys/file.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "support/Await.h"
#include "track/TrackTest.h"

namespace JCam::Utils::JLog::Track {
namespace {

using Faults::Call;
using Support::writeFile;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

constexpr char kKernelPath[] = "/sys/class/jovix_cam/cam_event/hardware_exception";
constexpr char kHalPath[] = "data/vendor/camera_dump/mtkExceptionErrCode.txt";

class ExceptionFilesTest : public TrackTest {
  protected:
    ExceptionFilesTest() {
        Interpose::redirect(kKernelPath, kernelFile());
        std::filesystem::create_directories("data/vendor/camera_dump");
    }

    [[nodiscard]] std::string kernelFile() const { return mFolder.path("hardware_exception"); }
};

TEST_F(ExceptionFilesTest, TheKernelsLineIsTakenApart) {
    const std::string heads[] = {"kernel camera event ", "kernel camera event type 0x",
                                 "kernel event camera id ", "kernel camera exception time 0x"};
    struct Row {
        std::string content;
        int code;
        std::vector<std::string> texts;
    };
    for (const Row& row : {
                 Row{"1073807361_0_1234",
                     0x10025001,
                     {"1073807361_0_1234", "40010001", "0", "4d2"}},
                 Row{"__1073807362___3__9_8\n1073807361\n",
                     0x10025003,
                     {"__1073807362___3__9_8\n", "40010002", "3", "9"}},
                 Row{"-1_x_-1", 0, {"-1_x_-1", "ffffffff", "0", "ffffffff"}},
                 Row{"99999999999999999999_0", 0, {"99999999999999999999_0", "ffffffff", "0"}},
                 Row{"___", 0, {"___"}},
                 // 31 characters are read.
                 Row{"1073807361_00000000000000000010_77",
                     0x10025001,
                     {"1073807361_00000000000000000010", "40010001", "10"}},
                 Row{"", 0, {}},
         }) {
        writeFile(kernelFile(), row.content);
        EXPECT_EQ(mTracker->readKernelExceptionErrCode(), row.code);
        std::vector<Support::LogLine> expected;
        for (size_t i = 0; i < row.texts.size(); i++) {
            expected.push_back(info(heads[i] + row.texts[i]));
        }
        EXPECT_EQ(takeLines(), expected);
        EXPECT_EQ(Support::readFile(kernelFile()), row.content);
    }
}

TEST_F(ExceptionFilesTest, TheHalsFirstNumberIsTakenAndItsFileDeleted) {
    struct Row {
        std::string content;
        std::vector<std::string> slots;
        const char* code;
    };
    const std::string manyLines = "8\n8\n8\n8\n8\n8\n8\n8\n8\n8\n8\n";
    for (const Row& row : {
                 Row{"268587013 sensor 0 was not found\n9",
                     {"268587013 sensor 0 was ", "not found\n", "9"},
                     "10025005"},
                 Row{"-5 ", {"-5 "}, "fffffffb"},
                 Row{"junk\n268587013\n", {"junk\n", "268587013\n"}, "0"},
                 Row{"", {}, "0"},
                 Row{manyLines + manyLines + manyLines, std::vector<std::string>(32, "8\n"), "8"},
         }) {
        mLog.clear();
        writeFile(kHalPath, row.content);
        EXPECT_EQ(mTracker->readHalExceptionErrCode(),
                  static_cast<int>(std::stoul(row.code, nullptr, 16)));
        std::vector<std::string> expected;
        for (const std::string& slot : row.slots) {
            expected.push_back("readExceptionErrCode = " + slot);
        }
        expected.push_back(std::string("readExceptionErrCode first errcode = 0x") + row.code +
                           ", " + (row.slots.empty() ? "" : row.slots[0]));
        EXPECT_THAT(mLog.texts(), ElementsAreArray(expected));
        EXPECT_FALSE(std::filesystem::exists(kHalPath));
    }
}

TEST_F(ExceptionFilesTest, AMissingFileAndAFolderInItsPlaceHaveNoCode) {
    EXPECT_EQ(mTracker->readExceptionErrCode(), 0);
    std::filesystem::create_directories(kernelFile());
    std::filesystem::create_directories(std::string(kHalPath) + "/full");
    mTracker->clearData();
    EXPECT_EQ(mTracker->readExceptionErrCode(), 0);
    const auto none = info("hal excption error code 0x0");
    EXPECT_THAT(
            takeLines(),
            ElementsAre(error(std::string("readExceptionErrCode ") + kKernelPath + " not exsist"),
                        error(std::string("readExceptionErrCode ") + kHalPath + " not exsist"),
                        none, info("readExceptionErrCode first errcode = 0x0, "),
                        error(std::string("cannot remove ") + kHalPath + ", errno 39"), none));
}

TEST_F(ExceptionFilesTest, AFileThatCannotBeLockedIsNotRead) {
    writeFile(kernelFile(), "1073807361_0_1");
    writeFile(kHalPath, "5");
    Faults::arm({{.call = Call::LOCK, .error = ENOLCK, .times = 2}});
    EXPECT_EQ(mTracker->readKernelExceptionErrCode(), 0);
    EXPECT_EQ(mTracker->readHalExceptionErrCode(), 0);
    EXPECT_THAT(takeLines(), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(kHalPath));

    Faults::arm({{.call = Call::LOCK, .error = EINTR, .times = 3}});
    EXPECT_EQ(mTracker->readKernelExceptionErrCode(), 0x10025001);
}

TEST_F(ExceptionFilesTest, OneThreadReadsWhileTheFileIsLockedAndOthersGetNothing) {
    writeFile(kHalPath, "");
    FILE* const writer = fopen(kHalPath, "r+");
    ASSERT_EQ(flock(fileno(writer), LOCK_EX), 0);
    Faults::arm({});
    std::thread reader([&] { EXPECT_EQ(mTracker->readExceptionErrCode(), 0x10025005); });
    EXPECT_TRUE(Support::await([] { return Faults::calls(Call::LOCK) == 1; }));
    mLog.clear();
    EXPECT_EQ(mTracker->readExceptionErrCode(), 0);
    EXPECT_THAT(takeLines(), IsEmpty());
    mTracker->clearData();  // holds for the next call, whatever the reader does then
    fputs("268587013", writer);
    fclose(writer);
    reader.join();
    EXPECT_EQ(mTracker->readExceptionErrCode(), 0);
    EXPECT_EQ(takeLines().back(), info("hal excption error code 0x0"));
}

TEST_F(ExceptionFilesTest, TheKernelsCodeGoesFirstAndBothFilesAreReadOnce) {
    writeFile(kernelFile(), "1073807362_1_2");
    writeFile(kHalPath, "268587013");
    EXPECT_EQ(mTracker->readExceptionErrCode(), 0x10025003);
    EXPECT_EQ(takeLines().back(), info("kernel excption error code 0x10025003"));
    EXPECT_FALSE(std::filesystem::exists(kHalPath));

    std::filesystem::remove(kernelFile());
    for (const char* code : {"0x10025005", "0x0"}) {
        writeFile(kHalPath, code == std::string("0x0") ? "" : "268587013");
        EXPECT_EQ(mTracker->readExceptionErrCode(), 0);  // also after a read without a code
        EXPECT_THAT(takeLines(), IsEmpty());
        mTracker->clearData();
        EXPECT_EQ(mTracker->readExceptionErrCode(), std::stoi(code, nullptr, 16));
        EXPECT_EQ(takeLines().back(), info(std::string("hal excption error code ") + code));
    }
    EXPECT_EQ(mTracker->readExceptionErrCode(), 0);
    EXPECT_THAT(takeLines(), IsEmpty());
}

}  // namespace
}  // namespace JCam::Utils::JLog::Track
