#define JLOG_TAG tagOfThisFile()
#include "jlog/JLogMacros.h"

#include <cerrno>
#include <climits>

#include <atomic>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "jlog/DefaultJLogger.h"
#include "support/Policy.h"
#include "support/RecordingLogger.h"
#include "support/Threads.h"

namespace JCam::Utils::JLog {

/// Declared and nowhere defined: a call that is compiled in does not link.
int nowhereDefined();

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const char* tagOfThisFile() {
    return "IspNode";
}

// "%m" is not ISO C++; Android has it like every other libc that this runs on.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
void logErrnoAndFormat(const std::string& format) {
    JLOGI(MODULE_PREVIEW, "%d %m", errno);
    JLOGI(MODULE_PREVIEW, format.c_str(), wint_t{INT_MAX});
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
        Support::resetPolicy();
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

TEST_F(JLogMacrosTest, IsOneStatementWithAnyModuleAndCallsInItsArguments) {
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
    mCalls.clear();

    // NOLINTBEGIN(readability-braces-around-statements): that is what is tested
    for (const bool wanted : {true, false}) {
        if (wanted)
            JLOGI(MODULE_PREVIEW, "%d", [] {
                JLOGI(MODULE_PREVIEW, "inner");
                return 1;
            }());
        else
            JLOGI(MODULE_PREVIEW, "second branch");
    }
    // NOLINTEND(readability-braces-around-statements)
    EXPECT_THAT(mCalls, ElementsAre("log: details 4 'IspNode' 3 'inner' 5",
                                    "log: details 4 'IspNode' 3 '1' 1",
                                    "log: details 4 'IspNode' 3 'second branch' 13"));
}

TEST_F(JLogMacrosTest, TextIsCutAfter1023BytesAndErrnoIsTheCallers) {
    const std::string longest(1023, 'x');
    errno = ENOENT;
    JLOGI(MODULE_PREVIEW, "%s", longest.c_str());
    JLOGI(MODULE_PREVIEW, "%sy", longest.c_str());
    // No multibyte character: the text cannot be made, and errno says so.
    JLOGI(MODULE_PREVIEW, "wide %lc", wint_t{INT_MAX});
    EXPECT_EQ(errno, ENOENT);
    logErrnoAndFormat("%lc" + longest);
    const std::string head = "log: details 4 'IspNode' 3 '";
    EXPECT_THAT(mCalls, ElementsAre(head + longest + "' 1023", head + longest + "' 1023",
                                    head + "wide %lc' 8", head + "2 No such file or directory' 27",
                                    head + "%lc" + longest.substr(3) + "' 1023"));
}

TEST_F(JLogMacrosTest, ARateLimitSaysHowManyCallsItHeldBack) {
    const std::string longest(1023, 'x');
    const auto log = [&](int64_t ms) {
        JLOGW_EVERY_MS(MODULE_VIDEO, ms, "%s", (evaluate(), longest.c_str()));
    };
    for (const int64_t ms : {0, 3'600'000, 3'600'000, 0}) {
        log(ms);
    }
    JLogger::setLevel(LEVEL_ERROR);
    log(0);
    JLogger::setLevel(LEVEL_WARN);
    log(0);
    const std::string head = "log: details 16 'IspNode' 2 '";
    EXPECT_THAT(mCalls, ElementsAre(head + longest + "' 1023",
                                    head + longest.substr(0, 1009) + " (2 held back)' 1023",
                                    head + longest + "' 1023"));
    EXPECT_EQ(mEvaluated, 3);
}

TEST(JLogRateLimit, AccountsForEveryCallOfEveryThread) {
    JLogRateLimit limit;
    std::atomic<unsigned int> accounted{0};
    constexpr unsigned int kThreads = 4;
    constexpr unsigned int kCalls = 100000;
    Support::runThreads(kThreads, [&](int thread) {
        for (unsigned int call = 0; call < kCalls; ++call) {
            unsigned int heldBack = 0;
            if (limit.admit(thread == 0 ? 0 : 3'600'000, heldBack)) {
                accounted += 1 + heldBack;
            }
        }
    });
    unsigned int heldBack = 0;
    ASSERT_TRUE(limit.admit(0, heldBack));
    EXPECT_EQ(accounted + heldBack, kThreads * kCalls);
}

TEST_F(JLogMacrosTest, ScopesAreLeftInTurnAndAskTheFilterOnce) {
    {
        const int frame = -1;
        JLOG_SCOPE(MODULE_PREVIEW, "outer", frame);
        JLOG_SCOPE(MODULE_CAPTURE, "unwanted", 8);
        {
            JLOG_SCOPE(MODULE_VIDEO, nullptr, INT64_C(0x100000009));
            JLOG_FUNCTION_SCOPE(MODULE_VIDEO, 1);
            JLogger::setFilter(MODULE_CAPTURE);
        }
        mCalls.emplace_back("between");
    }
    EXPECT_THAT(mCalls,
                ElementsAre("log: enter 4 'outer' 4294967295", "log: enter 16 '' 9",
                            "log: enter 16 'TestBody' 1", "log: exit 16 'TestBody' 1",
                            "log: exit 16 '' 9", "between", "log: exit 4 'outer' 4294967295"));
}

TEST_F(JLogMacrosTest, AScopeIsOfLevelDebugWhereTheAndroidLogIsInstalled) {
    const auto wants = [](unsigned int mode, JLogLevel level, JLogger* logger) {
        JLogger::setMode(mode);
        JLogger::setLevel(level);
        JLogger::sJLogger = logger;
        EXPECT_FALSE(JLogger::wantsScope(MODULE_CAPTURE));
        return JLogger::wantsScope(MODULE_PREVIEW);
    };
    EXPECT_FALSE(wants(MODE_DEFAULT, LEVEL_DEBUG_HIGH, getDefaultJLogger()));
    EXPECT_TRUE(wants(MODE_DEFAULT, LEVEL_DEBUG, getDefaultJLogger()));
    EXPECT_FALSE(wants(MODE_DEFAULT | MODE_TRACE, LEVEL_INFO, &mLogger));
    EXPECT_TRUE(wants(MODE_DEFAULT | MODE_TRACE, LEVEL_VERBOSE, &mLogger));
    EXPECT_TRUE(wants(MODE_FILE_ALONE | MODE_TRACE, LEVEL_ERROR, &mLogger));
    // After the last initializer.
    EXPECT_FALSE(wants(MODE_FILE_ALONE, LEVEL_INFO, getDefaultJLogger()));
}

// From here on as in a source that sets it beforehand.
#undef JLOG_MAX_LEVEL
#define JLOG_MAX_LEVEL 3

TEST_F(JLogMacrosTest, CallsAboveTheCeilingLeaveNoCodeBehind) {
    JLogger::setLevel(LEVEL_VERBOSE);
    JLOGI(MODULE_PREVIEW, "kept");
    JLOG_DETAILS(MODULE_PREVIEW, LEVEL_DEBUG_HIGH, "%d", nowhereDefined());
    JLOGD_EVERY_MS(MODULE_PREVIEW, 1000, "%d", nowhereDefined());
    { JLOG_SCOPE(MODULE_PREVIEW, "scope", evaluate()); }
    EXPECT_EQ(mEvaluated, 0);
    EXPECT_THAT(mCalls, ElementsAre("log: details 4 'IspNode' 3 'kept' 4"));
#undef JLOG_MAX_LEVEL
#define JLOG_MAX_LEVEL 5
    { JLOG_SCOPE(MODULE_PREVIEW, "scope", evaluate()); }
    EXPECT_EQ(mEvaluated, 1) << "debug itself has scopes";
}

}  // namespace
}  // namespace JCam::Utils::JLog
