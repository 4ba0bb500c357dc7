#pragma once

#include "jlog/JLogger.h"

namespace NSCam::Utils::ULog::File {
class FileULogger;
}  // namespace NSCam::Utils::ULog::File

namespace JCam::Utils::JLog::File {

/// Passes every call, argument for argument, to the vendor's process-wide ULog file logger, so that
/// camera and platform events share its files. A null text goes as an empty one, and the level as
/// the details type of the same number. It keeps nothing itself; its thread safety, and whether a
/// call blocks or allocates, are those of the ULog logger.
class JLOG_EXPORT FileMergeJLogger : public JLogger {
  public:
    /// Asks for the ULog logger of the process.
    FileMergeJLogger();
    /// Leaves the ULog logger alone.
    ~FileMergeJLogger() override;

    void onLogEnter(unsigned int moduleId, const char* name, unsigned int requestNo) override;
    void onLogExit(unsigned int moduleId, const char* name, unsigned int requestNo) override;
    void onLogDetails(unsigned int moduleId, const char* tag, JLogLevel level, const char* text,
                      unsigned long length) override;
    /// Reaches the ULog logger of the whole process, like the two below.
    void onInit() override;
    void onUninit() override;
    /// `timeoutSec` goes on as it is.
    void onFlush(int timeoutSec) override;

  private:
    /// Not owned; lives as long as the process.
    NSCam::Utils::ULog::File::FileULogger* mULogger;
};

}  // namespace JCam::Utils::JLog::File
