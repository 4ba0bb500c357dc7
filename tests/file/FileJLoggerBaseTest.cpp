#include "jlog/file/FileJLoggerBase.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <set>
#include <sstream>
#include <thread>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cutils/properties.h>

#include "jlog/file/FileJLogWriter.h"
#include "support/Faults.h"
#include "support/FileLoggerTest.h"

namespace JCam::Utils::JLog::File {
namespace {

using namespace Support;
using Faults::Call;
using namespace ::testing;

/// The records of `buffer`, in order.
std::vector<const LogHeader*> recordsOf(const Buffer& buffer) {
    std::vector<const LogHeader*> records;
    for (const char* place = buffer.data; place < buffer.end();) {
        records.push_back(reinterpret_cast<const LogHeader*>(place));
        place += records.back()->size();
    }
    return records;
}

std::string describe(const LogHeader* header) {
    std::ostringstream text;
    text << +header->type() << ' ' << header->size() << " bytes, module ";
    if (header->type() == RECORD_DETAILS) {
        const auto& record = *reinterpret_cast<const LogDetails*>(header);
        EXPECT_EQ(record.message - reinterpret_cast<const char*>(header),
                  sizeof(LogDetails) + strlen(record.name()) + 1);
        text << record.moduleId << ", level " << +record.level << ", " << record.name() << ": "
             << record.message;
    } else {
        const auto& record = *reinterpret_cast<const LogEnterExit*>(header);
        text << record.moduleId << ", serial " << record.serial << ", request "
             << +record.requestType << ' ' << record.requestNo << ", " << record.name();
    }
    return text.str();
}

using FileJLoggerBaseTest = FileLoggerTest;

TEST_F(FileJLoggerBaseTest, RecordsKeepWhatWasLoggedWithinTheirBounds) {
    BufferingLogger logger;
    const std::string longText(2000, 't');
    timespec before = {};
    clock_gettime(CLOCK_REALTIME, &before);
    logger.onLogEnter(MODULE_PREVIEW, std::string(200, 'n').c_str(), 42);
    logger.onLogDetails(0x6, "Tag", LEVEL_WARN, longText.c_str(), 5000);
    logger.onLogDetails(MODULE_VIDEO, "", static_cast<JLogLevel>(257), "unread", 0);
    logger.onLogDetails(MODULE_VIDEO, "Tag", LEVEL_INFO, nullptr, 7);
    logger.onLogExit(MODULE_CAPTURE, "", 0xFFFFFFFF);
    logger.onLogDetails(MODULE_VIDEO, "Tag", LEVEL_INFO, longText.c_str(), ~0UL);
    const std::vector<char> unterminated(16, 'u');
    logger.onLogDetails(MODULE_VIDEO, "Tag", LEVEL_INFO, unterminated.data(), 16);

    const Buffer& buffer = logger.current();
    EXPECT_EQ(buffer.writersPending(), 0U);
    std::vector<std::string> records;
    for (const LogHeader* record : recordsOf(buffer)) {
        records.push_back(describe(record));
        EXPECT_EQ(reinterpret_cast<uintptr_t>(record) % 8, 0U);
        EXPECT_EQ(record->tid, gettid());
        EXPECT_GE(record->timestamp.tv_sec, before.tv_sec);
    }
    // A level above 255 must not become one with a name. Details take no serial number.
    EXPECT_THAT(
            records,
            ElementsAre(
                    "1 176 bytes, module 4, serial 1, request 1 42, " + std::string(128, 'n'),
                    "7 1080 bytes, module 6, level 2, Tag: " + longText.substr(0, 1023),
                    "7 56 bytes, module 16, level 255, : ", "7 56 bytes, module 16, level 3, Tag: ",
                    "2 48 bytes, module 8, serial 2, request 1 4294967295, ",
                    "7 1080 bytes, module 16, level 3, Tag: " + longText.substr(0, 1023),
                    "7 72 bytes, module 16, level 3, Tag: uuuuuuuuuuuuuuuu"));
}

TEST_F(FileJLoggerBaseTest, ARecordThatDoesNotFitGoesToAFreshBuffer) {
    BufferingLogger logger;
    Buffer* first = &logger.current();
    ASSERT_TRUE(logger.logBytes(kBufferBytes - 48));
    EXPECT_TRUE(logger.logBytes(41)) << "fits exactly, aligned";
    EXPECT_EQ(&logger.current(), first);
    EXPECT_TRUE(logger.logBytes(24));
    EXPECT_THAT(logger.queued(), ElementsAre(first));
    EXPECT_EQ(first->usedBytes(), kBufferBytes);
    EXPECT_THAT(recordsOf(logger.current()), SizeIs(1));

    // A tail that is too small stays empty.
    Buffer* second = &logger.current();
    ASSERT_TRUE(logger.logBytes(kBufferBytes - 16));
    EXPECT_THAT(logger.queued(), ElementsAre(first, second));
    EXPECT_EQ(second->usedBytes(), 24U);
    ASSERT_TRUE(logger.logBytes(kBufferBytes));
    EXPECT_EQ(logger.current().usedBytes(), kBufferBytes);
    EXPECT_THAT(logger.queued(), SizeIs(3));

    EXPECT_FALSE(logger.logBytes(kBufferBytes + 1));
    EXPECT_FALSE(logger.logBytes(~0UL));
    EXPECT_THAT(logger.queued(), SizeIs(3)) << "nothing is reserved";
    EXPECT_THAT(mLog.lines(),
                ElementsAre(LogLine{ANDROID_LOG_ERROR, kFileTag, "Log size too large: 262152"},
                            LogLine{ANDROID_LOG_ERROR, kFileTag, "Log size too large: 0"}));
}

TEST_F(FileJLoggerBaseTest, RecycledBuffersAreUsedAgainAndAtMostThreeAreKept) {
    BufferingLogger logger;
    for (int i = 0; i < 6; ++i) {
        const BufferingLogger::Reservation record = logger.reserve(kBufferBytes);
        ASSERT_NE(record.header, nullptr);
        memset(static_cast<void*>(record.header + 1), 'x', kBufferBytes - sizeof(LogHeader));
        logger.publish(record.header, record.buffer, RECORD_INCOMPLETE);
    }
    const std::vector<Buffer*> used = logger.queued();
    for (size_t i = 0; i < used.size(); ++i) {
        logger.recycleFront();
    }
    EXPECT_EQ(logger.pooled(), 3U);
    // The third is the one that was made for the next retirement.
    Buffer* const last = used[1];
    EXPECT_FALSE(last->holdsRecords());
    ASSERT_TRUE(logger.logBytes(8 + 24));
    EXPECT_EQ(&logger.current(), last) << "the one used last is the one in the caches";
    EXPECT_EQ(logger.current().usedBytes(), 32U);
    EXPECT_TRUE(std::all_of<const char*>(logger.current().end(),
                                         logger.current().data + kBufferBytes,
                                         [](char byte) { return byte == 0; }))
            << "a crash dump takes what is not zero for a record";
    EXPECT_EQ(logger.pooled(), 2U);
}

TEST_F(FileJLoggerBaseTest, TheConsumerIsToldOfQueuedBuffersAndOfTheLastWriterThatItWaitsFor) {
    BufferingLogger logger;
    JLogCondition::Ticket seen = logger.mCond.ticket();
    const auto isTold = [&] {
        return std::exchange(seen, logger.mCond.ticket()) != logger.mCond.ticket();
    };
    const auto finish = [&](const BufferingLogger::Reservation& record) {
        logger.publish(record.header, record.buffer, RECORD_INCOMPLETE);
        return isTold();
    };
    const BufferingLogger::Reservation first = logger.reserve(24);
    const BufferingLogger::Reservation second = logger.reserve(24);
    const BufferingLogger::Reservation third = logger.reserve(kBufferBytes - 48);
    EXPECT_FALSE(isTold());
    ASSERT_TRUE(logger.logBytes(24));
    EXPECT_TRUE(isTold()) << "a buffer was queued";
    EXPECT_FALSE(finish(first)) << "nobody waits";
    EXPECT_EQ(first.buffer->awaitWriters(), 2U);
    EXPECT_FALSE(finish(second));
    EXPECT_TRUE(finish(third));
}

TEST_F(FileJLoggerBaseTest, AHeadIsReadableWhenItsBufferIsFreedAndRefusesReservations) {
    constexpr size_t kBuffers = 3000;
    constexpr BufferState kRequest = BufferState::request(24, false);
    BufferStore store;
    const auto makeAndFree = [&] {
        std::set<Buffer*> heads;
        std::vector<std::unique_ptr<Buffer>> buffers;
        for (size_t i = 0; i < kBuffers; ++i) {
            buffers.push_back(store.make(store.mapRecords()));
            heads.insert(buffers.back().get());
            BufferState before;
            EXPECT_FALSE(buffers.back()->reserve(kRequest, before)) << "before it is current";
            buffers.back()->open({});
            EXPECT_TRUE(buffers.back()->reserve(kRequest, before));
            buffers.back()->close();
            EXPECT_FALSE(std::exchange(buffers.back()->pagesMade, true));
        }
        return heads;
    };
    const std::set<Buffer*> heads = makeAndFree();
    EXPECT_THAT(heads, SizeIs(kBuffers));
    for (Buffer* freed : heads) {
        BufferState before;
        EXPECT_FALSE(freed->reserve(kRequest, before));
    }
    EXPECT_EQ(makeAndFree(), heads) << "the memory of heads does not grow";
}

TEST_F(FileJLoggerBaseTest, ABufferMayBeFreedWhileAnotherOneIsMade) {
    constexpr int kRounds = 5000;
    BufferStore store;
    std::atomic<Buffer*> toBeFreed{nullptr};
    std::thread freer([&] {
        for (int freed = 0; freed < kRounds;) {
            const std::unique_ptr<Buffer> buffer(toBeFreed.exchange(nullptr));
            if (buffer != nullptr) {
                ++freed;
            } else {
                std::this_thread::yield();
            }
        }
    });
    std::set<Buffer*> heads;
    for (int i = 0; i < kRounds; ++i) {
        std::unique_ptr<Buffer> buffer = store.make(store.mapRecords());
        heads.insert(buffer.get());
        while (toBeFreed != nullptr) {
            std::this_thread::yield();
        }
        *buffer->data = 'x';  // is still there
        toBeFreed = buffer.release();
    }
    freer.join();
    EXPECT_LE(heads.size(), 3U) << "as many as there are at one time";
}

/// Pages of `buffer` that the kernel has made.
size_t residentPages(Buffer& buffer) {
    const auto pageBytes = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    std::vector<unsigned char> pages(kBufferBytes / pageBytes);
    EXPECT_EQ(mincore(buffer.data, kBufferBytes, pages.data()), 0);
    return static_cast<size_t>(std::count(pages.begin(), pages.end(), 1));
}

TEST_F(FileJLoggerBaseTest, PagesAreMadeBeforeABufferIsUsedOrElseByItsFirstWriter) {
    const size_t all = residentPages(BufferingLogger().current());
    EXPECT_EQ(all, kBufferBytes / static_cast<size_t>(sysconf(_SC_PAGESIZE)))
            << "the first buffer is made before anybody logs";
    for (const bool oldKernel : {false, true}) {
        SCOPED_TRACE(oldKernel);
        const Faults::Rule noAdvice = {
                .call = Call::ADVISE, .error = EINVAL, .times = oldKernel ? UINT32_MAX : 0};
        BufferingLogger logger;
        Faults::arm({noAdvice, {.call = Call::MAP, .error = ENOMEM, .times = 1}});
        ASSERT_TRUE(logger.logBytes(kBufferBytes));
        EXPECT_EQ(logger.pooled(), 0U) << "there was no memory for the next one";
        const BufferingLogger::Reservation record = logger.reserve(48);
        char* others = record.buffer->data + kBufferBytes / 2;
        *others = 'x';
        EXPECT_LT(residentPages(*record.buffer), 4U) << "not before the record is complete";
        errno = EBADF;
        logger.publish(record.header, record.buffer, RECORD_INCOMPLETE);
        EXPECT_EQ(errno, EBADF);
        EXPECT_EQ(residentPages(logger.current()), all);
        EXPECT_EQ(*others, 'x') << "what others write meanwhile stays";
        EXPECT_EQ(record.header->size(), 48U);
        EXPECT_EQ(logger.pooled(), 1U);
        ASSERT_NE(logger.reserve(kBufferBytes).header, nullptr);
        EXPECT_EQ(residentPages(logger.current()), all) << "made in advance";
    }
}

TEST_F(FileJLoggerBaseTest, IncompleteAndUnknownRecordsAreSteppedOverAndDamagedSizesEndTheWalk) {
    FileJLogWriter writer;
    writer.mFolder = mFolder.path();
    ASSERT_TRUE(writer.open(true, "", true));
    BufferingLogger logger;
    const Buffer& buffer = logger.current();
    EXPECT_EQ(logger.reserve(100).header->type(), RECORD_INCOMPLETE);
    EXPECT_EQ(buffer.writersPending(), 1U);
    ASSERT_TRUE(logger.logBytes(200));
    // Writers that have got no further than the exchange, and so have written no size.
    BufferState before;
    ASSERT_TRUE(logger.current().reserve(BufferState::request(1000, false), before));
    ASSERT_TRUE(logger.current().reserve(BufferState::request(24, false), before));
    logger.log("behind");
    LogHeader* last = logger.reserve(48).header;
    for (const RecordType type : {RECORD_INCOMPLETE, RECORD_ENTER, RECORD_EXIT, RECORD_DETAILS}) {
        // Three are no sizes, one leads out of what is there, one is too small for its fields.
        for (const uint32_t size : {0U, 16U, 44U, 56U, 32U}) {
            last->reserve(size);
            last->publish(type);
            EXPECT_EQ(BufferingLogger::renderRecords(buffer, writer), size == 32 ? 4U : 3U);
        }
    }
    EXPECT_EQ(writer.appendRecords(buffer.end(), buffer.data), 0U) << "an end that was damaged";
    writer.close();
    EXPECT_THAT(splitLines(mFolder.logText()), AllOf(SizeIs(20), Each(EndsWith(": behind"))));
}

TEST_F(FileJLoggerBaseTest, TimeStampsAreOfTheClockThatAPropertyChooses) {
    for (const char* value : {"", "0", "2", "1"}) {
        const Properties properties{{"vendor.debug.camera.jlog.monoclock", value}};
        BufferingLogger logger;
        ASSERT_TRUE(logger.logBytes(24));
        timespec mono = {};
        clock_gettime(CLOCK_MONOTONIC, &mono);
        // Uptime is far from the time since 1970.
        const bool isMono = recordsOf(logger.current())[0]->timestamp.tv_sec <= mono.tv_sec;
        EXPECT_EQ(isMono, std::string(value) == "1") << value;
    }
    // Without a clock they are zero, and not what a buffer of the pool held before.
    BufferingLogger logger;
    ASSERT_TRUE(logger.logBytes(kBufferBytes));
    ASSERT_TRUE(logger.logBytes(kBufferBytes));
    logger.recycleFront();
    Faults::arm({{.call = Call::CLOCK, .error = EINVAL}});
    ASSERT_TRUE(logger.logBytes(sizeof(LogHeader)));
    const LogHeader& record = *recordsOf(logger.current()).at(0);
    EXPECT_EQ(record.timestamp.tv_sec, 0);
    EXPECT_EQ(record.timestamp.tv_nsec, 0);
}

TEST_F(FileJLoggerBaseTest, WithoutMemoryRecordsAreDroppedWithOneLineUntilItIsBack) {
    const LogLine outOfMemory = {ANDROID_LOG_ERROR, kFileTag,
                                 "Out of memory: no buffer of " + std::to_string(kBufferBytes) +
                                         " bytes, dropping records"};
    BufferingLogger logger;
    Faults::arm({{.call = Call::MAP, .error = ENOMEM}});
    ASSERT_TRUE(logger.logBytes(kBufferBytes));
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(logger.logBytes(24));
    }
    EXPECT_THAT(logger.queued(), SizeIs(1)) << "what was logged before is still to be written";
    logger.recycleFront();
    EXPECT_TRUE(logger.logBytes(kBufferBytes)) << "a recycled buffer needs no memory";
    EXPECT_FALSE(logger.logBytes(24));
    EXPECT_THAT(mLog.lines(), ElementsAre(outOfMemory));
    Faults::disarm();
    EXPECT_TRUE(logger.logBytes(kBufferBytes));
    Faults::arm({{.call = Call::MAP, .error = ENOMEM}});
    EXPECT_TRUE(logger.logBytes(kBufferBytes)) << "there was one in advance";
    EXPECT_FALSE(logger.logBytes(24));
    EXPECT_THAT(mLog.lines(), ElementsAre(outOfMemory, outOfMemory)) << "a new outage is news";
}

TEST_F(FileJLoggerBaseTest, EveryReservationIsTracedWhereDebugLinesAreLoggable) {
    __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);
    BufferingLogger logger;
    ASSERT_TRUE(logger.logBytes(25));
    char expected[100];
    snprintf(expected, sizeof(expected), "size = 32, %p of buffer %p",
             static_cast<void*>(logger.current().data), static_cast<void*>(&logger.current()));
    EXPECT_THAT(mLog.lines(), ElementsAre(LogLine{ANDROID_LOG_DEBUG, kFileTag, expected}));
}

