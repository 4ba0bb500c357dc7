#include "jlog/file/FileJLogWriter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <limits>
#include <random>
#include <regex>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <android/log.h>

#include "jlog/file/FileJLoggerBase.h"
#include "support/Descriptors.h"
#include "support/Faults.h"
#include "support/Interpose.h"
#include "support/LogCapture.h"
#include "support/Records.h"
#include "support/ReferenceWriter.h"
#include "support/TempFolder.h"

namespace JCam::Utils::JLog::File {
namespace {

namespace Faults = Support::Faults;
using Faults::Call;
using Support::LogLine;
using Support::Record;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kUnableToOpen[] =
        "Unable to open file. Please disable SELinux and restart camerahalserver. !!!";
constexpr int64_t kMiB = 0x100000;

class FileJLogWriterTest : public ::testing::Test {
  protected:
    FileJLogWriterTest() {
        setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
        tzset();
        mWriter.mFolder = mFolder.path();
        Support::Interpose::redirect("/data/vendor", mFallback.path());
    }

    [[nodiscard]] static std::string pid() { return std::to_string(getpid()); }

    [[nodiscard]] std::string path() const { return mWriter.mFilePath.c_str(); }

    /// The file's name up to its time stamp, and from its index on.
    [[nodiscard]] static std::string withoutTime(const std::string& path) {
        return std::regex_replace(path, std::regex("[0-9]{4}_[0-9]{4}_[0-9]{6}"), "T");
    }

