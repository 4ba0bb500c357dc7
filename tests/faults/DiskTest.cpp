// A disk that is full, for real: a file system in memory, mounted where only a child process sees
// it.

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "faults/FaultTest.h"
#include "jlog/file/FileAloneJLogger.h"
#include "support/Properties.h"

namespace JCam::Utils::JLog::File {
namespace {

namespace fs = std::filesystem;
using Support::Ending;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::StartsWith;

constexpr off_t kMiB = 0x100000;

/// A file whose blocks are all there, and that is the older the less `order` is.
void makeFile(const std::string& path, off_t bytes, int order) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT, 0600);
    ASSERT_EQ(posix_fallocate(fd, 0, bytes), 0) << path;
    close(fd);
    fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::hours(100 - order));
}

class DiskTest : public Support::FaultTest {
  protected:
    DiskTest() { Support::Interpose::redirect("/data/vendor", fallback()); }

    [[nodiscard]] std::string logs() const { return mFolder.path("logs"); }
    [[nodiscard]] std::string fallback() const { return mFolder.path("fallback"); }

    /// Runs `body` with both folders in a file system of 400 MiB, in a process with mounts of its
    /// own.
    void onSmallDisk(const std::function<void()>& body) {
        constexpr Ending kNoRight = {Ending::EXITED, 2};
        const Ending ending = Support::runChild([&] {
            if ((unshare(CLONE_NEWNS) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) ||
                mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
                _exit(kNoRight.value);
            }
            EXPECT_EQ(mount("none", mFolder.path().c_str(), "tmpfs", 0, "size=400m"), 0);
            fs::create_directory(logs());
            fs::create_directory(fallback());
            mLogger.emplace();
            body();
            _exit(HasFailure() ? 1 : 0);
        });
        if (ending == kNoRight) {
            GTEST_SKIP() << "no right to mount";
        }
        EXPECT_EQ(ending, (Ending{Ending::EXITED, 0}));
    }

    void log(const std::string& text) {
        mLogger->onLogDetails(1, "Test", LEVEL_INFO, text.c_str(), text.size());
    }
    /// Logs until the next file of the series is open.
    void fillFile() {
        // Lines of some 1047 bytes, and more of them than a file holds.
        for (int i = 0; i < 181'000; ++i) {
            log(std::string(1000, 'x'));
            if (i % 5000 == 0) {
                mLogger->onFlush(60);
            }
        }
        mLogger->onFlush(60);
    }

    Support::TempFolder mFolder;
    Support::Properties mProperties{{"vendor.debug.camera.ulog.folder", logs()}};
    std::optional<FileAloneJLogger> mLogger;
};

TEST_F(DiskTest, AFullDiskIsClearedFromTheOldestFileOnAndLoggingGoesOn) {
    onSmallDisk([this] {
        // 160 MiB are free. Three files more would be 280, which is not enough.
        const std::vector<std::string> byAge = {"z",   "a.log", "cam_jlog_1_x_01.txt",
                                                "m n", "newer", "b"};
        std::vector<std::string> unlinked;
        for (size_t i = 0; i < byAge.size(); ++i) {
            makeFile(logs() + "/" + byAge[i], 40 * kMiB, static_cast<int>(i));
            unlinked.push_back("Storage full. Unlinked: " + logs() + "/" + byAge[i]);
        }
        fs::create_directory(logs() + "/folder");
        mLogger->onInit();
        EXPECT_EQ(mLog.texts("Storage full."),
                  std::vector<std::string>(unlinked.begin(), unlinked.begin() + 4));
        const auto left = Support::namesIn(logs());
        EXPECT_THAT(left, ElementsAre("b", StartsWith("cam_jlog_"), "folder", "newer"));
        const std::string first = logs() + "/" + left[1];

        // Somebody else takes what is left. Text is lost, and told of; memory does not grow.
        log("before");
        mLogger->onFlush(60);
        const std::string ballast = fallback() + "/ballast";
        makeFile(ballast, static_cast<off_t>(fs::space(logs()).free), 0);
        for (int i = 0; i < 1000; ++i) {
            log("lost " + std::string(1000, 'x'));
        }
        mLogger->onFlush(60);
        // The first of them may still take a part of the text, which is errno 0.
        const std::string failed = "FileJLogWriter: write failed " + first + ", errno = ";
        EXPECT_EQ(mLog.count(failed + std::to_string(ENOSPC)), 1U);
        EXPECT_LE(mLog.count(failed + "0"), 1U);
        fs::remove(ballast);
        log("after");
        mLogger->onFlush(60);
        EXPECT_THAT(Support::readFile(first), EndsWith(": after\n"));

        // The next file: the two that were spared go, but not the one that has just been filled.
        mLog.clear();
        fillFile();
        log("on");
        mLogger->onUninit();
        EXPECT_EQ(mLog.texts("Storage full."),
                  std::vector<std::string>(unlinked.begin() + 4, unlinked.end()));
        const auto last = Support::namesIn(logs());
        EXPECT_THAT(last, ElementsAre(EndsWith("_01.txt"), EndsWith("_02.txt"), "folder"));
        const std::string text = Support::readFile(logs() + "/" + last[1]);
        EXPECT_THAT(text, StartsWith("-- CONTINUED --\n"));
        EXPECT_THAT(text, EndsWith(": on\n"));
    });
}

}  // namespace
}  // namespace JCam::Utils::JLog::File