TEST_F(FileJLoggerBaseTest, TimeStampIsLocalTimeWithMicroseconds) {
    char stamp[40];
    EXPECT_EQ(FileJLoggerBase::getTimeStamp(CLOCK_REALTIME, stamp, sizeof(stamp)), stamp);
    EXPECT_THAT(std::string(stamp),
                MatchesRegex("[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6}"));
    // Too small for the date: only the microseconds are left, and those are cut.
    FileJLoggerBase::getTimeStamp(CLOCK_REALTIME, stamp, 8);
    EXPECT_THAT(std::string(stamp), MatchesRegex("\\.[0-9]{6}"));
    EXPECT_THAT(mLog.lines(), ElementsAre(LogLine{ANDROID_LOG_ERROR, kFileTag, "strftime failed"}));
}

TEST_F(FileJLoggerBaseTest, FolderPathIsTheProperty) {
    BufferingLogger logger;
    for (const std::string& folder : {mFolder.path(), mFolder.path("new"), mFolder.path("a/b")}) {
        mProperties.set(kFolderProperty, folder);
        char path[PROPERTY_VALUE_MAX];
        logger.getFolderPath(path, sizeof(path));
        EXPECT_EQ(path, folder);
    }
    EXPECT_THAT(mFolder.names(), ElementsAre("new"));
    const std::string failed = "mkdir(" + mFolder.path("a/b") + ") failed, errno = 2";
    EXPECT_THAT(mLog.lines(), ElementsAre(LogLine{ANDROID_LOG_INFO, kFileTag, failed}));
}

}  // namespace
}  // namespace JCam::Utils::JLog::File
