#include <ulog/FileULogger.h>

#include <string>
#include <vector>

#include "PlatformTest.h"

using NSCam::Utils::ULog::DetailsType;
using NSCam::Utils::ULog::RequestTypeId;
using NSCam::Utils::ULog::File::FileULogger;

namespace {

TEST(FileULogger, PrintsEachCallWithItsArguments) {
    const CapturedLog log;
    FileULogger* const logger = FileULogger::getInstance();
    EXPECT_EQ(logger, FileULogger::getInstance());
    logger->onInit();
    logger->onLogEnter(0x4, "processFrame", RequestTypeId{1}, 42);
    logger->onLogExit(0xFFFFFFFF, nullptr, RequestTypeId{0xFFFFFFFF}, 0xFFFFFFFF);
    const std::string text(5000, 'x');
    logger->onLogDetails(0x1, "Tag", DetailsType{5}, text.c_str(), text.size());
    logger->onLogDetails(0x1, nullptr, DetailsType{6}, nullptr, 3);
    logger->onLogDetails(0x1, "Tag", DetailsType{6}, "abcdef", 3);
    logger->onFlush(-1);
    logger->onUninit();
    EXPECT_EQ(CapturedLog::sMessages,
              (std::vector<std::string>{
                      "3/ULog: init",
                      "3/ULog: enter module=0x4 type=1 request=42 name=processFrame",
                      "3/ULog: exit module=0xffffffff type=4294967295 request=4294967295 name=",
                      "3/ULog: details module=0x1 type=5 length=5000 tag=Tag text=" + text,
                      "3/ULog: details module=0x1 type=6 length=3 tag= text=",
                      "3/ULog: details module=0x1 type=6 length=3 tag=Tag text=abc",
                      "3/ULog: flush -1",
                      "3/ULog: uninit",
              }));
}

}  // namespace
