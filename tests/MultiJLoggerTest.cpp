#include "jlog/MultiJLogger.h"

#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/RecordingLogger.h"

namespace JCam::Utils::JLog {
namespace {

std::vector<std::string> sCalls;

struct First : Support::RecordingLogger {
    First() : RecordingLogger("first", sCalls) {}
};
struct Second : Support::RecordingLogger {
    Second() : RecordingLogger("second", sCalls) {}
};

TEST(MultiJLogger, HandsEveryCallToBothAndStopsThemInReverse) {
    auto pair = std::make_unique<MultiJLogger<First, Second>>();
    pair->onInit();
    pair->onLogEnter(1, "a", 2);
    pair->onLogExit(3, "b", 4);
    pair->onLogDetails(5, "c", LEVEL_INFO, "d", 1);
    pair->onFlush(6);
    pair->onUninit();
    pair.reset();
    EXPECT_THAT(sCalls,
                ::testing::ElementsAre("first: init", "second: init", "first: enter 1 'a' 2",
                                       "second: enter 1 'a' 2", "first: exit 3 'b' 4",
                                       "second: exit 3 'b' 4", "first: details 5 'c' 3 'd' 1",
                                       "second: details 5 'c' 3 'd' 1", "first: flush 6",
                                       "second: flush 6", "second: uninit", "first: uninit",
                                       "second: destroyed", "first: destroyed"));
}

}  // namespace
}  // namespace JCam::Utils::JLog
