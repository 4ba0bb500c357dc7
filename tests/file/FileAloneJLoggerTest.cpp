#include "jlog/file/FileAloneJLogger.h"

#include <sys/time.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/Await.h"
#include "support/Faults.h"
#include "support/FileLoggerTest.h"

namespace JCam::Utils::JLog::File {
namespace {

namespace fs = std::filesystem;
using namespace Support;
using Faults::Call;
using namespace ::testing;

/// Logs records that fill a buffer each; the last one stays the current buffer.
void fillBuffers(RunningLogger& logger, int buffers) {
    for (int i = 0; i < buffers; ++i) {
        ASSERT_TRUE(logger.logBytes(kBufferBytes));
    }
}

using FileAloneJLoggerTest = FileLoggerTest;

TEST_F(FileAloneJLoggerTest, StartsWithAnEmptyFileAndSaysSo) {
    mProperties.set(kFolderProperty, mFolder.path("logs"));
    mProperties.set("vendor.debug.camera.jlog.hookne", "0");  // which the thread may find or not
    RunningLogger logger;
    logger.onInit();
    logger.onUninit();
    const std::string file = fs::directory_iterator(mFolder.path("logs"))->path().string();
    EXPECT_EQ(fs::file_size(file), 0U);
    logger.onUninit();  // which does nothing
    EXPECT_THAT(mLog.lines(),
                ElementsAre(LogLine{ANDROID_LOG_INFO, kFileTag, "Write ulog to " + file},
                            LogLine{ANDROID_LOG_INFO, kFileTag,
                                    "File ULogger is running; flushInterval = 1000 ms, neHook = 0"},
                            LogLine{ANDROID_LOG_INFO, kFileTag, "File ULogger stopped"}));
}

TEST_F(FileAloneJLoggerTest, AFileThatIsDeletedWhileOpenIsFollowedByTheNext) {
    enum Disturbance { DELETE_FILE, DELETE_FOLDER, REPLACE_FOLDER, DELETE_PARENT };
    Interpose::redirect("/data/vendor", mFolder.path("absent"));
    const fs::path folder = mFolder.path("parent/logs");
    mProperties.set(kFolderProperty, folder.string());
    for (const auto disturbance : {DELETE_FILE, DELETE_FOLDER, REPLACE_FOLDER, DELETE_PARENT}) {
        SCOPED_TRACE(disturbance);
        mLog.clear();
        fs::create_directories(folder);
        RunningLogger logger;
        logger.onInit();
        logger.log("before");
        logger.onFlush(60);
        const fs::path first = fs::directory_iterator(folder)->path();
        const fs::path deleted[] = {first, folder, folder, folder.parent_path()};
        fs::remove_all(deleted[disturbance]);
        if (disturbance == DELETE_PARENT) {
            logger.log("lost");
            logger.onFlush(60);
            logger.log("lost");
            logger.onFlush(60);
        }
        if (disturbance >= REPLACE_FOLDER) {
            fs::create_directories(folder);
        }
        logger.log("after");
        logger.onFlush(60);
        logger.log("later");
        logger.onUninit();
        const fs::path second = fs::directory_iterator(folder)->path();
        EXPECT_THAT(second.string(), EndsWith("_02.txt"));
        EXPECT_THAT(splitLines(readFile(second)),
                    ElementsAre("-- CONTINUED --", EndsWith(" after"), EndsWith(" later")));
        const std::string text = "FileJLogWriter: file was deleted " + first.string();
        EXPECT_THAT(mLog.lines(), Contains(LogLine{ANDROID_LOG_WARN, kFileTag, text}).Times(1));
        EXPECT_EQ(mLog.count(kUnableToOpen), disturbance == DELETE_PARENT ? 2U : 0U);
        fs::remove(second);
    }
}

TEST_F(FileAloneJLoggerTest, IdleThreadWritesFewRecordsWithinItsInterval) {
    for (const char* interval : {"20", "0"}) {
        SCOPED_TRACE(interval);
        mProperties.set(kIntervalProperty, interval);
        RunningLogger logger;
        logger.onInit();
        logger.log("few");
        Faults::arm({});
        EXPECT_TRUE(await([&] {
            return Faults::calls(Call::FSYNC) > 0 && mFolder.logText().ends_with("few\n");
        }));
        logger.onUninit();
        fs::remove_all(mFolder.path());
    }
}

TEST_F(FileAloneJLoggerTest, FlushHasWrittenAndSyncedWhatWasLoggedBefore) {
    mProperties.set(kIntervalProperty, "100000");
    RunningLogger logger;
    logger.log("before the start");
    logger.onInit();
    Faults::arm({});
    for (uint32_t i = 1; i <= 3; ++i) {
        logger.log("flushed");
        logger.onFlush(60);
        EXPECT_THAT(splitLines(mFolder.logText()), SizeIs(i + 1));
        EXPECT_EQ(Faults::calls(Call::FSYNC), i);
    }
    logger.onFlush(60);
    EXPECT_EQ(Faults::calls(Call::FSYNC), 3U) << "nothing to write";
    // The thread is in its pause, since an idle step has ended the flush.
    logger.log("in a full buffer");
    fillBuffers(logger, 2);
    EXPECT_TRUE(await([&] { return mFolder.logText().ends_with("in a full buffer\n"); }));
    logger.log("drained");
    logger.onUninit();
    logger.log("too late");
    logger.onFlush(60);
    EXPECT_THAT(logger.queued(), SizeIs(1)) << "retired, and no thread to wait for";
    EXPECT_THAT(mFolder.logText(), EndsWith("drained\n"));
}

TEST_F(FileAloneJLoggerTest, ABufferIsRenderedOnlyWhenItsWritersAreDone) {
    RunningLogger logger;
    logger.log("first");
    const RunningLogger::Reservation record = logger.reserve(24);
    logger.log("second");
    logger.onInit();
    EXPECT_TRUE(await([&] { return logger.queued().size() == 1; })) << "retired at the interval";
    logger.onFlush(1);  // runs into its bound
    EXPECT_EQ(mFolder.logText(), "");
    logger.publish(record.header, record.buffer, RECORD_INCOMPLETE);
    logger.onFlush(60);
    EXPECT_THAT(splitLines(mFolder.logText()), SizeIs(2));
}

/// The logger of the handler of SIGALRM, which counts its runs.
RunningLogger* sHandlersLogger;
std::atomic<uint32_t> sHandlersRuns;

void setTimer(suseconds_t us) {
    const itimerval interval = {{0, us}, {0, us}};
    setitimer(ITIMER_REAL, &interval, nullptr);
}

TEST_F(FileAloneJLoggerTest, SignalHandlersLogUnlessTheirThreadIsToQueueABuffer) {
    constexpr unsigned int kRecords = 50000;
    constexpr uint32_t kRuns = 100;
    const std::string text(600, 't');  // so that buffers are often full
    RunningLogger logger;
    sHandlersLogger = &logger;
    sHandlersRuns = 0;
    signal(SIGALRM, [](int /*sig*/) {
        ++sHandlersRuns;
        sHandlersLogger->onLogEnter(1, "handler", 1);
    });
    {
        const JLogLock lock(logger.mMutex);
        raise(SIGALRM);  // needs no mutex
        EXPECT_EQ(logger.droppedInHandlers(), 0U);
        BufferState before;
        ASSERT_TRUE(logger.mCurrent.get()->reserve(
                BufferState::request(kBufferBytes - logger.mCurrent.get()->usedBytes(), false),
                before));
        raise(SIGALRM);
        EXPECT_EQ(logger.droppedInHandlers(), 1U);
        static_cast<void>(logger.mCurrent.get()->finishWriter());
    }
    logger.onInit();
    setTimer(100);
    unsigned int records = 0;
    for (; records < kRecords || sHandlersRuns < kRuns; ++records) {
        logger.log(text);
        if (records % 1000 == 0) {
            logger.onFlush(records % 2000 == 0 ? 0 : 60);
        }
    }
    setTimer(0);
    logger.onUninit();
    signal(SIGALRM, SIG_DFL);
    const std::vector<std::string> lines = splitLines(mFolder.logText());
    const auto handlersLines = static_cast<uint32_t>(std::count_if(
            lines.begin(), lines.end(),
            [](const std::string& line) { return line.find("handler #") != std::string::npos; }));
    EXPECT_EQ(lines.size() - handlersLines, records);
    EXPECT_EQ(handlersLines + logger.droppedInHandlers(), sHandlersRuns);
    EXPECT_GE(mLog.count("Records of signal handlers dropped"), 1U);
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
        const Interpose::Scope scope;
        RunningLogger logger;
        fillBuffers(logger, row.queuedBuffers + 1);
        if (row.flush) {
            logger.onFlush(0);
        }
        logger.onInit();
        EXPECT_TRUE(await([&] { return Interpose::niceValues() == row.niceValues; }));
        logger.onUninit();
        EXPECT_EQ(Interpose::niceValues(), row.niceValues);
    }
}

TEST_F(FileAloneJLoggerTest, ThreadTakesNoSignalsButItsOwnFaults) {
    static sigset_t mask;
    Interpose::onWrite([](int /*fd*/) { pthread_sigmask(SIG_BLOCK, nullptr, &mask); });
    RunningLogger logger;
    logger.onInit();
    logger.log("text");
    logger.onFlush(60);
    for (const int signal : {SIGTERM, SIGUSR1, SIGCHLD, SIGXFSZ, SIGALRM}) {
        EXPECT_EQ(sigismember(&mask, signal), 1) << signal;
    }
    for (const int signal : {SIGABRT, SIGSEGV, SIGBUS}) {
        EXPECT_EQ(sigismember(&mask, signal), 0) << signal;
    }
}

TEST_F(FileAloneJLoggerTest, MemoryReturnsAfterABurstAndThePoolIsEnoughForSmallOnes) {
    RunningLogger logger;
    fillBuffers(logger, 20);
    EXPECT_EQ(logger.owned(), 21U) << "the next one is there already";
    logger.onInit();
    logger.onFlush(60);
    EXPECT_TRUE(await([&] { return logger.owned() == 4; }))
            << "the current buffer and a pool of three";
    Faults::arm({});
    for (int round = 0; round < 10; ++round) {
        fillBuffers(logger, 2);
        logger.onFlush(60);
        ASSERT_TRUE(await([&] { return logger.queued().empty(); }));
    }
    EXPECT_EQ(Faults::calls(Call::MAP), 0U);
    EXPECT_EQ(logger.owned(), 4U);
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
        __android_log_set_minimum_priority(ANDROID_LOG_INFO);
        RunningLogger logger;
        __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);  // too late for reservations
        mLog.clear();
        fillBuffers(logger, 6);
        if (row.flush) {
            logger.onFlush(0);
        }
        logger.onInit();
        logger.onUninit();
        const std::string file = mFolder.path(mFolder.names().at(0));
        std::vector<std::string> expected;
        for (const std::string& status : row.status) {
            expected.push_back("File ULogger: " + status + " buffers queueing (" + file + ")");
        }
        EXPECT_EQ(mLog.texts("File ULogger: "), expected);
        fs::remove_all(mFolder.path());
    }
}