    /// A file of `bytes` (sparse) whose age is `order`: the smallest is the oldest.
    static void makeFile(const std::string& path, int64_t bytes, int order) {
        Support::writeFile(path, "");
        std::filesystem::resize_file(path, static_cast<uintmax_t>(bytes));
        const timespec times[] = {{1000 + order, 0}, {1000 + order, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    }

    Support::LogCapture mLog;
    Support::Interpose::Scope mInterpose;
    Support::TempFolder mFolder;
    Support::TempFolder mFallback;
    FileJLogWriter mWriter;
};

TEST_F(FileJLogWriterTest, LinesAreExactlyThoseOfTheFormat) {
    ASSERT_TRUE(mWriter.open(true, "", false));
    const timespec summer = {1710512730, 123456789};  // 2024-03-15 15:25:30 in the zone above
    mWriter.onLogEnter(&Record::enterExit(4350, summer, 17, 4, 42, "processFrame").asEnterExit());
    mWriter.onLogExit(&Record::enterExit(7, {0, 999}, 18, 6, 0, "").asEnterExit());
    mWriter.onLogDetails(
            &Record::details(1234567, summer, 3, "Stream", "configure done").asDetails());
    mWriter.onLogDetails(&Record::details(1, summer, 4, "TwelveLetter", "two\nlines").asDetails());
    mWriter.writeString("%s : addr = %p\n", "SIGSEGV", reinterpret_cast<void*>(0x10));
    mWriter.close();
    char pidColumn[16];
    snprintf(pidColumn, sizeof(pidColumn), "%5d", getpid());
    const std::string p = pidColumn;
    EXPECT_EQ(mFolder.logText(),
              "03-15 15:25:30.123456 " + p +
                      "  4350 D JLog    : R AppRequest:42 M[Preview:4] +  :processFrame #17\n"
                      "01-01 01:00:00.000000 " +
                      p +
                      "     7 D JLog    : R AppRequest:0 M[(null):6] -  : #18\n"
                      "03-15 15:25:30.123456 " +
                      p + " 1234567 I Stream  : configure done\n" + "03-15 15:25:30.123456 " + p +
                      "     1 D TwelveLetter: two\nlines\n"
                      "SIGSEGV : addr = 0x10\n");
}

/// Records of every kind and size, ordinary and odd values mixed.
class RecordGenerator {
  public:
    Record details() {
        return Record::details(tid(), time(), random() % 12 == 0 ? random() % 256 : random() % 8,
                               text(128), text(1023));
    }
    Record enterExit() {
        const unsigned int module = random() % 2 == 0 ? 1U << (random() % 32) : number();
        return Record::enterExit(tid(), time(), running(mSerial), module, running(mRequestNo),
                                 text(128));
    }
    bool coin() { return random() % 2 == 0; }

  private:
    unsigned int number() {
        return random() % 4 == 0 ? std::numeric_limits<unsigned int>::max() - random() % 2
                                 : random() >> (random() % 32);
    }
    /// Mostly the same as before, or one more.
    unsigned int running(unsigned int& last) {
        last = random() % 128 == 0 ? number() : last + (random() % 4 == 0 ? 0 : 1);
        return last;
    }
    int tid() { return static_cast<int>(number()); }

    timespec time() {
        constexpr time_t kOdd[] = {0, -1, std::numeric_limits<time_t>::max(),
                                   std::numeric_limits<time_t>::min() + 1, 1711846800};
        if (random() % 4 == 0) {
            mSecond = random() % 8 == 0 ? kOdd[random() % 5] : static_cast<time_t>(random());
        }
        constexpr long kOddNanoseconds[] = {-1,
                                            -1000,
                                            -123456789,
                                            1000000000,
                                            999999999,
                                            0,
                                            std::numeric_limits<long>::max(),
                                            std::numeric_limits<long>::min()};
        return {mSecond, random() % 16 == 0 ? kOddNanoseconds[random() % 8]
                                            : static_cast<long>(random() % 1000000000)};
    }

    /// Mostly short, sometimes as long as can be, of all bytes but NUL.
    std::string text(size_t maxChars) {
        const size_t chars = random() % 4 == 0 ? maxChars - random() % 3
                                               : random() % (1 + maxChars / (1 + random() % 16));
        std::string result;
        for (size_t i = 0; i < chars; ++i) {
            result.push_back(static_cast<char>(1 + random() % 255));
        }
        return result;
    }

    unsigned int random() { return static_cast<unsigned int>(mEngine()); }

    std::mt19937 mEngine{20240315};
    time_t mSecond{0};
    unsigned int mSerial{0};
    unsigned int mRequestNo{0};
};

/// Renders through `writer`, which writes to `folder`, what the reference renders, too.
void compareWithReference(FileJLogWriter& writer, const Support::TempFolder& folder) {
    std::string expected;
    size_t cut = 0;
    Support::ReferenceWriter reference(getpid(), [&](const char* text, size_t bytes) {
        expected.append(text, bytes);
        cut += bytes == 24575 ? 1 : 0;
    });
    ASSERT_TRUE(writer.open(true, "", true));
    RecordGenerator generator;
    for (int i = 0; i < 40000; ++i) {
        if (generator.coin()) {
            const Record record = generator.details();
            reference.details(record.asDetails());
            writer.onLogDetails(&record.asDetails());
        } else {
            const Record record = generator.enterExit();
            reference.enterExit(record.asEnterExit(), '+');
            writer.onLogEnter(&record.asEnterExit());
        }
    }
    reference.flush();
    writer.flush(false);
    EXPECT_GT(cut, 0U) << "the records were to fill the buffer to its end";
    const std::string rendered = folder.logText();
    ASSERT_EQ(rendered.size(), expected.size());
    EXPECT_TRUE(rendered == expected);  // EXPECT_EQ would print megabytes
}

TEST_F(FileJLogWriterTest, RendersLikeTheReferenceLongAndCutLinesIncluded) {
    compareWithReference(mWriter, mFolder);
}

TEST_F(FileJLogWriterTest, CrashWriterRendersLikeTheReferenceWithoutTheTimeZoneCode) {
    class Logger : public FileJLoggerBase {
      public:
        using FileJLoggerBase::initHook;
        using FileJLoggerBase::mCrashWriter;
        using FileJLoggerBase::uninitHook;
    };
    // The one zone whose offset is the same at all times.
    setenv("TZ", "UTC0", 1);
    tzset();
    Logger logger;
    logger.initHook();
    logger.mCrashWriter->mFolder = mFolder.path();
    compareWithReference(*logger.mCrashWriter, mFolder);
    logger.uninitHook();
}

TEST_F(FileJLogWriterTest, FreeTextIsFormattedLikePrintf) {
    ASSERT_TRUE(mWriter.open(true, "", true));
    std::string expected;
// A macro: formats are to be literals, which the compiler checks.
#define APPEND(...)                                \
    do {                                           \
        char text[500];                            \
        snprintf(text, sizeof(text), __VA_ARGS__); \
        expected += text;                          \
        mWriter.writeString(__VA_ARGS__);          \
    } while (false)
    for (const int n : {0, 1, -1, 77, 123456, -123456, std::numeric_limits<int>::min(),
                        std::numeric_limits<int>::max()}) {
        const auto u = static_cast<unsigned int>(n);
        const auto s = static_cast<short>(n);
        APPEND("%d|%5d|%-5d|%05d|%.4d|%8.3d|%.0d|%i\n", n, n, n, n, n, n, n, n);
        APPEND("%u|%x|%08X|%hd|%hhd|%hhu|%c|%*d|%-*d\n", u, u, u, s, static_cast<signed char>(n),
               static_cast<unsigned char>(n), 'c', 12, n, -12, n);
        APPEND("%ld|%lld|%zu|%jd|%020ld|%lx\n", long{n}, static_cast<long long>(n), size_t{u},
               intmax_t{n}, long{n} << 31, static_cast<unsigned long>(long{n}));
    }
    APPEND("%s|%8s|%-8s|%.2s|%-6.3s|%%|%.*s|%p\n", "text", "text", "text", "text", "text", 2,
           "text", static_cast<void*>(this));
#undef APPEND
    mWriter.close();
    EXPECT_EQ(mFolder.logText(), expected);
}

TEST_F(FileJLogWriterTest, TextIsWrittenOutWhenTheBufferIsNearlyFull) {
    ASSERT_TRUE(mWriter.open(true, "", false));
    Faults::arm({});
    const auto written = [&] { return std::filesystem::file_size(path()); };
    mWriter.writeString("%s", std::string(23451, 'a').c_str());
    EXPECT_EQ(written(), 0U);
    mWriter.writeString("b");
    EXPECT_EQ(written(), 23452U);
    mWriter.writeString("%s", std::string(30000, 'c').c_str());  // cut to the buffer
    EXPECT_EQ(written(), 23452U + 24575U);
    mWriter.writeString("d");
    EXPECT_EQ(written(), 23452U + 24575U);
    EXPECT_EQ(Faults::calls(Call::FSYNC), 0U);
    mWriter.flush(true);
    EXPECT_EQ(written(), 23452U + 24575U + 1);
    EXPECT_EQ(Faults::calls(Call::FSYNC), 1U);
    mWriter.flush(true);  // nothing to write, nothing to wait for
    EXPECT_EQ(Faults::calls(Call::FSYNC), 1U);
    mWriter.writeString("e");
    mWriter.close();
    EXPECT_EQ(written(), 23452U + 24575U + 2);
    EXPECT_EQ(Faults::calls(Call::FSYNC), 1U);
    EXPECT_EQ(mWriter.mFd, -1);
    mWriter.close();
}

TEST_F(FileJLogWriterTest, SeriesNamesItsFilesByPidPrefixTimeAndIndex) {
    ASSERT_TRUE(mWriter.open(true, "", false));
    EXPECT_EQ(withoutTime(path()), mFolder.path("cam_jlog_" + pid() + "_T_01.txt"));
    EXPECT_THAT(mLog.lines(), ElementsAre(LogLine{ANDROID_LOG_INFO, "FileAloneJLogger",
                                                  "Write ulog to " + path()}));
    struct stat status = {};
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    const mode_t mask = umask(0);
    umask(mask);
    EXPECT_EQ(status.st_mode & 0777, 0644 & ~mask);
    const std::string first = path();
    mWriter.close();
    ASSERT_TRUE(mWriter.open(false, "ignored", true));
    EXPECT_EQ(path(), std::regex_replace(first, std::regex("_01.txt"), "_02.txt"));
    mWriter.close();
    mLog.clear();
    ASSERT_TRUE(mWriter.open(true, "0123456789012345678901234567XYZ", true));
    EXPECT_EQ(withoutTime(path()),
              mFolder.path("cam_jlog_" + pid() + "_0123456789012345678901234567XT_01.txt"));
    mWriter.close();
    ASSERT_TRUE(mWriter.open(true, nullptr, true));  // keeps the prefix
    EXPECT_THAT(path(), ::testing::HasSubstr("_0123456789012345678901234567X"));
    EXPECT_THAT(mLog.lines(), IsEmpty()) << "a silent writer says nothing";
}

TEST_F(FileJLogWriterTest, TimeStampOfASeriesIsLocalTime) {
    const auto now = [] {
        timespec time = {};
        clock_gettime(CLOCK_REALTIME, &time);  // time() lags behind it by up to a tick
        tm local = {};
        localtime_r(&time.tv_sec, &local);
        char text[40];
        strftime(text, sizeof(text), "%Y_%m%d_%H%M%S", &local);
        return std::string(text);
    };
    const std::string before = now();
    ASSERT_TRUE(mWriter.open(true, "", true));
    const std::string after = now();
    const std::string stamp = path().substr(path().size() - 23, 16);
    EXPECT_LE(before, stamp);
    EXPECT_LE(stamp, after);
}

TEST_F(FileJLogWriterTest, AnEarlierFileIsNeverOverwritten) {
    // Two series of one second: a second may end between them, so until it did not.
    for (int attempt = 0; attempt < 10; ++attempt) {
        const Support::TempFolder folder;
        FileJLogWriter first;
        first.mFolder = folder.path();
        FileJLogWriter second;
        second.mFolder = folder.path();
        ASSERT_TRUE(first.open(true, "", false));
        first.writeString("first\n");
        first.close();
        ASSERT_TRUE(second.open(true, "", false));
        second.writeString("second\n");
        second.close();
        EXPECT_EQ(Support::readFile(first.mFilePath.c_str()), "first\n");
        EXPECT_EQ(Support::readFile(second.mFilePath.c_str()), "second\n");
        if (first.mFilePath.view().substr(0, first.mFilePath.view().size() - 7) ==
            second.mFilePath.view().substr(0, second.mFilePath.view().size() - 7)) {
            EXPECT_THAT(second.mFilePath.c_str(), ::testing::EndsWith("_02.txt"));
            return;
        }
    }
    FAIL() << "never two series in one second";
}

TEST_F(FileJLogWriterTest, RotatesAbove180MiBWithoutLosingOrSplittingALine) {
    ASSERT_TRUE(mWriter.open(true, "", false));
    const Record record = Record::details(1, {1710512730, 0}, 3, "Tag", std::string(1000, 'x'));
    const std::string first = path();
    constexpr uint64_t kLine = 14 + 7 + 6 + 6 + 3 + 8 + 2 + 1000 + 1;
    // One line more than fits exactly into the limit.
    constexpr uint64_t kLines = FileJLogWriter::kMaxFileBytes / kLine + 1;
    for (uint64_t i = 0; i + 1 < kLines; ++i) {
        mWriter.onLogDetails(&record.asDetails());
    }
    // Up to the limit itself the file goes on.
    const auto fill = static_cast<int>(FileJLogWriter::kMaxFileBytes - (kLines - 1) * kLine);
    mWriter.writeString("%*s\n", fill - 1, "");
    ASSERT_EQ(path(), first);
    // On a full disk the clean-up takes what is there, but not the file that leads up to the next.
    makeFile(mFolder.path("old"), kMiB, 0);
    Support::Interpose::setFreeBytes(0);
    mWriter.writeString("last of the first\n");
    ASSERT_NE(path(), first);
    mWriter.writeString("first of the second\n");
    mWriter.close();

    EXPECT_EQ(path(), std::regex_replace(first, std::regex("_01.txt"), "_02.txt"));
    EXPECT_EQ(std::filesystem::file_size(first), FileJLogWriter::kMaxFileBytes + 18);
    EXPECT_THAT(Support::readFile(first), ::testing::EndsWith(" \nlast of the first\n"));
    EXPECT_EQ(Support::readFile(path()), "-- CONTINUED --\nfirst of the second\n");
    EXPECT_EQ(mFolder.names().size(), 2U);
    ASSERT_TRUE(mWriter.open(true, "", true));
    mWriter.reserveSpace(true);
    EXPECT_EQ(mFolder.names().size(), 1U) << "a file that is closed counts like any other";
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
    EXPECT_EQ(mLog.texts("FileJLogWriter: "),
              (std::vector<std::string>{failed + "0", failed + std::to_string(ENOSPC),
                                        failed + std::to_string(EIO)}));
    mWriter.close();
    ASSERT_TRUE(mWriter.open(true, "", true));
    loseText(EIO);
    EXPECT_EQ(mLog.texts("FileJLogWriter: "),
              (std::vector<std::string>{failed + "0", failed + std::to_string(ENOSPC),
                                        failed + std::to_string(EIO)}))
            << "a silent writer says nothing";
}

TEST_F(FileJLogWriterTest, AFailedRotationIsTriedAgainWithEveryLine) {
    ASSERT_TRUE(mWriter.open(true, "", false));
    Support::Interpose::redirect("/data/vendor", mFolder.path("absent"));
    std::filesystem::remove_all(mFolder.path());
    const std::string block(24000, 'x');
    for (uint64_t bytes = 0; bytes <= FileJLogWriter::kMaxFileBytes; bytes += block.size()) {
        mWriter.writeString("%s", block.c_str());
    }
    EXPECT_EQ(mWriter.mFd, -1);
    EXPECT_EQ(mLog.count(kUnableToOpen), 1U);
    mWriter.writeString("dropped\n");
    EXPECT_EQ(mLog.count(kUnableToOpen), 2U);
    std::filesystem::create_directories(mFolder.path("absent"));
    mWriter.writeString("dropped, but a file is open from here on\n");
    mWriter.writeString("kept\n");
    mWriter.close();
    EXPECT_EQ(Support::readFile(mFolder.path("absent/") + path().substr(13)),
              "-- CONTINUED --\nkept\n");
}

TEST_F(FileJLogWriterTest, FallsBackForGoodWhenTheFolderCannotBeUsed) {
    mWriter.mFolder = mFolder.path("absent");
    ASSERT_TRUE(mWriter.open(true, "", false));
    EXPECT_EQ(mWriter.mFolder, "/data/vendor");
    const std::string name = mFallback.names().at(0);
    EXPECT_EQ(path(), "/data/vendor/" + name);
    EXPECT_THAT(mLog.lines(), ElementsAre(LogLine{ANDROID_LOG_ERROR, "FileAloneJLogger",
                                                  "FileJLogWriter: file open failed " +
                                                          mFolder.path("absent/") + name},
                                          LogLine{ANDROID_LOG_INFO, "FileAloneJLogger",
                                                  "Write ulog to /data/vendor/" + name}));
    std::filesystem::create_directory(mFolder.path("absent"));
    mWriter.close();
    ASSERT_TRUE(mWriter.open(false, "", false));
    EXPECT_THAT(path(), ::testing::StartsWith("/data/vendor/"));
}

TEST_F(FileJLogWriterTest, ACrashWriterWithoutAFileKeepsItsDescriptorInReserve) {
    mWriter.mFolder = mFolder.path("absent");
    Support::Interpose::redirect("/data/vendor", mFolder.path("absent, too"));
    mWriter.makeSignalSafe(CLOCK_REALTIME);
    const size_t descriptors = Support::openDescriptors();
    EXPECT_FALSE(mWriter.open(true, "NE_", true));
    EXPECT_EQ(Support::openDescriptors(), descriptors);
}

TEST_F(FileJLogWriterTest, AFileIsNotLeftToAProgramThatTheProcessStarts) {
    ASSERT_TRUE(mWriter.open(true, "", false));
    EXPECT_EQ(fcntl(mWriter.mFd, F_GETFD), FD_CLOEXEC);
}

TEST_F(FileJLogWriterTest, CleanUpDeletesTheOldestFilesUntilEnoughIsFree) {
    const std::string folder = mFolder.path();
    // Ages against the order of the names, and of any name.
    const char* names[] = {"f.bin", "e", "cam_jlog_1_d.txt", "c.txt", "b", "a"};
    for (int i = 0; i < 6; ++i) {
        makeFile(mFolder.path(names[i]), 50 * kMiB, i);
    }
    std::filesystem::create_directory(mFolder.path("subfolder"));
    Support::Interpose::setFreeBytes(FileJLogWriter::kMinFreeBytes + 1);
    mWriter.reserveSpace(false);
    EXPECT_EQ(mFolder.names().size(), 7U) << "enough was free";

    Support::Interpose::setFreeBytes(100 * kMiB);
    mWriter.reserveSpace(false);
    EXPECT_THAT(mFolder.names(), ElementsAre("a", "b", "subfolder"));
    std::vector<LogLine> expected;
    for (int i = 0; i < 4; ++i) {
        expected.push_back({ANDROID_LOG_WARN, "FileAloneJLogger",
                            "Storage full. Unlinked: " + mFolder.path(names[i])});
    }
    EXPECT_EQ(mLog.lines(), expected);

    // Exactly at the limit is not enough; a silent writer deletes without a word.
    mLog.clear();
    Support::Interpose::setFreeBytes(FileJLogWriter::kMinFreeBytes);
    mWriter.reserveSpace(true);
    EXPECT_THAT(mFolder.names(), ElementsAre("a", "subfolder"));
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(FileJLogWriterTest, CleanUpPassesOverWhatItCannotDeleteInAFolderOfAnySize) {
    constexpr int kFiles = 600;
    for (int i = 0; i < kFiles; ++i) {
        makeFile(mFolder.path(std::to_string(1000 - i)), kMiB / 2, i / 2);  // pairs of one age
    }
    const std::string oldest = mFolder.path("1000");
    Faults::arm({{.call = Call::UNLINK, .error = EPERM, .path = oldest.c_str()}});
    Support::Interpose::setFreeBytes(FileJLogWriter::kMinFreeBytes - 199 * kMiB);
    mWriter.reserveSpace(true);
    std::vector<std::string> left = {"1000"};
    for (int i = 400; i < kFiles; ++i) {
        left.push_back(std::to_string(1000 - i));
    }
    EXPECT_THAT(mFolder.names(), ::testing::UnorderedElementsAreArray(left));

    // A new file is made only after the clean-up, which here takes everything.
    Support::Interpose::setFreeBytes(0);
    ASSERT_TRUE(mWriter.open(true, "", true));
    EXPECT_THAT(mFolder.names(), ElementsAre("1000", path().substr(mFolder.path().size() + 1)));
}

TEST_F(FileJLogWriterTest, CleanUpSparesOtherFilesInTheFallbackFolder) {
    makeFile(mFallback.path("calibration.bin"), 300 * kMiB, 0);
    makeFile(mFallback.path("cam_jlog_9.txt.bak"), kMiB, 2);
    Support::Interpose::setFreeBytes(0);
    // By any of its names.
    for (const char* folder : {"/data/vendor", "/data/vendor/", "/data/vendor/."}) {
        makeFile(mFallback.path("cam_jlog_9_2024_0101_000000_01.txt"), kMiB, 1);
        mWriter.mFolder = folder;
        mWriter.reserveSpace(false);
        EXPECT_THAT(mFallback.names(), ElementsAre("calibration.bin", "cam_jlog_9.txt.bak"));
    }
}

TEST_F(FileJLogWriterTest, CleanUpReportsAFolderThatItCannotRead) {
    Support::Interpose::setFreeBytes(0);
    mWriter.mFolder = mFolder.path("absent");
    mWriter.reserveSpace(false);
    EXPECT_THAT(mLog.lines(),
                ElementsAre(LogLine{ANDROID_LOG_ERROR, "FileAloneJLogger",
                                    "Open folder " + mFolder.path("absent/") + " failed"}));
}

}  // namespace
}  // namespace JCam::Utils::JLog::File
