// A disk that is full, and a log folder that others take away, for real: file systems in memory,
// mounted where only a child process sees them.

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <android/log.h>

#include "jlog/file/FileAloneJLogger.h"
#include "support/ChildProcess.h"
#include "support/Interpose.h"
#include "support/LogCapture.h"
#include "support/Properties.h"
#include "support/TempFolder.h"

namespace JCam::Utils::JLog::File {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::SizeIs;
using ::testing::StartsWith;

constexpr off_t kMiB = 0x100000;
/// Records of 1000 characters that are more than a file holds: their lines have some 1047 bytes.
constexpr int kRecordsOfAFile = 181'000;

/// Gives this process mounts of its own; false without the right to.
bool unshareMounts() {
    return (unshare(CLONE_NEWNS) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0) &&
           mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

bool mountMemory(const std::string& folder, int mebibytes) {
    const std::string size = "size=" + std::to_string(mebibytes) + "m";
    return mount("none", folder.c_str(), "tmpfs", 0, size.c_str()) == 0;
}

bool makeReadOnly(const std::string& folder) {
    const char* path = folder.c_str();
    return mount(path, path, nullptr, MS_BIND, nullptr) == 0 &&
           mount("none", path, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0;
}

/// A file whose blocks are all there, of an age that grows with `order`, the oldest being 0.
void makeFile(const std::string& path, off_t bytes, int order) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT, 0600);
    ASSERT_EQ(posix_fallocate(fd, 0, bytes), 0) << path;
    close(fd);
    const timespec times[] = {{1000 + order, 0}, {1000 + order, 0}};
    utimensat(AT_FDCWD, path.c_str(), times, 0);
}

/// std::count would take seconds in a debug build.
int linesOf(const std::string& text) {
    int lines = 0;
    for (size_t end = 0; (end = text.find('\n', end)) != std::string::npos; ++end) {
        ++lines;
    }
    return lines;
}

class DiskTest : public ::testing::Test {
  protected:
    DiskTest() {
        Support::Interpose::redirect("/data/vendor", fallback());
        mProperties.set("vendor.debug.camera.ulog.folder", logs());
        __android_log_set_minimum_priority(ANDROID_LOG_INFO);
    }
    ~DiskTest() override { __android_log_set_minimum_priority(ANDROID_LOG_DEFAULT); }

    [[nodiscard]] std::string logs() const { return mFolder.path("logs"); }
    [[nodiscard]] std::string fallback() const { return mFolder.path("fallback"); }

    /// Runs `body` with both folders in a file system of this size.
    void onDiskOf(int mebibytes, const std::function<void()>& body) {
        if (Support::runChild([] { _exit(unshareMounts() ? 0 : 1); }).value != 0) {
            GTEST_SKIP() << "no right to mount";
        }
        const Support::Ending ending = Support::runChild([&] {
            if (unshareMounts() && mountMemory(mFolder.path(), mebibytes)) {
                fs::create_directory(logs());
                fs::create_directory(fallback());
                body();
                _exit(HasFailure() ? 1 : 0);
            }
            _exit(2);
        });
        EXPECT_EQ(ending, (Support::Ending{Support::Ending::EXITED, 0}));
    }

    void start() { mLogger.emplace().onInit(); }

    void log(const std::string& text) {
        mLogger->onLogDetails(1, "Test", LEVEL_INFO, text.c_str(), text.size());
    }
    /// Logs until the next file of the series is open.
    void fillFile() {
        const std::string text(1000, 'x');
        for (int i = 0; i < kRecordsOfAFile; ++i) {
            log(text);
            if (i % 5000 == 0) {
                mLogger->onFlush(60);
            }
        }
        mLogger->onFlush(60);
    }
    static std::vector<std::string> namesIn(const std::string& folder) {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    static std::string onlyFileIn(const std::string& folder) {
        const auto names = namesIn(folder);
        EXPECT_THAT(names, SizeIs(1));
        return names.empty() ? "" : Support::readFile(folder + "/" + names[0]);
    }

    Support::LogCapture mLog;
    Support::Interpose::Scope mInterpose;
    Support::TempFolder mFolder;
    Support::Properties mProperties;
    std::optional<FileAloneJLogger> mLogger;
};

TEST_F(DiskTest, AFullDiskIsClearedFromTheOldestFileOnAndLoggingGoesOn) {
    onDiskOf(400, [this] {
        // 160 MiB are free. Three files more would be 280, which is not enough.
        const std::vector<std::string> byAge = {"z",   "a.log", "cam_jlog_1_x_01.txt",
                                                "m n", "newer", "b"};
        for (size_t i = 0; i < byAge.size(); ++i) {
            makeFile(logs() + "/" + byAge[i], 40 * kMiB, static_cast<int>(i));
        }
        fs::create_directory(logs() + "/folder");
        start();
        std::vector<std::string> unlinked;
        for (size_t i = 0; i < 4; ++i) {
            unlinked.push_back("Storage full. Unlinked: " + logs() + "/" + byAge[i]);
        }
        EXPECT_EQ(mLog.texts("Storage full."), unlinked);
        const auto left = namesIn(logs());
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
                  (std::vector<std::string>{"Storage full. Unlinked: " + logs() + "/newer",
                                            "Storage full. Unlinked: " + logs() + "/b"}));
        const auto last = namesIn(logs());
        EXPECT_THAT(last, ElementsAre(EndsWith("_01.txt"), EndsWith("_02.txt"), "folder"));
        const std::string text = Support::readFile(logs() + "/" + last[1]);
        EXPECT_THAT(text, StartsWith("-- CONTINUED --\n"));
        EXPECT_THAT(text, EndsWith(": on\n"));
    });
}

TEST_F(DiskTest, LoggingGoesOnElsewhereWhenTheFolderIsTakenAway) {
    const auto replace = [this] {
        fs::rename(logs(), mFolder.path("moved"));
        Support::writeFile(logs(), "a file");
    };
    const auto protect = [this] { ASSERT_TRUE(makeReadOnly(logs())); };
    for (const std::function<void()>& takeAway :
         std::vector<std::function<void()>>{replace, protect}) {
        onDiskOf(600, [&] {
            start();
            const std::string first = logs() + "/" + namesIn(logs()).at(0);
            log("before");
            mLogger->onFlush(60);
            takeAway();
            fillFile();
            log("after");
            mLogger->onUninit();
            EXPECT_THAT(mLog.texts("FileJLogWriter: "),
                        ElementsAre(StartsWith("FileJLogWriter: file open failed " + logs())));
            EXPECT_EQ(mLog.count("Unable to open file."), 0U);
            const std::string text = onlyFileIn(fallback());
            EXPECT_THAT(text, StartsWith("-- CONTINUED --\n"));
            EXPECT_THAT(text, EndsWith(": after\n"));
            // What was logged before the file was full is in it, wherever that is now.
            const std::string moved = mFolder.path("moved");
            EXPECT_EQ(linesOf(fs::exists(moved) ? onlyFileIn(moved) : Support::readFile(first)) +
                              linesOf(text),
                      kRecordsOfAFile + 3);
        });
    }
}

}  // namespace
}  // namespace JCam::Utils::JLog::File