TEST_F(FileAloneJLoggerTest, StatusLineOfTheMonotonicClockCarriesBothTimes) {
    mProperties.set("vendor.debug.camera.jlog.monoclock", "1");
    RunningLogger logger;
    __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);
    logger.log("text");
    logger.onInit();
    logger.onFlush(60);
    const std::string head = "File ULogger: 1 logs written, 0 buffers queueing; mono = ";
    char now[40];
    FileJLoggerBase::getTimeStamp(CLOCK_MONOTONIC, now, sizeof(now));
    // The later one of two readings of a clock is the later text.
    EXPECT_THAT(mLog.texts("File ULogger: "),
                ElementsAre(AllOf(Lt(head + now + "~"),
                                  MatchesRegex(head + ".{21}, real = .{21} \\(.*_01.txt\\)"))));
}

TEST_F(FileAloneJLoggerTest, WithoutAFileBuffersAreReportedAndRecycled) {
    mProperties.set(kFolderProperty, mFolder.path("a/b"));
    Interpose::redirect("/data/vendor", mFolder.path("absent"));
    RunningLogger logger;
    fillBuffers(logger, 2);
    logger.onInit();
    logger.onFlush(60);
    EXPECT_THAT(logger.queued(), SizeIs(0));
    EXPECT_LE(logger.owned(), 4U);
    EXPECT_EQ(mLog.count(kUnableToOpen), 3U) << "once by the writer, once per buffer";
}

