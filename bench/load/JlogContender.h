#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <android/log.h>
#include <cutils/properties.h>

#include "jlog/JLogger.h"
#include "jlog/JLogInitializer.h"
#include "Workload.h"

namespace JCam::Bench {

/// This library with own files, as a host uses it: crash hook armed, default flush interval.
class JlogContender {
  public:
    explicit JlogContender(const Workload& work, const std::string& boxFolder = "") : mWork(work) {
        property_set("vendor.debug.camera.ulog.folder", work.folder.c_str());
        property_set("vendor.debug.camera.jlog.mode", "0x04");
        property_set("vendor.debug.camera.jlog.blackbox", boxFolder.c_str());
        // As on a device, without debug lines of the logger.
        __android_log_set_minimum_priority(ANDROID_LOG_WARN);
        mInitializer = std::make_unique<Utils::JLog::JLogInitializer>(0);
    }

    static void logEnter(unsigned int request) {
        Utils::JLog::JLogger::logEnter(Utils::JLog::MODULE_PREVIEW, Workload::kName, request);
    }
    void logMessage() {
        Utils::JLog::JLogger::logNormalDetails(Utils::JLog::MODULE_PREVIEW, Workload::kTag,
                                               Utils::JLog::LEVEL_INFO, mWork.text.c_str(),
                                               mWork.text.size());
    }
    /// Returns when everything logged is in the file.
    static void drain() { Utils::JLog::JLogger::flush(60); }

    /// Lines that are no event: the first one of each later file.
    static uint64_t foreignLines(uint64_t files) { return files > 0 ? files - 1 : 0; }

  private:
    const Workload& mWork;
    /// Its destructor writes the rest.
    std::unique_ptr<Utils::JLog::JLogInitializer> mInitializer;
};

/// The same with a black box.
class BoxedContender : public JlogContender {
  public:
    explicit BoxedContender(const Workload& work) : JlogContender(work, work.folder / "box") {}
};

}  // namespace JCam::Bench
