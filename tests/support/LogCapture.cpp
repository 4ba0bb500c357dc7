#include "support/LogCapture.h"

#include <atomic>
#include <ostream>

#include <android/log.h>

namespace JCam::Support {

namespace {
// Release and acquire: a capture is complete before a thread finds it.
std::atomic<LogCapture*> sCapture{nullptr};
}  // namespace

void keepLine(int priority, const char* tag, const char* text) {
    LogCapture* capture = sCapture.load(std::memory_order_acquire);
    if (capture == nullptr) {
        return;
    }
    const std::lock_guard<std::mutex> lock(capture->mMutex);
    capture->mLines.push_back({priority, tag, text});
}

void PrintTo(const LogLine& line, std::ostream* out) {
    *out << line.priority << '/' << line.tag << ": " << line.text;
}

LogCapture::LogCapture() {
    sCapture.store(this, std::memory_order_release);
    __android_log_set_logger([](const __android_log_message* message) {
        keepLine(message->priority, message->tag, message->message);
    });
}

LogCapture::~LogCapture() {
    __android_log_set_logger(__android_log_stderr_logger);
    sCapture.store(nullptr, std::memory_order_release);
}

std::vector<LogLine> LogCapture::lines() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mLines;
}

std::vector<std::string> LogCapture::texts(std::string_view prefix) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    std::vector<std::string> result;
    for (const LogLine& line : mLines) {
        if (line.text.starts_with(prefix)) {
            result.push_back(line.text);
        }
    }
    return result;
}

void LogCapture::clear() {
    const std::lock_guard<std::mutex> lock(mMutex);
    mLines.clear();
}

}  // namespace JCam::Support
