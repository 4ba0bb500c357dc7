#include "jlog/file/FileJLoggerBase.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <android/log.h>
#include <cutils/properties.h>

#include "jlog/file/FileJLogWriter.h"
#include "support/Faults.h"
#include "support/Interpose.h"
#include "support/LogCapture.h"
#include "support/Properties.h"
#include "support/TempFolder.h"

namespace JCam::Utils::JLog::File {
namespace {

namespace Faults = Support::Faults;
using Faults::Call;
using Support::LogLine;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

/// The base as a subclass sees it, without a consumer.
class OpenLogger : public FileJLoggerBase {
  public:
    using FileJLoggerBase::allocLogSpace;
    using FileJLoggerBase::publish;
    using FileJLoggerBase::recycleFront;
    using FileJLoggerBase::renderRecords;

    /// The current buffer.
    Buffer& current() {
        const JLogLock lock(mMutex);
        return *mCurrent.get();
    }
    /// How many buffers wait in the pool.
    size_t pooled() {
        const JLogLock lock(mMutex);
        return mEmptyBuffers.size();
    }
    /// The queued buffers, oldest first.
    std::vector<Buffer*> queued() {
        const JLogLock lock(mMutex);
        std::vector<Buffer*> result;
        for (Buffer* buffer = mFullBuffers.front(); buffer != nullptr;
             buffer = buffer->next.load()) {
            result.push_back(buffer);
        }
        return result;
    }
    /// Reserves and completes a record of `size` bytes.
    bool log(unsigned long size) {
        LogHeader* header = nullptr;
        Buffer* buffer = nullptr;
        if (!allocLogSpace(size, &header, &buffer, nullptr)) {
            return false;
        }
        publish(header, buffer, static_cast<RecordType>(99));  // of no type that is rendered
        return true;
    }
};

/// The records of `buffer`, in order.
std::vector<const LogHeader*> recordsOf(const Buffer& buffer) {
    std::vector<const LogHeader*> records;
    for (const char* place = buffer.data; place < buffer.end();) {
        records.push_back(reinterpret_cast<const LogHeader*>(place));
        place += records.back()->size();
    }
    return records;
}

const LogEnterExit& asEnterExit(const LogHeader* header) {
    return *reinterpret_cast<const LogEnterExit*>(header);
}
const LogDetails& asDetails(const LogHeader* header) {
    return *reinterpret_cast<const LogDetails*>(header);
}

/// A consumer of its own kind.
class MovingLogger : public FileJLoggerBase {
  public:
    void moveBuffers() {
        const JLogLock lock(mMutex);
        std::unique_ptr<Buffer> fresh = allocEmptyBuffer();
        ASSERT_NE(fresh, nullptr);
        fresh->makePages();
        Buffer* const retired = mCurrent.get();
        mFullBuffers.pushBackFrom(mCurrent, std::move(fresh));
        EXPECT_EQ(mFullBuffers.front(), retired);
        EXPECT_EQ(mEmptyBuffers.put(mFullBuffers.remove(retired)), nullptr);
        EXPECT_EQ(mEmptyBuffers.take().get(), retired);
    }
};

class FileJLoggerBaseTest : public ::testing::Test {
  protected:
    /// Keeps the line of every reservation out of the log, as on a device.
    FileJLoggerBaseTest() { __android_log_set_minimum_priority(ANDROID_LOG_INFO); }
    ~FileJLoggerBaseTest() override { __android_log_set_minimum_priority(ANDROID_LOG_DEFAULT); }

