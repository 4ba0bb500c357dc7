// A log folder to which others may write: links, pipes and names that are meant to do harm.

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
using Support::Interpose::setFreeBytes;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;

class HostileFolderTest : public ::testing::Test {
  protected:
    HostileFolderTest() { Support::writeFile(victim(), "precious"); }
    ~HostileFolderTest() override {
        EXPECT_THAT(mOutside.names(), ElementsAre("victim"));
        EXPECT_EQ(Support::readFile(victim()), "precious");
    }

    [[nodiscard]] std::string victim() const { return mOutside.path("victim"); }

    /// Links under the names that files of this process will have for the next minutes, to the
    /// victim and, where the index is 02, to a file that is not there.
    void plantLinks() {
        for (time_t second = time(nullptr) - 1, end = second + 300; second < end; ++second) {
            tm local = {};
            localtime_r(&second, &local);
            char stamp[40];
            strftime(stamp, sizeof(stamp), "%Y_%m%d_%H%M%S", &local);
            for (const char* prefix : {"_", "_NE_"}) {
                const std::string stem =
                        mFolder.path("cam_jlog_" + std::to_string(getpid()) + prefix + stamp);
                fs::create_symlink(victim(), stem + "_01.txt");
                fs::create_symlink(mOutside.path("absent"), stem + "_02.txt");
            }
        }
    }

    Support::LogCapture mLog;
    Support::Interpose::Scope mInterpose;
    Support::TempFolder mFolder;
    Support::TempFolder mOutside;
};

TEST_F(HostileFolderTest, NeitherALogNorACrashFileIsOpenedThroughALink) {
    const Support::Properties properties{{"vendor.debug.camera.ulog.folder", mFolder.path()}};
    EXPECT_EQ(Support::runChild([this] {
                  plantLinks();
                  FileAloneJLogger logger;
                  logger.onInit();
                  logger.onLogDetails(1, "Tag", LEVEL_INFO, "text", 4);
                  logger.onFlush(60);
                  logger.onLogDetails(1, "Tag", LEVEL_INFO, "last", 4);
                  raise(SIGSEGV);
              }),
              (Support::Ending{Support::Ending::KILLED, SIGSEGV}));
    std::vector<std::string> contents;
    for (const std::string& name : mFolder.names()) {
        if (!fs::is_symlink(mFolder.path(name))) {
            EXPECT_THAT(name, EndsWith("_03.txt"));
            contents.push_back(Support::readFile(mFolder.path(name)));
        }
    }
    EXPECT_THAT(contents, ElementsAre(EndsWith(": text\n"), EndsWith(": last\n")));
}

TEST_F(HostileFolderTest, CleanUpDeletesNothingButNamesOfTheFolder) {
    setFreeBytes(0);
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
    EXPECT_THAT(mFolder.names(), ElementsAre("circle", "folder", "link to folder", "pipe"));
    EXPECT_TRUE(fs::exists(mFolder.path("folder/inside")));
    EXPECT_THAT(mLog.texts(), Contains("Storage full. Unlinked: " + mFolder.path("%s%n%1000000d")));
    EXPECT_EQ(mLog.count("Storage full."), files.size() + 1);
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
    const fs::path file = fs::directory_iterator(folder)->path();
    EXPECT_EQ(fs::status(folder).permissions(), fs::perms(0771));
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0644));
    EXPECT_THAT(Support::readFile(file.string()),
                ::testing::ContainsRegex(" I %s%n    : %s%n%1000000d%p \\{\\} \\$\\(reboot\\) `x`\n"
                                         ".* D JLog    : .*:%n%n #1\n"));
}

}  // namespace
}  // namespace JCam::Utils::JLog::File
