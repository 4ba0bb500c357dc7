// The whole road of an event, from the front end of many threads to the text in the files.

#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <android/log.h>

#include "jlog/JLogger.h"
#include "jlog/JLogInitializer.h"
#include "support/LogCapture.h"
#include "support/Properties.h"
#include "support/TempFolder.h"

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
void logRounds(unsigned int thread) {
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

/// Keeps account of lines.
class Ledger {
  public:
    /// False for a line of no known form, and for one that was here before.
    bool enter(const std::string& line) {
        std::string_view rest(line);
        for (int column = 0; column < 4; ++column) {  // date, time, process, thread
            const size_t blank = rest.find(' ');
            const size_t next = rest.find_first_not_of(' ', blank);
            if (next == std::string_view::npos) {
                return false;
            }
            rest.remove_prefix(next);
        }
        if (!rest.starts_with("D JLog    : ")) {
            return rest.starts_with("I Thread") && mEvents.emplace(rest).second;
        }
        const size_t serial = rest.rfind(" #");
        return serial != std::string_view::npos &&
               mSerials.insert(std::stoul(std::string(rest.substr(serial + 2)))).second &&
               mEvents.emplace(rest.substr(0, serial)).second;
    }

    [[nodiscard]] size_t events() const { return mEvents.size(); }
    [[nodiscard]] bool serialsRunTo(size_t last) const {
        return mSerials.size() == last && *mSerials.begin() == 1 && *mSerials.rbegin() == last;
    }

  private:
    std::set<std::string> mEvents;
    std::set<unsigned long> mSerials;
};

TEST(Road, EveryEventOfFourThreadsIsInTheFilesExactlyOnce) {
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
        std::vector<std::thread> threads;
        for (unsigned int thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back(logRounds, thread);
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    __android_log_set_minimum_priority(ANDROID_LOG_DEFAULT);

    Ledger ledger;
    for (const std::string& line : Support::splitLines(folder.logText())) {
        ASSERT_TRUE(ledger.enter(line)) << line;
    }
    EXPECT_EQ(ledger.events(), 3UL * kThreads * kRounds);
    EXPECT_TRUE(ledger.serialsRunTo(2UL * kThreads * kRounds));
}

}  // namespace
}  // namespace JCam::Utils::JLog
