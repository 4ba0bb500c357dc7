#include "jlog/file/FileAloneJLogger.h"

#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <map>
#include <regex>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <android/log.h>

#include "support/Await.h"
#include "support/Descriptors.h"
#include "support/Faults.h"
#include "support/Interpose.h"
#include "support/LogCapture.h"
#include "support/Properties.h"
#include "support/TempFolder.h"

namespace JCam::Utils::JLog::File {
namespace {

namespace Faults = Support::Faults;
using Faults::Call;
using Support::await;
using Support::LogLine;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;

constexpr char kTag[] = "FileAloneJLogger";
constexpr char kFolderProperty[] = "vendor.debug.camera.ulog.folder";
constexpr char kIntervalProperty[] = "vendor.debug.camera.jlog.flushms";
constexpr char kUnableToOpen[] =
        "Unable to open file. Please disable SELinux and restart camerahalserver. !!!";

/// Opens up what a crash hook or a slow writer would use.
class OpenLogger : public FileAloneJLogger {
  public:
    using FileAloneJLogger::allocLogSpace;
    using FileAloneJLogger::publish;

    size_t queued() {
        const JLogLock lock(mMutex);
        return mFullBuffers.size();
    }
    /// All buffers that the logger owns.
    size_t owned() {
        const JLogLock lock(mMutex);
        return mFullBuffers.size() + mEmptyBuffers.size() + (mCurrent.get() != nullptr ? 1 : 0);
    }
    void log(const std::string& text) {
        onLogDetails(1, "Test", LEVEL_INFO, text.c_str(), text.size());
    }
    /// Fills the current buffer to its end, so that the next record retires it.
    void fillBuffer() {
        LogHeader* header = nullptr;
        Buffer* buffer = nullptr;
        ASSERT_TRUE(allocLogSpace(kBufferBytes, &header, &buffer, nullptr));
        publish(header, buffer, RECORD_INCOMPLETE);
    }
};

class FileAloneJLoggerTest : public ::testing::Test {
  protected:
    FileAloneJLoggerTest() {
        mProperties.set(kFolderProperty, mFolder.path());
        // The lines of single reservations would bury the others.
        __android_log_set_minimum_priority(ANDROID_LOG_INFO);
    }
    ~FileAloneJLoggerTest() override { __android_log_set_minimum_priority(ANDROID_LOG_DEFAULT); }

    /// From now on debug lines are kept too; reservations have no line unless a logger is made.
    static void showStatusLines() { __android_log_set_minimum_priority(ANDROID_LOG_DEBUG); }

