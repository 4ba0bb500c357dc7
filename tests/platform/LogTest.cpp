#include <android/log.h>

#include <cerrno>

#include <string>
#include <vector>

#include "PlatformTest.h"

namespace {

TEST(AndroidLog, FilteredLineFormatsNothing) {
    const CapturedLog log;
    EXPECT_EQ(__android_log_set_minimum_priority(ANDROID_LOG_WARN), ANDROID_LOG_DEFAULT);
    EXPECT_EQ(__android_log_get_minimum_priority(), ANDROID_LOG_WARN);
    const char* unreadable = reinterpret_cast<const char*>(1);
    EXPECT_EQ(__android_log_print(ANDROID_LOG_INFO, "Tag", "%s", unreadable), -EPERM);
    EXPECT_EQ(__android_log_write(ANDROID_LOG_INFO, "Tag", unreadable), -EPERM);
    EXPECT_EQ(__android_log_print(ANDROID_LOG_WARN, "Tag", "%d%s", 4, "2"), 1);
    EXPECT_EQ(CapturedLog::sMessages, std::vector<std::string>{"5/Tag: 42"});
}

TEST(AndroidLog, OnlyPrintCutsTheText) {
    const CapturedLog log;
    const std::string text(5000, 'x');
    EXPECT_EQ(__android_log_print(ANDROID_LOG_INFO, "Tag", "%s", text.c_str()), 1);
    EXPECT_EQ(__android_log_write(ANDROID_LOG_INFO, "Tag", text.c_str()), 1);
    EXPECT_EQ(CapturedLog::sMessages,
              (std::vector<std::string>{"4/Tag: " + text.substr(0, 1023), "4/Tag: " + text}));
}

TEST(AndroidLog, LoggerMeetsNoNullAndCallerKeepsErrno) {
    __android_log_set_logger([](const __android_log_message* message) {
        EXPECT_STREQ(message->tag, "");
        EXPECT_STREQ(message->message, "(null)");
        errno = EIO;
    });
    errno = ENOENT;
    EXPECT_EQ(__android_log_write(ANDROID_LOG_FATAL, nullptr, nullptr), 1);
    EXPECT_EQ(errno, ENOENT);
    __android_log_set_logger(nullptr);
}

TEST(StderrLogger, PrintsEachLineOfATextWithItsHead) {
    const std::string text(5000, 'x');
    EXPECT_EQ(runProbe("",
                       "log 3 JLOG 'one\n\ntwo\n' log 6 FileAloneJLogger '' "
                       "restore log 9 EightLet " +
                               text),
              "D JLOG    : one\nD JLOG    : \nD JLOG    : two\nE FileAloneJLogger: \n"
              "? EightLet: " +
                      text + "\n");
}

TEST(LogFilter, LowerOfTagAndMinimumDecides) {
    EXPECT_EQ(runProbe("ANDROID_LOG_TAGS='A:F *:E B:I\tS:S *:W  A'",
                       "log 2 A v  log 4 B i  log 3 B d  log 7 S f  log 5 X w  log 4 X i "
                       "minimum 3  log 3 B d  log 2 X v  log 3 S d"),
              "V A       : v\nI B       : i\nW X       : w\nD B       : d\nD S       : d\n");
    // Without "*" the minimum alone decides for other tags, and before it everything is logged.
    EXPECT_EQ(runProbe("ANDROID_LOG_TAGS=B:W",
                       "log 2 X v  log 4 B i  minimum 6  log 5 X w  log 5 B w"),
              "V X       : v\nW B       : w\n");
}

TEST(LogFilter, ReportsMalformedWordsAndGoesOn) {
    const std::string rest = "' ignored: neither TAG nor TAG:L with L one of VDIWEFS\n";
    EXPECT_EQ(runProbe("ANDROID_LOG_TAGS=' A:Q :V B: C:VV D:E '", "log 2 A v  log 5 D w"),
              "ANDROID_LOG_TAGS: 'A:Q" + rest + "ANDROID_LOG_TAGS: ':V" + rest +
                      "ANDROID_LOG_TAGS: 'B:" + rest + "ANDROID_LOG_TAGS: 'C:VV" + rest +
                      "V A       : v\n");
}

}  // namespace
