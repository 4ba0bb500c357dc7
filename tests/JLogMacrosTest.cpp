#define JLOG_TAG tagOfThisFile()
#include "jlog/JLogMacros.h"

#include <cerrno>
#include <climits>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "jlog/DefaultJLogger.h"
#include "support/RecordingLogger.h"

#define HUNDRED                                                                                    \
    "01234567890123456789012345678901234567890123456789012345678901234567890123456789012345678901" \
    "23456789"
#define KILOBYTE                                                                            \
    HUNDRED HUNDRED HUNDRED HUNDRED HUNDRED HUNDRED HUNDRED HUNDRED HUNDRED HUNDRED HUNDRED \
            "the last ones of all"

namespace JCam::Utils::JLog {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const char* tagOfThisFile() {
    return "IspNode";
}

// "%m" is not ISO C++; Android has it like every other libc that this runs on.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
void logErrno() {
    JLOGI(MODULE_PREVIEW, "%d %m", errno);
}
#pragma GCC diagnostic pop

struct Sensor {
    static const unsigned int kModule = MODULE_PREVIEW;  // declared, and nowhere defined
    unsigned int module : 5;
    ModuleId id;
};

class JLogMacrosTest : public ::testing::Test {
  protected:
    JLogMacrosTest() {
        JLogger::sJLogger = &mLogger;
        JLogger::setFilter(MODULE_PREVIEW | MODULE_VIDEO);
        JLogger::setLevel(LEVEL_INFO);
    }
    ~JLogMacrosTest() override {
        JLogger::sJLogger = getDefaultJLogger();
        JLogger::setLevel(0);
        JLogger::setFilter(0);
    }

    /// Counts its calls.
    int evaluate() { return ++mEvaluated; }