    Support::LogCapture mLog;
    Support::Interpose::Scope mInterpose;
    Support::TempFolder mFolder;
    Support::Properties mProperties;
};

TEST_F(FileAloneJLoggerTest, StartsWithAnEmptyFileAndSaysSo) {
    mProperties.set(kFolderProperty, mFolder.path("logs"));
    mProperties.set("vendor.debug.camera.jlog.hookne", "0");  // which the thread may find or not
    OpenLogger logger;
    logger.onInit();
    ASSERT_EQ(std::filesystem::is_directory(mFolder.path("logs")), true);
    logger.onUninit();
    const std::string file =
            std::filesystem::directory_iterator(mFolder.path("logs"))->path().string();
    EXPECT_EQ(std::filesystem::file_size(file), 0U);
    EXPECT_THAT(mLog.lines(),
                ElementsAre(LogLine{ANDROID_LOG_INFO, kTag, "Write ulog to " + file},
                            LogLine{ANDROID_LOG_INFO, kTag,
                                    "File ULogger is running; flushInterval = 1000 ms, neHook = 0"},
                            LogLine{ANDROID_LOG_INFO, kTag, "File ULogger stopped"}));
    logger.onUninit();
    EXPECT_EQ(mLog.lines().size(), 3U) << "stopping a stopped logger does nothing";
}

TEST_F(FileAloneJLoggerTest, AFileThatIsDeletedWhileOpenIsFollowedByTheNext) {
    const auto deleteFile = [](const std::filesystem::path& file) {
        std::filesystem::remove(file);
    };
    const auto deleteFolder = [](const std::filesystem::path& file) {
        std::filesystem::remove_all(file.parent_path());
    };
    const auto replaceFolder = [](const std::filesystem::path& file) {
        std::filesystem::remove_all(file.parent_path());
        std::filesystem::create_directory(file.parent_path());
    };
    for (const std::function<void(const std::filesystem::path&)>& disturb :
         std::vector<std::function<void(const std::filesystem::path&)>>{deleteFile, deleteFolder,
                                                                        replaceFolder}) {
        mLog.clear();
        OpenLogger logger;
        logger.onInit();
        logger.log("before");
        logger.onFlush(60);
        const std::string first = mFolder.path(mFolder.names().at(0));
        disturb(first);
        logger.log("after");
        logger.onFlush(60);
        logger.log("later");
        logger.onUninit();
        ASSERT_THAT(mFolder.names(), ElementsAre(EndsWith("_02.txt")));
        const std::string second = mFolder.path(mFolder.names()[0]);
        EXPECT_THAT(Support::splitLines(Support::readFile(second)),
                    ElementsAre("-- CONTINUED --", EndsWith(" after"), EndsWith(" later")));
        EXPECT_THAT(mLog.lines(), Contains(LogLine{ANDROID_LOG_WARN, kTag,
                                                   "FileJLogWriter: file was deleted " + first}));
        EXPECT_EQ(mLog.count("FileJLogWriter: "), 1U);
        std::filesystem::remove(second);
    }
}

TEST_F(FileAloneJLoggerTest, AFolderThatCannotBeMadeAgainIsTriedUntilItIsThere) {
    Support::Interpose::redirect("/data/vendor", mFolder.path("absent"));
    const std::string folder = mFolder.path("parent/logs");
    std::filesystem::create_directories(folder);
    mProperties.set(kFolderProperty, folder);
    OpenLogger logger;
    logger.onInit();
    std::filesystem::remove_all(mFolder.path("parent"));
    for (int i = 0; i < 2; ++i) {
        logger.log("lost");
        logger.onFlush(60);
    }
    std::filesystem::create_directories(folder);
    logger.log("after");
    logger.onUninit();
    const std::string next = std::filesystem::directory_iterator(folder)->path().string();
    EXPECT_THAT(Support::splitLines(Support::readFile(next)),
                ElementsAre("-- CONTINUED --", EndsWith(" after")));
    EXPECT_EQ(mLog.count("FileJLogWriter: file was deleted "), 1U);
    EXPECT_EQ(mLog.count(kUnableToOpen), 2U);
}

TEST_F(FileAloneJLoggerTest, IdleThreadWritesFewRecordsWithinItsInterval) {
    for (const char* interval : {"20", "0"}) {
        SCOPED_TRACE(interval);
        mProperties.set(kIntervalProperty, interval);
        OpenLogger logger;
        logger.onInit();
        logger.log("few");
        Faults::arm({});
        EXPECT_TRUE(await([&] {
            return Faults::calls(Call::FSYNC) > 0 && mFolder.logText().ends_with("few\n");
        }));
        logger.onUninit();
        std::filesystem::remove_all(mFolder.path());
    }
}

TEST_F(FileAloneJLoggerTest, FlushHasWrittenAndSyncedWhatWasLoggedBefore) {
    mProperties.set(kIntervalProperty, "100000");
    OpenLogger logger;
    logger.log("before the start");
    logger.onInit();
    Faults::arm({});
    for (uint32_t i = 1; i <= 3; ++i) {
        logger.log("flushed");
        logger.onFlush(60);
        EXPECT_EQ(Support::splitLines(mFolder.logText()).size(), i + 1);
        EXPECT_EQ(Faults::calls(Call::FSYNC), i);
    }
    logger.onFlush(60);
    EXPECT_EQ(Faults::calls(Call::FSYNC), 3U) << "nothing to write";
    logger.log("drained");
    logger.onUninit();
    EXPECT_THAT(mFolder.logText(), ::testing::EndsWith("drained\n"));
    logger.log("too late");
    logger.onFlush(60);
    EXPECT_EQ(logger.queued(), 1U) << "retired, and no thread to wait for";
    EXPECT_THAT(mFolder.logText(), ::testing::EndsWith("drained\n"));
}

TEST_F(FileAloneJLoggerTest, AFullBufferWakesTheThread) {
    mProperties.set(kIntervalProperty, "100000");
    OpenLogger logger;
    logger.onInit();
    // The thread is in its pause once an idle step has ended this flush.
    logger.onFlush(60);
    logger.log("in the full buffer");
    logger.fillBuffer();
    logger.fillBuffer();
    EXPECT_TRUE(await([&] { return mFolder.logText().ends_with("in the full buffer\n"); }));
}

TEST_F(FileAloneJLoggerTest, ABufferIsRenderedOnlyWhenItsWritersAreDone) {
    OpenLogger logger;
    LogHeader* header = nullptr;
    Buffer* buffer = nullptr;
    logger.log("first");
    ASSERT_TRUE(logger.allocLogSpace(24, &header, &buffer, nullptr));
    logger.log("second");
    logger.onInit();
    logger.onFlush(1);  // runs into its bound
    EXPECT_EQ(mFolder.logText(), "");
    EXPECT_EQ(logger.queued(), 1U);
    logger.publish(header, buffer, RECORD_INCOMPLETE);
    logger.onFlush(60);
    EXPECT_EQ(Support::splitLines(mFolder.logText()).size(), 2U);
}

TEST_F(FileAloneJLoggerTest, ThreadBoostsItselfByTheLengthOfTheQueue) {
    mProperties.set(kIntervalProperty, "1");
    struct Row {
        int queuedBuffers;
        bool flush;
        std::vector<int> niceValues;
    };
    for (const Row& row :
         {Row{3, false, {19}}, Row{4, false, {19, 0, 10, 19}}, Row{10, false, {19, 0, 10, 19}},
          Row{11, false, {19, -4, 0, 10, 19}}, Row{2, true, {19, -4, 0, 10, 19}}}) {
        SCOPED_TRACE(row.queuedBuffers);
        const Support::Interpose::Scope scope;
        OpenLogger logger;
        for (int i = 0; i <= row.queuedBuffers; ++i) {
            logger.fillBuffer();
        }
        ASSERT_EQ(logger.queued(), static_cast<size_t>(row.queuedBuffers));
        if (row.flush) {
            logger.onFlush(0);
        }
        logger.onInit();
        EXPECT_TRUE(await([&] { return Support::Interpose::niceValues() == row.niceValues; }))
                << ::testing::PrintToString(Support::Interpose::niceValues());
        logger.onUninit();
        EXPECT_EQ(Support::Interpose::niceValues(), row.niceValues);
    }
}

/// The line of /proc/self/task/TID/status that begins with `key`, of the thread of that name; empty
/// while there is none.
std::string statusOfThread(const std::string& name, const std::string& key) {
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        if (Support::readFile(task.path().string() + "/comm") != name + "\n") {
            continue;
        }
        for (const std::string& line :
             Support::splitLines(Support::readFile(task.path().string() + "/status"))) {
            if (line.starts_with(key)) {
                return line.substr(key.size());
            }
        }
    }
    return "";
}

TEST_F(FileAloneJLoggerTest, ThreadTakesNoSignalsButItsOwnFaults) {
    OpenLogger logger;
    logger.onInit();
    std::string blocked;
    ASSERT_TRUE(await([&] {
        blocked = statusOfThread("FileAloneJLogge", "SigBlk:");
        return !blocked.empty();
    }));
    const uint64_t mask = std::stoull(blocked, nullptr, 16);
    const auto isBlocked = [&](int signal) { return (mask >> (signal - 1) & 1) != 0; };
    for (const int signal : {SIGTERM, SIGUSR1, SIGCHLD, SIGXFSZ, SIGALRM}) {
        EXPECT_TRUE(isBlocked(signal)) << signal;
    }
    for (const int signal : {SIGABRT, SIGSEGV, SIGBUS}) {
        EXPECT_FALSE(isBlocked(signal)) << signal;
    }
}

TEST_F(FileAloneJLoggerTest, MemoryReturnsAfterABurstAndThePoolIsEnoughForSmallOnes) {
    OpenLogger logger;
    for (int i = 0; i < 20; ++i) {
        logger.fillBuffer();
    }
    EXPECT_EQ(logger.owned(), 20U);
    logger.onInit();
    logger.onFlush(60);
    EXPECT_TRUE(await([&] { return logger.owned() == 4; }))
            << "the current buffer and a pool of three";

    Faults::arm({});
    for (int round = 0; round < 10; ++round) {
        for (int i = 0; i < 3; ++i) {
            logger.fillBuffer();
        }
        logger.onFlush(60);
        ASSERT_TRUE(await([&] { return logger.queued() == 0; }));
    }
    EXPECT_EQ(Faults::calls(Call::MAP), 0U);
    EXPECT_EQ(logger.owned(), 4U);
}

TEST_F(FileAloneJLoggerTest, PagesAreMadeAmongOtherWritersByAKernelOfAnyAge) {
    constexpr size_t kThreads = 4;
    constexpr size_t kLines = 10000;
    for (const bool oldKernel : {false, true}) {
        if (oldKernel) {
            Faults::arm({{.call = Call::ADVISE, .error = EINVAL}});
        }
        OpenLogger logger;
        std::vector<std::thread> threads;
        for (size_t t = 0; t < kThreads; ++t) {
            threads.emplace_back([&logger, text = std::string(60 + t, 'x')] {
                for (size_t i = 0; i < kLines; ++i) {
                    logger.log(text);
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        logger.onInit();
        logger.onUninit();
        std::map<std::string, size_t> texts;
        for (const std::string& line : Support::splitLines(mFolder.logText())) {
            ++texts[line.substr(line.rfind(' ') + 1)];
        }
        ASSERT_EQ(texts.size(), kThreads);
        for (size_t t = 0; t < kThreads; ++t) {
            EXPECT_EQ(texts[std::string(60 + t, 'x')], kLines);
        }
        std::filesystem::remove_all(mFolder.path());
    }
}

TEST_F(FileAloneJLoggerTest, StatusLineComesEveryFourthBufferAndAtTheEndOfABatch) {
    struct Row {
        const char* interval;
        bool flush;
        std::vector<std::string> status;
    };
    // Five full buffers and a current one, which the stop or the flush retires.
    for (const Row& row :
         {Row{"499", false, {"4 logs written, 1"}},
          Row{"499", true, {"4 logs written, 2", "6 logs written, 0"}},
          Row{"500", false, {"4 logs written, 1", "5 logs written, 0", "6 logs written, 0"}}}) {
        SCOPED_TRACE(row.interval);
        mProperties.set(kIntervalProperty, row.interval);
        OpenLogger logger;
        showStatusLines();
        mLog.clear();
        for (int i = 0; i < 6; ++i) {
            logger.fillBuffer();
        }
        if (row.flush) {
            logger.onFlush(0);
        }
        logger.onInit();
        logger.onUninit();
        __android_log_set_minimum_priority(ANDROID_LOG_INFO);

        const std::string file = mFolder.path(mFolder.names().at(0));
        std::vector<std::string> expected;
        for (const std::string& status : row.status) {
            expected.push_back("File ULogger: " + status + " buffers queueing (" + file + ")");
        }
        EXPECT_EQ(mLog.texts("File ULogger: "), expected);
        std::filesystem::remove_all(mFolder.path());
    }
}

TEST_F(FileAloneJLoggerTest, StatusLineOfTheMonotonicClockCarriesBothTimes) {
    mProperties.set("vendor.debug.camera.jlog.monoclock", "1");
    OpenLogger logger;
    showStatusLines();
    logger.log("text");
    logger.onInit();
    logger.onFlush(60);
    const auto status = mLog.texts("File ULogger: ");
    ASSERT_EQ(status.size(), 1U);
    std::smatch stamps;
    ASSERT_TRUE(std::regex_match(status[0], stamps,
                                 std::regex("File ULogger: 1 logs written, 0 buffers queueing; "
                                            "mono = (.{21}), real = (.{21}) \\(.*_01.txt\\)")))
            << status[0];
    // The later one of two readings of a clock is the later text.
    char now[40];
    EXPECT_LE(stamps[1], FileJLoggerBase::getTimeStamp(CLOCK_MONOTONIC, now, sizeof(now)));
}

TEST_F(FileAloneJLoggerTest, WithoutAFileBuffersAreReportedAndRecycled) {
    mProperties.set(kFolderProperty, mFolder.path("a/b"));
    Support::Interpose::redirect("/data/vendor", mFolder.path("absent"));
    OpenLogger logger;
    logger.fillBuffer();
    logger.fillBuffer();
    logger.onInit();
    logger.onFlush(60);
    EXPECT_EQ(logger.queued(), 0U);
    EXPECT_LE(logger.owned(), 4U);
    const auto lines = mLog.lines();
    EXPECT_THAT(lines[0].text, HasSubstr("mkdir("));
    EXPECT_EQ(mLog.count(kUnableToOpen), 3U) << "once by the writer, once per buffer";
}

TEST_F(FileAloneJLoggerTest, WithoutAThreadTheNewestRecordsStayInBoundedMemory) {
    Faults::arm({{.call = Call::THREAD, .error = EAGAIN}});
    OpenLogger logger;
    const size_t descriptors = Support::openDescriptors();
    logger.onInit();
    EXPECT_EQ(Support::openDescriptors(), descriptors + 1) << "the crash writer's reserve alone";
    EXPECT_EQ(mLog.count("Unable to start the flush thread"), 1U);
    for (int i = 0; i < 50; ++i) {
        logger.fillBuffer();
        logger.onFlush(60);  // neither waits nor gives up full buffers for nearly empty ones
    }
    EXPECT_EQ(logger.queued(), 4U);
    EXPECT_LE(logger.owned(), 6U);
    logger.onUninit();

    // A later start finds what was kept, and one file open at a time.
    Faults::disarm();
    logger.log("kept");
    logger.onInit();
    logger.onUninit();
    EXPECT_THAT(mFolder.logText(), ::testing::EndsWith("kept\n"));
}

}  // namespace
}  // namespace JCam::Utils::JLog::File