    Support::LogCapture mLog;
    Support::Interpose::Scope mInterpose;
};

TEST_F(FileJLoggerBaseTest, SubclassesLinkWithAllThatTheyAreOffered) {
    MovingLogger().moveBuffers();
    EXPECT_EQ(Support::Interpose::liveBuffers(), 0);
}

TEST_F(FileJLoggerBaseTest, RecordsKeepWhatWasLoggedWithinTheirBounds) {
    OpenLogger logger;
    const std::string longText(2000, 't');
    timespec before = {};
    clock_gettime(CLOCK_REALTIME, &before);
    logger.onLogEnter(MODULE_PREVIEW, std::string(200, 'n').c_str(), 42);
    logger.onLogDetails(0x6, "Tag", LEVEL_WARN, longText.c_str(), 5000);
    logger.onLogDetails(MODULE_VIDEO, "", static_cast<JLogLevel>(257), "unread", 0);
    logger.onLogDetails(MODULE_VIDEO, "Tag", LEVEL_INFO, nullptr, 7);
    logger.onLogExit(MODULE_CAPTURE, "", 0xFFFFFFFF);
    logger.onLogDetails(MODULE_VIDEO, "Tag", LEVEL_INFO, longText.c_str(), ~0UL);
    timespec after = {};
    clock_gettime(CLOCK_REALTIME, &after);

    const Buffer& buffer = logger.current();
    const auto records = recordsOf(buffer);
    ASSERT_EQ(records.size(), 6U);
    for (const LogHeader* record : records) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(record) % 8, 0U);
        EXPECT_EQ(record->size() % 8, 0U);
        EXPECT_EQ(record->tid, gettid());
        EXPECT_GE(record->timestamp.tv_sec, before.tv_sec);
        EXPECT_LE(record->timestamp.tv_sec, after.tv_sec);
    }
    EXPECT_EQ(buffer.writersPending(), 0U);
    EXPECT_EQ(buffer.freeBytes, kBufferBytes - static_cast<size_t>(buffer.end() - buffer.data));

    const LogEnterExit& enter = asEnterExit(records[0]);
    EXPECT_EQ(enter.header.type(), RECORD_ENTER);
    EXPECT_EQ(enter.header.size(), 176U);  // 40 + 128 + 1, aligned
    EXPECT_EQ(enter.serial, 1U);
    EXPECT_EQ(enter.moduleId, MODULE_PREVIEW);
    EXPECT_EQ(enter.requestNo, 42U);
    EXPECT_EQ(enter.requestType, 1U);
    EXPECT_EQ(enter.name(), std::string(128, 'n'));

    const LogDetails& cut = asDetails(records[1]);
    EXPECT_EQ(cut.header.type(), RECORD_DETAILS);
    EXPECT_EQ(cut.header.size(), 1080U);  // 48 + 3 + 1 + 1024, aligned
    EXPECT_EQ(cut.moduleId, 0x6U);
    EXPECT_EQ(cut.level, LEVEL_WARN);
    EXPECT_STREQ(cut.name(), "Tag");
    EXPECT_EQ(cut.message, std::string(1023, 't'));
    EXPECT_EQ(cut.message, reinterpret_cast<const char*>(&cut) + 52);

    const LogDetails& empty = asDetails(records[2]);
    EXPECT_STREQ(empty.name(), "");
    EXPECT_STREQ(empty.message, "");
    EXPECT_GT(empty.level, LEVEL_VERBOSE) << "a level above 255 must not become one with a name";
    EXPECT_STREQ(asDetails(records[3]).message, "");

    const LogEnterExit& exit = asEnterExit(records[4]);
    EXPECT_EQ(exit.header.type(), RECORD_EXIT);
    EXPECT_EQ(exit.header.size(), 48U);
    EXPECT_EQ(exit.serial, 2U) << "details take no serial number";
    EXPECT_STREQ(exit.name(), "");
    EXPECT_EQ(asDetails(records[5]).message, std::string(1023, 't'));
}

