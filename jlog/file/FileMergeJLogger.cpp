#include "jlog/file/FileMergeJLogger.h"

#include <ulog/FileULogger.h>

namespace JCam::Utils::JLog::File {

namespace {

using NSCam::Utils::ULog::DetailsType;
using NSCam::Utils::ULog::RequestTypeId;
using NSCam::Utils::ULog::File::FileULogger;

/// The application request, the only kind that this library logs.
constexpr auto kAppRequest = static_cast<RequestTypeId>(1);

}  // namespace

FileMergeJLogger::FileMergeJLogger() : mULogger(FileULogger::getInstance()) {}

FileMergeJLogger::~FileMergeJLogger() {
    mULogger = nullptr;
}

void FileMergeJLogger::onLogEnter(unsigned int moduleId, const char* name, unsigned int requestNo) {
    mULogger->onLogEnter(moduleId, name, kAppRequest, requestNo);
}

void FileMergeJLogger::onLogExit(unsigned int moduleId, const char* name, unsigned int requestNo) {
    mULogger->onLogExit(moduleId, name, kAppRequest, requestNo);
}

void FileMergeJLogger::onLogDetails(unsigned int moduleId, const char* tag, JLogLevel level,
                                    const char* text, unsigned long length) {
    // ULog numbers its details types as JLogLevel numbers the levels.
    const auto type = static_cast<DetailsType>(level);
    if (text == nullptr) {
        mULogger->onLogDetails(moduleId, tag, type, "", 0);
        return;
    }
    mULogger->onLogDetails(moduleId, tag, type, text, length);
}

void FileMergeJLogger::onInit() {
    mULogger->onInit();
}

void FileMergeJLogger::onUninit() {
    mULogger->onUninit();
}

void FileMergeJLogger::onFlush(int timeoutSec) {
    mULogger->onFlush(timeoutSec);
}

}  // namespace JCam::Utils::JLog::File
