#pragma once

#include <string>
#include <utility>
#include <vector>

#include "jlog/JLogger.h"

namespace JCam::Support {

/// A back end that writes down its calls, each as one line that begins with its name.
class RecordingLogger : public Utils::JLog::JLogger {
  public:
    RecordingLogger(std::string name, std::vector<std::string>& calls)
            : mName(std::move(name)), mCalls(calls) {}
    ~RecordingLogger() override { keep("destroyed"); }

    void onLogEnter(unsigned int moduleId, const char* name, unsigned int requestNo) override {
        keep("enter " + std::to_string(moduleId) + " '" + name + "' " + std::to_string(requestNo));
    }
    void onLogExit(unsigned int moduleId, const char* name, unsigned int requestNo) override {
        keep("exit " + std::to_string(moduleId) + " '" + name + "' " + std::to_string(requestNo));
    }
    void onLogDetails(unsigned int moduleId, const char* tag, Utils::JLog::JLogLevel level,
                      const char* text, unsigned long length) override {
        keep("details " + std::to_string(moduleId) + " '" + tag + "' " + std::to_string(level) +
             " '" + (text != nullptr ? text : "null") + "' " + std::to_string(length));
    }
    void onInit() override { keep("init"); }
    void onUninit() override { keep("uninit"); }
    void onFlush(int timeoutSec) override { keep("flush " + std::to_string(timeoutSec)); }

  private:
    void keep(const std::string& call) { mCalls.push_back(mName + ": " + call); }

    std::string mName;
    std::vector<std::string>& mCalls;
};

}  // namespace JCam::Support
