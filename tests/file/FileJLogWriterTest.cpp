#include "jlog/file/FileJLogWriter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <ctime>
#include <filesystem>
#include <initializer_list>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/Faults.h"
#include "support/FileLoggerTest.h"
#include "support/Records.h"
#include "support/ReferenceWriter.h"

namespace JCam::Utils::JLog::File {
namespace {

using namespace Support;
using Faults::Call;
using namespace ::testing;

constexpr int64_t kMiB = 0x100000;

class FileJLogWriterTest : public FileLoggerTest {
  protected:
    FileJLogWriterTest() {
        setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
        tzset();
        mWriter.mFolder = mFolder.path();
        Interpose::redirect("/data/vendor", mFallback.path());
    }

    /// Of the file opened last.
    [[nodiscard]] std::string path() const { return mWriter.mFilePath.c_str(); }
    [[nodiscard]] uintmax_t fileBytes() const { return std::filesystem::file_size(path()); }

    /// A sparse file whose age is `order`: the smallest is the oldest.
    static void makeFile(const std::string& path, int64_t bytes, int order) {
        writeFile(path, "");
        std::filesystem::resize_file(path, static_cast<uintmax_t>(bytes));
        const timespec times[] = {{1000 + order, 0}, {1000 + order, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    }

    TempFolder mFallback;
    FileJLogWriter mWriter;
};

TEST_F(FileJLogWriterTest, LinesAreExactlyThoseOfTheFormat) {
    ASSERT_TRUE(mWriter.open(true, "", false));
    const timespec summer = {1710512730, 123456789};  // 2024-03-15 15:25:30 in the zone above
    mWriter.onLogEnter(&Record::enterExit(4350, summer, 17, 4, 42, "processFrame").asEnterExit());
    mWriter.onLogExit(&Record::enterExit(7, {0, 999}, 18, 6, 0, "").asEnterExit());
    mWriter.onLogDetails(&Record::details(1234567, summer, 3, "Stream", "done").asDetails());
    mWriter.onLogDetails(&Record::details(1, summer, 4, "TwelveLetter", "two\nlines").asDetails());
    mWriter.writeString("%s : addr = %p\n", "SIGSEGV", reinterpret_cast<void*>(0x10));
    mWriter.writeString("%d|%05d|%d|%u|%02u|%x\n", 77, -77, INT_MIN, UINT_MAX, 7, 0xBEEF);
    mWriter.close();
    char pid[16];
    snprintf(pid, sizeof(pid), " %5d ", getpid());
    const std::string origin = "03-15 15:25:30.123456" + std::string(pid);
    EXPECT_EQ(mFolder.logText(),
              origin + " 4350 D JLog    : R AppRequest:42 M[Preview:4] +  :processFrame #17\n" +
                      "01-01 01:00:00.000000" + pid +
                      "    7 D JLog    : R AppRequest:0 M[(null):6] -  : #18\n" +  //
                      origin + "1234567 I Stream  : done\n" +                      //
                      origin + "    1 D TwelveLetter: two\nlines\n" +
                      "SIGSEGV : addr = 0x10\n"
                      "77|-0077|-2147483648|4294967295|07|beef\n");
}

/// Ordinary and odd values.
class Dice {
  public:
    unsigned int roll(unsigned int end) { return static_cast<unsigned int>(mEngine() % end); }
    template <typename T>
    T oneOf(std::initializer_list<T> values) {
        return values.begin()[roll(static_cast<unsigned int>(values.size()))];
    }
    unsigned int number() {
        const unsigned int number = roll(~0U) >> roll(32);
        return oneOf({number, number, number, ~0U - number % 2});
    }
    /// Mostly the same as before, or one more.
    void advance(unsigned int& last) { last = roll(128) == 0 ? number() : last + roll(2); }
    /// Mostly short, sometimes as long as can be, of all bytes but NUL.
    std::string text(unsigned int maxChars) {
        std::string text(oneOf({maxChars - roll(3), roll(1 + maxChars / (1 + roll(16)))}), ' ');
        std::generate(text.begin(), text.end(),
                      [this] { return static_cast<char>(1 + roll(255)); });
        return text;
    }
    timespec time() {
        if (roll(4) == 0) {
            mSecond = roll(8) != 0 ? time_t{roll(~0U)} : oneOf({0L, -1L, LONG_MAX, LONG_MIN + 1});
        }
        const long odd = oneOf({-1L, -1000L, -123456789L, 1000000000L, LONG_MAX, LONG_MIN});
        return {mSecond, roll(16) != 0 ? long{roll(1000000000)} : odd};
    }

  private:
    std::mt19937 mEngine{20240315};
    time_t mSecond{0};
};

/// Renders records of every kind and size through `writer`, which writes to `folder`, and through
/// the reference.
void compareWithReference(FileJLogWriter& writer, const TempFolder& folder) {
    std::string expected;
    size_t cut = 0;
    ReferenceWriter reference(getpid(), [&](const char* text, size_t bytes) {
        expected.append(text, bytes);
        cut += bytes == 24575 ? 1 : 0;
    });
    ASSERT_TRUE(writer.open(true, "", true));
    Dice dice;
    unsigned int serial = 0;
    unsigned int requestNo = 0;
    for (int i = 0; i < 40000; ++i) {
        const int tid = static_cast<int>(dice.number());
        if (dice.roll(2) == 0) {
            const unsigned int level = dice.oneOf({dice.roll(256), dice.roll(8), dice.roll(8)});
            const Record record =
                    Record::details(tid, dice.time(), level, dice.text(128), dice.text(1023));
            reference.details(record.asDetails());
            writer.onLogDetails(&record.asDetails());
        } else {
            dice.advance(serial);
            dice.advance(requestNo);
            const unsigned int module = dice.oneOf({1U << dice.roll(32), dice.number()});
            const Record record =
                    Record::enterExit(tid, dice.time(), serial, module, requestNo, dice.text(128));
            reference.enterExit(record.asEnterExit(), '+');
            writer.onLogEnter(&record.asEnterExit());
        }
    }
    reference.flush();
    writer.flush(false);
    EXPECT_GT(cut, 0U) << "the records were to fill the buffer to its end";
    EXPECT_TRUE(folder.logText() == expected);  // EXPECT_EQ would print megabytes
}

TEST_F(FileJLogWriterTest, RendersLikeTheReferenceLongAndCutLinesIncluded) {
    compareWithReference(mWriter, mFolder);
}

TEST_F(FileJLogWriterTest, CrashWriterRendersLikeTheReferenceWithoutTheTimeZoneCode) {
    // The one zone whose offset is the same at all times.
    setenv("TZ", "UTC0", 1);
    tzset();
    BufferingLogger logger;
    logger.initHook();  // which asks for it
    logger.uninitHook();
    mWriter.makeSignalSafe(CLOCK_REALTIME);
    compareWithReference(mWriter, mFolder);
}

TEST_F(FileJLogWriterTest, TextIsWrittenOutWhenTheBufferIsNearlyFull) {
    ASSERT_TRUE(mWriter.open(true, "", false));
    Faults::arm({});
    mWriter.writeString("%s", std::string(23451, 'a').c_str());
    EXPECT_EQ(fileBytes(), 0U);
    mWriter.writeString("b");
    EXPECT_EQ(fileBytes(), 23452U);
    mWriter.writeString("%s", std::string(30000, 'c').c_str());  // cut to the buffer
    EXPECT_EQ(fileBytes(), 23452U + 24575U);
    mWriter.writeString("d");
    EXPECT_EQ(fileBytes(), 23452U + 24575U);
    EXPECT_EQ(Faults::calls(Call::FSYNC), 0U);
    mWriter.flush(true);
    EXPECT_EQ(fileBytes(), 23452U + 24575U + 1);
    EXPECT_EQ(Faults::calls(Call::FSYNC), 1U);
    mWriter.flush(true);  // nothing to write, nothing to wait for
    mWriter.writeString("e");
    mWriter.close();
    EXPECT_EQ(fileBytes(), 23452U + 24575U + 2);
    EXPECT_EQ(Faults::calls(Call::FSYNC), 1U);
    EXPECT_EQ(mWriter.mFd, -1);
    mWriter.close();
}

TEST_F(FileJLogWriterTest, SeriesNamesItsFilesByPidPrefixTimeAndIndex) {
    const auto stampOfNow = [] {
        timespec time = {};
        clock_gettime(CLOCK_REALTIME, &time);  // time() lags behind it by up to a tick
        tm local = {};
        localtime_r(&time.tv_sec, &local);
        char text[40];
        strftime(text, sizeof(text), "%Y_%m%d_%H%M%S", &local);
        return std::string(text);
    };
    const std::string stem = mFolder.path("cam_jlog_" + std::to_string(getpid()) + "_");
    const std::string before = stampOfNow();
    ASSERT_TRUE(mWriter.open(true, "", false));
    const std::string first = path();
    const std::string stamp = first.substr(stem.size(), before.size());
    EXPECT_EQ(first, stem + stamp + "_01.txt");
    EXPECT_LE(before, stamp);
    EXPECT_LE(stamp, stampOfNow());
    EXPECT_THAT(mLog.lines(),
                ElementsAre(LogLine{ANDROID_LOG_INFO, kFileTag, "Write ulog to " + first}));
    EXPECT_EQ(fcntl(mWriter.mFd, F_GETFD), FD_CLOEXEC) << "not left to a program that is started";
    mWriter.close();
    mLog.clear();
    ASSERT_TRUE(mWriter.open(false, "ignored", true));
    EXPECT_EQ(path(), stem + stamp + "_02.txt");
    mWriter.close();
    mLog.clear();
    for (const char* prefix :
         {"0123456789012345678901234567XYZ", static_cast<const char*>(nullptr)}) {
        ASSERT_TRUE(mWriter.open(true, prefix, true));
        EXPECT_THAT(path(), StartsWith(stem + "0123456789012345678901234567X20"));
        EXPECT_EQ(path().size(), first.size() + 29);
        mWriter.close();
    }
    EXPECT_THAT(mLog.lines(), IsEmpty()) << "a silent writer says nothing";
}

TEST_F(FileJLogWriterTest, RotatesAbove180MiBWithoutLosingOrSplittingALineAndTriesUntilItCan) {
    Interpose::redirect("/data/vendor", mFolder.path());
    ASSERT_TRUE(mWriter.open(true, "", false));
    // The date of every 49th of these lines fills the text buffer, and is held over.
    const Record record = Record::details(1, {1710512730, 0}, 3, "Tag", std::string(930, 'x'));
    const std::string first = path();
    constexpr uint64_t kLine = 14 + 7 + 6 + 6 + 3 + 8 + 2 + 930 + 1;
    uint64_t room = FileJLogWriter::kMaxFileBytes;
    for (; room > kLine; room -= kLine) {
        mWriter.onLogDetails(&record.asDetails());
    }
    // Up to the limit itself the file goes on.
    mWriter.writeString("%s\n", std::string(room - 1, ' ').c_str());
    EXPECT_EQ(path(), first);
    // On a full disk the clean-up takes what is there, but not the file that leads up to the next.
    makeFile(mFolder.path("cam_jlog_old.txt"), kMiB, 0);
    Interpose::setFreeBytes(0);
    Faults::arm(
            {{.call = Call::OPEN, .error = EACCES, .first = 2}});  // the clean-up's is the first
    mWriter.onLogDetails(&record.asDetails());
    EXPECT_THAT(mFolder.names(), SizeIs(1));
    EXPECT_EQ(mWriter.mFd, -1);
    EXPECT_EQ(mLog.count(kUnableToOpen), 1U);
    mWriter.writeString("dropped\n");
    EXPECT_EQ(mLog.count(kUnableToOpen), 2U);
    Faults::disarm();
    mWriter.writeString("dropped, but a file is open from here on\n");
    mWriter.writeString("first of the second\n");
    mWriter.close();
    EXPECT_THAT(mFolder.names(), ElementsAre(EndsWith("_01.txt"), EndsWith("_02.txt")));
    EXPECT_EQ(std::filesystem::file_size(first), FileJLogWriter::kMaxFileBytes + kLine);
    EXPECT_THAT(readFile(first), EndsWith("xx\n"));
    EXPECT_EQ(readFile(mFolder.path(mFolder.names().at(1))),
              "-- CONTINUED --\nfirst of the second\n");
    ASSERT_TRUE(mWriter.open(true, "", true));
    EXPECT_THAT(mFolder.names(), SizeIs(1)) << "a file that is closed counts like any other";
}

TEST_F(FileJLogWriterTest, LostTextIsToldOnceForEveryReason) {
    ASSERT_TRUE(mWriter.open(true, "", false));
    const std::string failed = "FileJLogWriter: write failed " + path() + ", errno = ";
    const auto loseText = [&](int error) {
        Faults::arm({{.call = Call::WRITE, .error = error}});
        mWriter.writeString("lost\n");
        mWriter.flush(false);
        Faults::disarm();
    };
    for (const int error : {Faults::kShortWrite, ENOSPC, Faults::kShortWrite, ENOSPC, EIO}) {
        loseText(error);
    }
    mWriter.close();
    ASSERT_TRUE(mWriter.open(false, "", false));
    const std::string next = "FileJLogWriter: write failed " + path() + ", errno = ";
    loseText(EIO);
    mWriter.close();
    ASSERT_TRUE(mWriter.open(true, "", true));
    loseText(EIO);  // of which a silent writer says nothing
    EXPECT_THAT(mLog.texts("FileJLogWriter: "),
                ElementsAre(failed + "0", failed + std::to_string(ENOSPC),
                            failed + std::to_string(EIO), next + std::to_string(EIO)));
}

TEST_F(FileJLogWriterTest, FallsBackForGoodWhenTheFolderCannotBeUsed) {
    const std::string absent = mFolder.path("absent");
    mWriter.mFolder = absent;
    ASSERT_TRUE(mWriter.open(true, "", false));
    EXPECT_EQ(std::string(mWriter.mFolder.c_str()), "/data/vendor");
    const std::string name = "/" + mFallback.names().at(0);
    EXPECT_EQ(path(), "/data/vendor" + name);
    EXPECT_THAT(
            mLog.lines(),
            ElementsAre(LogLine{ANDROID_LOG_ERROR, kFileTag,
                                "FileJLogWriter: file open failed " + absent + name},
                        LogLine{ANDROID_LOG_INFO, kFileTag, "Write ulog to /data/vendor" + name}));
    std::filesystem::create_directory(absent);
    mWriter.close();
    ASSERT_TRUE(mWriter.open(false, "", false));
    EXPECT_THAT(path(), StartsWith("/data/vendor/"));

    // Where neither can be used, a crash writer keeps the descriptor that it has in reserve.
    Interpose::redirect("/data/vendor", mFolder.path("absent, too"));
    FileJLogWriter crashWriter;
    crashWriter.mFolder = mFolder.path("absent, too");
    crashWriter.makeSignalSafe(CLOCK_REALTIME);
    const size_t descriptors = openDescriptors();
    EXPECT_FALSE(crashWriter.open(true, "NE_", true));
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(FileJLogWriterTest, CleanUpDeletesTheOldestFilesUntilEnoughIsFree) {
    // Ages against the order of the names, and of any name.
    const char* names[] = {"f.bin", "e", "cam_jlog_1_d.txt", "c.txt", "b", "a"};
    std::vector<LogLine> unlinked;
    for (int i = 0; i < 6; ++i) {
        const std::string path = mFolder.path(names[i]);
        makeFile(path, 50 * kMiB, i);
        unlinked.push_back({ANDROID_LOG_WARN, kFileTag, "Storage full. Unlinked: " + path});
    }
    unlinked.resize(4);
    std::filesystem::create_directory(mFolder.path("subfolder"));
    Interpose::setFreeBytes(FileJLogWriter::kMinFreeBytes + 1);
    mWriter.reserveSpace(false);
    EXPECT_EQ(mFolder.names().size(), 7U) << "enough was free";
    Interpose::setFreeBytes(100 * kMiB);
    mWriter.reserveSpace(false);
    EXPECT_THAT(mFolder.names(), ElementsAre("a", "b", "subfolder"));
    EXPECT_EQ(mLog.lines(), unlinked);

    // Exactly at the limit is not enough; a silent writer deletes without a word.
    mLog.clear();
    Interpose::setFreeBytes(FileJLogWriter::kMinFreeBytes);
    mWriter.reserveSpace(true);
    EXPECT_THAT(mFolder.names(), ElementsAre("a", "subfolder"));
    EXPECT_THAT(mLog.lines(), IsEmpty());

    mWriter.mFolder = mFolder.path("absent");
    mWriter.reserveSpace(false);
    EXPECT_THAT(mLog.lines(),
                ElementsAre(LogLine{ANDROID_LOG_ERROR, kFileTag,
                                    "Open folder " + mFolder.path("absent/") + " failed"}));
}

TEST_F(FileJLogWriterTest, CleanUpPassesOverWhatItCannotDeleteInAFolderOfAnySize) {
    constexpr int kFiles = 600;
    for (int i = 0; i < kFiles; ++i) {
        makeFile(mFolder.path(std::to_string(1000 - i)), kMiB / 2, i / 5);  // five of one age
    }
    const std::string oldest = mFolder.path("1000");
    Faults::arm({{.call = Call::UNLINK, .error = EPERM, .path = oldest.c_str()}});
    Interpose::setFreeBytes(FileJLogWriter::kMinFreeBytes - 199 * kMiB);
    mWriter.reserveSpace(true);
    std::vector<std::string> left = {"1000"};
    for (int i = 400; i < kFiles; ++i) {
        left.push_back(std::to_string(1000 - i));
    }
    EXPECT_THAT(mFolder.names(), UnorderedElementsAreArray(left));

    // A new file is made only after the clean-up, which here takes everything.
    Interpose::setFreeBytes(0);
    ASSERT_TRUE(mWriter.open(true, "", true));
    EXPECT_THAT(mFolder.names(), ElementsAre("1000", StartsWith("cam_jlog_")));
}

TEST_F(FileJLogWriterTest, CleanUpSparesOtherFilesInTheFallbackFolder) {
    makeFile(mFallback.path("calibration.bin"), 300 * kMiB, 0);
    makeFile(mFallback.path("cam_jlog_9.txt.bak"), kMiB, 2);
    Interpose::setFreeBytes(0);
    // By any of its names.
    for (const char* folder : {"/data/vendor", "/data/vendor/", "/data/vendor/."}) {
        makeFile(mFallback.path("cam_jlog_9_2024_0101_000000_01.txt"), kMiB, 1);
        mWriter.mFolder = folder;
        mWriter.reserveSpace(false);
        EXPECT_THAT(mFallback.names(), ElementsAre("calibration.bin", "cam_jlog_9.txt.bak"));
    }
}

}  // namespace
}  // namespace JCam::Utils::JLog::File