TEST_F(FileAloneJLoggerTest, WithoutAThreadTheNewestRecordsStayInBoundedMemory) {
    Faults::arm({{.call = Call::THREAD, .error = EAGAIN}});
    RunningLogger logger;
    const size_t descriptors = openDescriptors();
    logger.onInit();
    EXPECT_EQ(openDescriptors(), descriptors + 1) << "the crash writer's reserve alone";
    EXPECT_EQ(mLog.count("Unable to start the flush thread"), 1U);
    const RunningLogger::Reservation record = logger.reserve(24);
    for (int i = 0; i < 50; ++i) {
        fillBuffers(logger, 1);
        logger.onFlush(60);  // neither waits nor gives up full buffers for nearly empty ones
    }
    EXPECT_THAT(logger.queued(), SizeIs(4));
    EXPECT_LE(logger.owned(), 6U);
    ASSERT_EQ(logger.queued().front(), record.buffer) << "its writer is not done";
    logger.publish(record.header, record.buffer, RECORD_INCOMPLETE);
    logger.log("nearly empty");
    const auto full = logger.queued();
    logger.onFlush(60);
    EXPECT_EQ(logger.queued(), full);
    logger.onUninit();

    // A later start finds what was kept, and one file open at a time.
    Faults::disarm();
    logger.log("kept");
    logger.onInit();
    logger.onUninit();
    EXPECT_THAT(mFolder.logText(), EndsWith("kept\n"));
}

}  // namespace
}  // namespace JCam::Utils::JLog::File
