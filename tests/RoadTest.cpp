// The whole road of an event, from the front end of many threads to the text in the files.

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <android/log.h>

#include "jlog/JLogger.h"
#include "jlog/JLogInitializer.h"
#include "reader/Series.h"
#include "support/LogCapture.h"
#include "support/Properties.h"
#include "support/TempFolder.h"
#include "support/Threads.h"

namespace JCam::Utils::JLog {
namespace {

#if defined(JCAM_SANITIZED)
constexpr unsigned int kEvents = 100000;
#else
constexpr unsigned int kEvents = 1000000;
#endif
constexpr unsigned int kThreads = 4;
constexpr unsigned int kRounds = kEvents / kThreads / 3 + 1;

/// What one thread logs: enter, details and exit in turn, numbered.
void logRounds(int thread) {
    const std::string tag = "Thread" + std::to_string(thread);
    for (unsigned int round = 0; round < kRounds; ++round) {
        const std::string text = "round " + std::to_string(round);
        JLogger::logEnter(1U << thread, tag.c_str(), round);
        if (JLogger::isLogDetailsEnabled(1U << thread, LEVEL_INFO)) {
            JLogger::logNormalDetails(1U << thread, tag.c_str(), LEVEL_INFO, text.c_str(),
                                      text.size());
        }
        JLogger::logExit(1U << thread, tag.c_str(), round);
        if (round % 4096 == 0) {
            JLogger::flush(0);
        }
    }
}

/// Whether `line` is what the thread has logged as its event `index`.
bool isEvent(const Reader::Line& line, unsigned int thread, unsigned int index) {
    const unsigned int round = index / 3;
    if (index % 3 == 1) {
        return !line.scope && line.level == 'I' && line.text == "round " + std::to_string(round);
    }
    return line.scope && line.scope->sign == (index % 3 == 0 ? '+' : '-') &&
           line.scope->requestNo == round && line.scope->moduleId == 1U << thread;
}

TEST(Road, EveryEventOfFourThreadsIsInTheFilesOnceAndInOrder) {
    const Support::TempFolder folder;
    const Support::Properties properties{{"vendor.debug.camera.ulog.folder", folder.path()},
                                         {"vendor.debug.camera.jlog.mode", "0x14"},
                                         {"vendor.debug.camera.jlog.flushms", "20"},
                                         {"persist.vendor.jovix.camera.log_level", "2"}};
    __android_log_set_minimum_priority(ANDROID_LOG_INFO);
    const Support::LogCapture log;
    {
        const JLogInitializer initializer(0);
        ASSERT_TRUE(JLogger::isFileModeEnabled());
        Support::runThreads(kThreads, logRounds);
    }
    __android_log_set_minimum_priority(ANDROID_LOG_DEFAULT);

    std::array<unsigned int, kThreads> events{};
    uint32_t serial = 0;
    Reader::Series series(Reader::listLogFiles(folder.path()));
    while (const auto* const record = series.next()) {
        ASSERT_TRUE(record->line && !record->isTorn) << record->bytes;
        const Reader::Line& line = *record->line;
        const std::string_view name = line.scope ? line.scope->name : line.tag;
        ASSERT_TRUE(name.size() == 7 && name.starts_with("Thread")) << record->bytes;
        const auto thread = static_cast<unsigned int>(name.back() - '0');
        ASSERT_LT(thread, kThreads) << record->bytes;
        ASSERT_TRUE(isEvent(line, thread, events[thread]++)) << record->bytes;
        ASSERT_TRUE(!line.scope || line.scope->serial == ++serial) << record->bytes;
    }
    EXPECT_THAT(events, testing::Each(3 * kRounds));
}

}  // namespace
}  // namespace JCam::Utils::JLog