    std::vector<std::string> mCalls;
    Support::RecordingLogger mLogger{"log", mCalls};
    int mEvaluated{0};
};

TEST_F(JLogMacrosTest, WantedCallsAreFormattedAtTheirLevelUnderTheTagOfTheFile) {
    JLogger::setLevel(LEVEL_VERBOSE);
    JLOGE(MODULE_PREVIEW, "plain, 100%%");
    JLOGW(MODULE_PREVIEW, "gain %.2f of %s", 2.5, "sensor");
    JLOGI(MODULE_VIDEO, "%s", "");
    JLOGD(MODULE_VIDEO | 0x40U, "d");
    JLOGV(4, "v");
    JLOG_DEBUG_HIGH(MODULE_PREVIEW, "%d", 4);
    JLOG_DETAILS(MODULE_PREVIEW, JLogLevel{}, "no level");
    EXPECT_THAT(mCalls,
                ElementsAre("log: details 4 'IspNode' 1 'plain, 100%' 11",
                            "log: details 4 'IspNode' 2 'gain 2.50 of sensor' 19",
                            "log: details 16 'IspNode' 3 '' 0", "log: details 80 'IspNode' 5 'd' 1",
                            "log: details 4 'IspNode' 6 'v' 1", "log: details 4 'IspNode' 4 '4' 1",
                            "log: details 4 'IspNode' 0 'no level' 8"));
}

TEST_F(JLogMacrosTest, ArgumentsOfAnUnwantedCallAreNotEvaluated) {
    JLOGD(MODULE_PREVIEW, "%d", evaluate());
    JLOGE(MODULE_CAPTURE, "%d", evaluate());
    JLOGE(MODULE_INVALID, "%d", evaluate());
    // Of a variable the low 32 bits count.
    const uint64_t large = uint64_t{1} << (evaluate() + 31);
    JLOGE(large, "%d", evaluate());
    EXPECT_EQ(mEvaluated, 1) << "for the shift";
    EXPECT_THAT(mCalls, IsEmpty());
    // Module and level are, once.
    JLOG_DETAILS((evaluate(), MODULE_PREVIEW), (evaluate(), LEVEL_INFO), "%d", evaluate());
    EXPECT_THAT(mCalls, ElementsAre("log: details 4 'IspNode' 3 '4' 1"));
}

TEST_F(JLogMacrosTest, AnArgumentMayHaveACallInIt) {
    const auto inner = [](int value) {
        JLOGI(MODULE_PREVIEW, "inner");
        return value;
    };
    JLOGI(MODULE_PREVIEW, "%d %d", inner(1), [] {
        JLOGE(MODULE_VIDEO, "innermost");
        return 2;
    }());
    EXPECT_THAT(mCalls, ::testing::UnorderedElementsAre("log: details 4 'IspNode' 3 'inner' 5",
                                                        "log: details 16 'IspNode' 1 'innermost' 9",
                                                        "log: details 4 'IspNode' 3 '1 2' 3"));
}

TEST_F(JLogMacrosTest, AModuleMayBeAnythingThatIsANumber) {
    enum class Scoped : uint64_t { VIDEO = MODULE_VIDEO };
    constexpr auto kModule = MODULE_PREVIEW;
    static const Sensor sSensors[] = {{MODULE_VIDEO, MODULE_PREVIEW}};
    Sensor sensor{MODULE_VIDEO, MODULE_PREVIEW};
    std::atomic<uint32_t> shared{MODULE_VIDEO};
    [] { JLOGI(kModule, "no capture"); }();
    JLOGI(Sensor::kModule, "member");
    JLOGI(sensor.module, "bit-field");
    JLOGI(sensor.id, "variable");
    JLOGI(sSensors[0].id, "of a constant table");
    JLOGI(Scoped::VIDEO, "scoped");
    JLOGI(shared, "atomic");
    EXPECT_EQ(mCalls.size(), 7U);
}

TEST_F(JLogMacrosTest, IsOneStatement) {
    // NOLINTBEGIN(readability-braces-around-statements): that is what is tested
    for (const bool wanted : {true, false}) {
        if (wanted)
            JLOGI(MODULE_PREVIEW, "first branch");
        else
            JLOGI(MODULE_PREVIEW, "second branch");
    }
    // NOLINTEND(readability-braces-around-statements)
    EXPECT_THAT(mCalls, ElementsAre("log: details 4 'IspNode' 3 'first branch' 12",
                                    "log: details 4 'IspNode' 3 'second branch' 13"));
}

TEST_F(JLogMacrosTest, TextIsCutAfter1023BytesAndErrnoIsTheCallers) {
    const std::string longest(1023, 'x');
    errno = ENOENT;
    JLOGI(MODULE_PREVIEW, "%s", longest.c_str());
    JLOGI(MODULE_PREVIEW, "%sy", longest.c_str());
    logErrno();
    // No multibyte character: the text cannot be made, and errno says so.
    JLOGI(MODULE_PREVIEW, "wide %lc", wint_t{INT_MAX});
    JLOGI(MODULE_PREVIEW, "%lc" KILOBYTE, wint_t{INT_MAX});
    EXPECT_EQ(errno, ENOENT);
    const std::string whole = "log: details 4 'IspNode' 3 '" + longest + "' 1023";
    EXPECT_THAT(mCalls, ElementsAre(whole, whole,
                                    "log: details 4 'IspNode' 3 '2 No such file or directory' 27",
                                    "log: details 4 'IspNode' 3 'wide %lc' 8",
                                    "log: details 4 'IspNode' 3 '" +
                                            std::string("%lc" KILOBYTE, 1023) + "' 1023"));
}

TEST_F(JLogMacrosTest, ARateLimitSaysHowManyCallsItHeldBack) {
    const std::string longest(1023, 'x');
    const auto log = [&](int64_t ms) { JLOGW_EVERY_MS(MODULE_VIDEO, ms, "%s", longest.c_str()); };
    log(0);
    for (int i = 0; i < 12; ++i) {
        log(3'600'000);
    }
    log(0);
    JLogger::setLevel(LEVEL_ERROR);
    log(0);
    JLogger::setLevel(LEVEL_WARN);
    log(0);
    const std::string whole = "log: details 16 'IspNode' 2 '" + longest + "' 1023";
    EXPECT_THAT(mCalls, ElementsAre(whole,
                                    "log: details 16 'IspNode' 2 '" + longest.substr(0, 1008) +
                                            " (12 held back)' 1023",
                                    whole));
    mCalls.clear();
    for (int i = 0; i < 3; ++i) {
        JLOGE_EVERY_MS(MODULE_VIDEO, 3'600'000, "%d", evaluate());
    }
    EXPECT_EQ(mEvaluated, 1);
}

TEST(JLogRateLimit, AccountsForEveryCallOfEveryThread) {
    JLogRateLimit limit;
    std::atomic<unsigned int> admitted{0};
    std::atomic<unsigned int> told{0};
    constexpr unsigned int kThreads = 4;
    constexpr unsigned int kCalls = 20000;
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (unsigned int call = 0; call < kCalls; ++call) {
                unsigned int heldBack = 0;
                if (limit.admit(1, heldBack)) {
                    ++admitted;
                    told += heldBack;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    unsigned int heldBack = 0;
    ASSERT_TRUE(limit.admit(0, heldBack));
    EXPECT_EQ(admitted + told + heldBack, kThreads * kCalls);
}

}  // namespace
}  // namespace JCam::Utils::JLog
