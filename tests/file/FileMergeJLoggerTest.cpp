#include "jlog/file/FileMergeJLogger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/LogCapture.h"

namespace JCam::Utils::JLog::File {
namespace {

using ::testing::ElementsAre;

TEST(FileMergeJLogger, PassesEveryCallToULogUnchanged) {
    const Support::LogCapture log;
    {
        FileMergeJLogger logger;
        logger.onInit();
        logger.onLogEnter(MODULE_PREVIEW, "processFrame", 42);
        logger.onLogExit(0x40, "", 0xFFFFFFFF);
        logger.onLogDetails(MODULE_VIDEO, "Tag", LEVEL_DEBUG, "text", 3);
        logger.onLogDetails(MODULE_VIDEO, "Tag", static_cast<JLogLevel>(99), nullptr, 7);
        logger.onFlush(-3);
        logger.onUninit();
    }
    EXPECT_THAT(
            log.texts(),
            ElementsAre("init", "enter module=0x4 type=1 request=42 name=processFrame",
                        "exit module=0x40 type=1 request=4294967295 name=",
                        "details module=0x10 type=5 length=3 tag=Tag text=tex",
                        "details module=0x10 type=99 length=0 tag=Tag text=", "flush -3", "uninit"))
            << "and destroying the logger calls nothing";
}

}  // namespace
}  // namespace JCam::Utils::JLog::File
