#pragma once

#include "jlog/JLogger.h"

namespace NSCam::Utils::ULog::File {
class FileULogger;
}  // namespace NSCam::Utils::ULog::File

namespace JCam::Utils::JLog::File {

/// Passes every call, argument for argument, to the vendor's process-wide ULog file logger, so that
/// camera and platform events share its files. It keeps nothing itself; its thread safety is that
/// of the ULog logger.
class JLOG_EXPORT FileMergeJLogger : public JLogger {
  public:
    FileMergeJLogger();
    /// Leaves the ULog logger alone.
    ~FileMergeJLogger() override;

    void onLogEnter(unsigned int moduleId, const char* name, unsigned int requestNo) override;
    void onLogExit(unsigned int moduleId, const char* name, unsigned int requestNo) override;
    void onLogDetails(unsigned int moduleId, const char* tag, JLogLevel level, const char* text,
                      unsigned long length) override;
    void onInit() override;
    void onUninit() override;
    void onFlush(int timeoutSec) override;

  private:
    /// Not owned; lives as long as the process.
    NSCam::Utils::ULog::File::FileULogger* mULogger;
};

}  // namespace JCam::Utils::JLog::File