TEST_F(FileJLoggerBaseTest, ARecordThatDoesNotFitGoesToAFreshBuffer) {
    OpenLogger logger;
    Buffer* first = &logger.current();
    ASSERT_TRUE(logger.log(kBufferBytes - 48));
    EXPECT_TRUE(logger.log(41)) << "fits exactly, aligned";
    EXPECT_EQ(&logger.current(), first);
    EXPECT_TRUE(logger.log(24));
    EXPECT_THAT(logger.queued(), ElementsAre(first));
    EXPECT_EQ(first->freeBytes, 0U);
    EXPECT_EQ(recordsOf(logger.current()).size(), 1U);

    // A tail that is too small stays empty.
    Buffer* second = &logger.current();
    ASSERT_TRUE(logger.log(kBufferBytes - 16));
    EXPECT_THAT(logger.queued(), ElementsAre(first, second));
    EXPECT_EQ(second->freeBytes, kBufferBytes - 24);
    ASSERT_TRUE(logger.log(kBufferBytes));
    EXPECT_EQ(logger.current().freeBytes, 0U);
    EXPECT_EQ(logger.queued().size(), 3U);
}

TEST_F(FileJLoggerBaseTest, ASizeBeyondABufferIsRefusedAndReservesNothing) {
    OpenLogger logger;
    EXPECT_FALSE(logger.log(kBufferBytes + 1));
    EXPECT_FALSE(logger.log(~0UL));
    EXPECT_FALSE(logger.current().holdsRecords());
    EXPECT_THAT(logger.queued(), IsEmpty());
    EXPECT_THAT(
            mLog.lines(),
            ElementsAre(
                    LogLine{ANDROID_LOG_ERROR, "FileAloneJLogger", "Log size too large: 262152"},
                    LogLine{ANDROID_LOG_ERROR, "FileAloneJLogger", "Log size too large: 0"}));
}

TEST_F(FileJLoggerBaseTest, RecycledBuffersAreUsedAgainAndAtMostThreeAreKept) {
    OpenLogger logger;
    for (int i = 0; i < 6; ++i) {
        ASSERT_TRUE(logger.log(kBufferBytes));
    }
    std::vector<Buffer*> used = logger.queued();
    ASSERT_EQ(used.size(), 5U);
    for (int i = 0; i < 5; ++i) {
        logger.recycleFront();
    }
    EXPECT_EQ(logger.pooled(), 3U);
    ASSERT_TRUE(logger.log(8 + 24));
    EXPECT_EQ(&logger.current(), used.back()) << "the one used last is the one in the caches";
    EXPECT_EQ(logger.current().freeBytes, kBufferBytes - 32);
    EXPECT_EQ(logger.pooled(), 2U);
}

/// Pages of `buffer` that the kernel has made.
size_t residentPages(Buffer& buffer) {
    const auto pageBytes = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    std::vector<unsigned char> pages((sizeof(Buffer) + pageBytes - 1) / pageBytes);
    EXPECT_EQ(mincore(&buffer, sizeof(Buffer), pages.data()), 0);
    return static_cast<size_t>(std::count(pages.begin(), pages.end(), 1));
}

TEST_F(FileJLoggerBaseTest, TheFirstWriterOfANewBufferHasItsPagesMade) {
    const size_t all = residentPages(OpenLogger().current());
    EXPECT_EQ(all, (sizeof(Buffer) + static_cast<size_t>(sysconf(_SC_PAGESIZE)) - 1) /
                           static_cast<size_t>(sysconf(_SC_PAGESIZE)))
            << "the first buffer is made before anybody logs";
    for (const bool oldKernel : {false, true}) {
        SCOPED_TRACE(oldKernel);
        if (oldKernel) {
            Faults::arm({{.call = Call::ADVISE, .error = EINVAL}});
        }
        OpenLogger logger;
        ASSERT_TRUE(logger.log(kBufferBytes));
        LogHeader* header = nullptr;
        Buffer* buffer = nullptr;
        ASSERT_TRUE(logger.allocLogSpace(48, &header, &buffer, nullptr));
        EXPECT_LT(residentPages(*buffer), 3U) << "not before the record is complete";
        errno = EBADF;
        logger.publish(header, buffer, static_cast<RecordType>(99));
        EXPECT_EQ(errno, EBADF);
        EXPECT_EQ(residentPages(logger.current()), all);
        EXPECT_EQ(recordsOf(*buffer).size(), 1U);
        EXPECT_EQ(header->size(), 48U);
        EXPECT_EQ(logger.pooled(), 0U) << "nothing is made that nobody has asked for";
    }
}

