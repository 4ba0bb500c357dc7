// A log folder to which others may write: links, pipes and names that are meant to do harm.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <filesystem>
#include <limits>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <android/log.h>

#include "jlog/file/FileAloneJLogger.h"
#include "jlog/file/FileJLogWriter.h"
#include "support/ChildProcess.h"
#include "support/Interpose.h"
#include "support/LogCapture.h"
#include "support/Properties.h"
#include "support/TempFolder.h"

namespace JCam::Utils::JLog::File {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::EndsWith;

class HostileFolderTest : public ::testing::Test {
  protected:
    HostileFolderTest() { Support::writeFile(victim(), "precious"); }
    ~HostileFolderTest() override {
        EXPECT_EQ(mOutside.names(), std::vector<std::string>{"victim"});
        EXPECT_EQ(fs::file_size(victim(), mIgnored), 8U);
    }

    [[nodiscard]] std::string victim() const { return mOutside.path("victim"); }

    /// Links under the names that files of this process will have for the next minutes, to the
    /// victim and, where the index is 02, to a file that is not there.
    void plantLinks(const std::string& prefix) {
        for (time_t second = time(nullptr) - 1, end = second + 300; second < end; ++second) {
            tm local = {};
            localtime_r(&second, &local);
            char stamp[40];
            strftime(stamp, sizeof(stamp), "%Y_%m%d_%H%M%S", &local);
            const std::string stem =
                    mFolder.path("cam_jlog_" + std::to_string(getpid()) + "_" + prefix + stamp);
            fs::create_symlink(victim(), stem + "_01.txt");
            fs::create_symlink(mOutside.path("absent"), stem + "_02.txt");
        }
    }

    std::error_code mIgnored;
    Support::LogCapture mLog;
    Support::Interpose::Scope mInterpose;
    Support::TempFolder mFolder;
    Support::TempFolder mOutside;
};

TEST_F(HostileFolderTest, NoFileIsOpenedThroughALink) {
    plantLinks("");
    FileJLogWriter writer;
    writer.mFolder = mFolder.path();
    ASSERT_TRUE(writer.open(true, "", false));
    EXPECT_THAT(writer.mFilePath.c_str(), EndsWith("_03.txt"));
    writer.writeString("text\n");
    writer.close();
    EXPECT_EQ(Support::readFile(writer.mFilePath.c_str()), "text\n");
}

TEST_F(HostileFolderTest, NeitherIsACrashFile) {
    const Support::Properties properties{{"vendor.debug.camera.ulog.folder", mFolder.path()}};
    EXPECT_EQ(Support::runChild([this] {
                  plantLinks("NE_");
                  FileAloneJLogger logger;
                  logger.onInit();
                  logger.onLogDetails(1, "Tag", LEVEL_INFO, "text", 4);
                  raise(SIGSEGV);
              }),
              (Support::Ending{Support::Ending::KILLED, SIGSEGV}));
    std::set<std::string> crashFiles;
    for (const std::string& name : mFolder.names()) {
        if (name.find("_NE_") != std::string::npos && !fs::is_symlink(mFolder.path(name))) {
            crashFiles.insert(name);
        }
    }
    ASSERT_EQ(crashFiles.size(), 1U);
    EXPECT_THAT(*crashFiles.begin(), EndsWith("_03.txt"));
    EXPECT_THAT(Support::readFile(mFolder.path(*crashFiles.begin())), EndsWith(": text\n"));
}

TEST_F(HostileFolderTest, CleanUpDeletesNothingButNamesOfTheFolder) {
    Support::Interpose::setFreeBytes(0);
    fs::create_symlink(victim(), mFolder.path("link"));
    fs::create_symlink(mOutside.path(), mFolder.path("link to folder"));
    fs::create_symlink(mFolder.path("circle"), mFolder.path("circle"));
    fs::create_directory(mFolder.path("folder"));
    Support::writeFile(mFolder.path("folder/inside"), "");
    ASSERT_EQ(mkfifo(mFolder.path("pipe").c_str(), 0600), 0);  // opening it would wait for ever
    const std::vector<std::string> files = {"-rf",    "%s%n%1000000d", "line\nbreak",
                                            "..\\up", "\xFF\xC0\x80",  std::string(255, 'l'),
                                            " "};
    for (const std::string& name : files) {
        Support::writeFile(mFolder.path(name), "text");
    }
    FileJLogWriter writer;
    writer.mFolder = mFolder.path();
    writer.reserveSpace(false);
    // A link counts as what it leads to; what goes is the link.
    EXPECT_EQ(mFolder.names(),
              (std::vector<std::string>{"circle", "folder", "link to folder", "pipe"}));
    EXPECT_TRUE(fs::exists(mFolder.path("folder/inside")));
    EXPECT_THAT(mLog.texts(), Contains("Storage full. Unlinked: " + mFolder.path("%s%n%1000000d")));
    EXPECT_EQ(mLog.count("Storage full."), files.size() + 1);
}

TEST_F(HostileFolderTest, AFileLargerThanAnyDiskIsEnough) {
    const Support::TempFolder folder(Support::TempFolder::inMemory());
    const std::string sparse = folder.path("sparse");
    Support::writeFile(sparse, "");
    if (truncate(sparse.c_str(), std::numeric_limits<off_t>::max()) != 0) {
        GTEST_SKIP() << "the file system has no such files";
    }
    const timespec old[] = {{1, 0}, {1, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, sparse.c_str(), old, 0), 0);
    Support::writeFile(folder.path("newer"), "text");
    Support::Interpose::setFreeBytes(0x10000000);
    FileJLogWriter writer;
    writer.mFolder = folder.path();
    writer.reserveSpace(false);
    EXPECT_EQ(folder.names(), std::vector<std::string>{"newer"});
}

TEST_F(HostileFolderTest, FilesAndFoldersGetTheirModesAndNothingExecutes) {
    const mode_t mask = umask(0);
    const std::string folder = mFolder.path("%s%n logs");
    const Support::Properties properties{{"vendor.debug.camera.ulog.folder", folder}};
    {
        FileAloneJLogger logger;
        logger.onInit();
        const std::string format = "%s%n%1000000d%p {} $(reboot) `x`";
        logger.onLogDetails(1, "%s%n", LEVEL_INFO, format.c_str(), format.size());
        logger.onLogEnter(1, "%n%n", 1);
    }
    umask(mask);
    struct stat status = {};
    ASSERT_EQ(stat(folder.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0771U);
    const fs::path file = fs::directory_iterator(folder)->path();
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644U);
    EXPECT_THAT(Support::readFile(file.string()),
                ::testing::ContainsRegex(" I %s%n    : %s%n%1000000d%p \\{\\} \\$\\(reboot\\) `x`\n"
                                         ".* D JLog    : .*:%n%n #1\n"));
}

}  // namespace
}  // namespace JCam::Utils::JLog::File