TEST_F(FileJLoggerBaseTest, IncompleteAndUnknownRecordsAreSteppedOverAndDamagedSizesEndTheWalk) {
    const Support::TempFolder folder;
    FileJLogWriter writer;
    writer.mFolder = folder.path();
    ASSERT_TRUE(writer.open(true, "", true));
    OpenLogger logger;
    LogHeader* header = nullptr;
    Buffer* buffer = nullptr;
    unsigned int serial = 0;
    logger.onLogDetails(1, "Tag", LEVEL_INFO, "before", 6);
    ASSERT_TRUE(logger.allocLogSpace(100, &header, &buffer, &serial));
    EXPECT_EQ(header->type(), RECORD_INCOMPLETE);
    EXPECT_EQ(buffer->writersPending(), 1U);
    ASSERT_TRUE(logger.log(200));
    logger.onLogDetails(1, "Tag", LEVEL_INFO, "behind", 6);
    EXPECT_EQ(OpenLogger::renderRecords(*buffer, writer), 4U);
    ASSERT_TRUE(logger.allocLogSpace(48, &header, &buffer, nullptr));
    for (const RecordType type : {RECORD_INCOMPLETE, RECORD_ENTER, RECORD_EXIT, RECORD_DETAILS}) {
        // The first three are no sizes, the last leads out of what is there.
        for (const uint32_t size : {0U, 16U, 44U, 56U}) {
            header->reserve(size);
            header->publish(type);
            EXPECT_EQ(OpenLogger::renderRecords(*buffer, writer), 4U) << +type << ' ' << size;
        }
    }
    header->reserve(32);  // too small for its fields
    header->publish(RECORD_DETAILS);
    EXPECT_EQ(OpenLogger::renderRecords(*buffer, writer), 5U);
    EXPECT_EQ(writer.appendRecords(buffer->end(), buffer->data), 0U) << "an end that was damaged";
    writer.close();
    const auto lines = Support::splitLines(folder.logText());
    ASSERT_EQ(lines.size(), 36U);
    for (size_t i = 0; i < lines.size(); i += 2) {
        EXPECT_THAT(lines[i], EndsWith(": before"));
        EXPECT_THAT(lines[i + 1], EndsWith(": behind"));
    }
}

TEST_F(FileJLoggerBaseTest, MonotonicClockIsChosenByProperty) {
    for (const char* value : {"", "0", "2", "1"}) {
        const Support::Properties properties{{"vendor.debug.camera.jlog.monoclock", value}};
        OpenLogger logger;
        ASSERT_TRUE(logger.log(24));
        timespec mono = {};
        clock_gettime(CLOCK_MONOTONIC, &mono);
        // Uptime is far from the time since 1970.
        const bool isMono = recordsOf(logger.current())[0]->timestamp.tv_sec <= mono.tv_sec;
        EXPECT_EQ(isMono, std::string(value) == "1") << value;
    }
}

TEST_F(FileJLoggerBaseTest, WithoutMemoryRecordsAreDroppedWithOneLineUntilItIsBack) {
    OpenLogger logger;
    ASSERT_TRUE(logger.log(kBufferBytes));
    Faults::arm({{.call = Call::MAP, .error = ENOMEM}});
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(logger.log(24));
    }
    EXPECT_THAT(mLog.lines(), ElementsAre(LogLine{ANDROID_LOG_ERROR, "FileAloneJLogger",
                                                  "Out of memory: no buffer of " +
                                                          std::to_string(sizeof(Buffer)) +
                                                          " bytes, dropping records"}));
    EXPECT_EQ(logger.queued().size(), 1U) << "what was logged before is still to be written";
    logger.recycleFront();
    EXPECT_TRUE(logger.log(kBufferBytes)) << "a recycled buffer needs no memory";
    EXPECT_FALSE(logger.log(24));
    EXPECT_EQ(mLog.lines().size(), 1U);
    Faults::disarm();
    EXPECT_TRUE(logger.log(kBufferBytes));
    Faults::arm({{.call = Call::MAP, .error = ENOMEM}});
    EXPECT_FALSE(logger.log(24));
    EXPECT_EQ(mLog.lines().size(), 2U) << "a new outage is news";
}

TEST_F(FileJLoggerBaseTest, EveryReservationIsTracedWhereDebugLinesAreLoggable) {
    OpenLogger quiet;
    ASSERT_TRUE(quiet.log(24));
    EXPECT_THAT(mLog.lines(), IsEmpty());
    __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);
    OpenLogger logger;
    ASSERT_TRUE(logger.log(25));
    char expected[100];
    snprintf(expected, sizeof(expected), "size = 32, %p of buffer %p",
             static_cast<void*>(logger.current().data), static_cast<void*>(&logger.current()));
    EXPECT_THAT(mLog.lines(),
                ElementsAre(LogLine{ANDROID_LOG_DEBUG, "FileAloneJLogger", expected}));
}

TEST_F(FileJLoggerBaseTest, TimeStampIsLocalTimeWithMicroseconds) {
    char stamp[40];
    memset(stamp, 'x', sizeof(stamp));
    EXPECT_EQ(FileJLoggerBase::getTimeStamp(CLOCK_REALTIME, stamp, sizeof(stamp)), stamp);
    EXPECT_THAT(std::string(stamp),
                MatchesRegex("[0-9][0-9]-[0-9][0-9] [0-9][0-9]:[0-9][0-9]:[0-9][0-9]\\.[0-9]{6}"));
    EXPECT_EQ(strlen(stamp), 21U);
    // Too small for the date: only the microseconds are left, and those are cut.
    FileJLoggerBase::getTimeStamp(CLOCK_REALTIME, stamp, 8);
    EXPECT_THAT(std::string(stamp), MatchesRegex("\\.[0-9]{6}"));
    EXPECT_THAT(mLog.lines(),
                ElementsAre(LogLine{ANDROID_LOG_ERROR, "FileAloneJLogger", "strftime failed"}));
}

TEST_F(FileJLoggerBaseTest, FolderPathIsTheProperty) {
    const Support::TempFolder folder;
    OpenLogger logger;
    char path[PROPERTY_VALUE_MAX];
    {
        const Support::Properties properties{
                {"vendor.debug.camera.ulog.folder", folder.path("logs")}};
        logger.getFolderPath(path, sizeof(path));
        EXPECT_EQ(path, folder.path("logs"));
        EXPECT_TRUE(std::filesystem::is_directory(path));
        logger.getFolderPath(path, sizeof(path));  // there already
        EXPECT_THAT(mLog.lines(), IsEmpty());
    }
    const Support::Properties properties{{"vendor.debug.camera.ulog.folder", folder.path("a/b")}};
    logger.getFolderPath(path, sizeof(path));
    EXPECT_THAT(mLog.lines(),
                ElementsAre(LogLine{ANDROID_LOG_INFO, "FileAloneJLogger",
                                    "mkdir(" + folder.path("a/b") +
                                            ") failed, errno = " + std::to_string(ENOENT)}));
}

TEST_F(FileJLoggerBaseTest, ARecordWithoutAClockHasTheTimeZero) {
    OpenLogger logger;
    // Through the pool, so that the memory holds the stamp of another record.
    ASSERT_TRUE(logger.log(kBufferBytes));
    ASSERT_TRUE(logger.log(kBufferBytes));
    logger.recycleFront();
    Faults::arm({{.call = Call::CLOCK, .error = EINVAL}});
    ASSERT_TRUE(logger.log(sizeof(LogHeader)));
    Faults::disarm();
    ASSERT_EQ(Faults::struck(), 1U);
    const LogHeader& record = *recordsOf(logger.current()).at(0);
    EXPECT_EQ(record.timestamp.tv_sec, 0);
    EXPECT_EQ(record.timestamp.tv_nsec, 0);
}

}  // namespace
}  // namespace JCam::Utils::JLog::File
