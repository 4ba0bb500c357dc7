#include "support/LogCapture.h"

#include <ostream>

namespace JCam::Support {

void PrintTo(const LogLine& line, std::ostream* out) {
    *out << line.priority << '/' << line.tag << ": " << line.text;
}

LogCapture::LogCapture() {
    sCapture = this;
    __android_log_set_logger(keep);
}

LogCapture::~LogCapture() {
    __android_log_set_logger(__android_log_stderr_logger);
    sCapture = nullptr;
}

void LogCapture::keep(const __android_log_message* message) {
    if (LogCapture* capture = sCapture) {
        const std::lock_guard<std::mutex> lock(capture->mMutex);
        capture->mLines.push_back({message->priority, message->tag, message->message});
    }
}

std::vector<LogLine> LogCapture::lines() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mLines;
}

std::vector<std::string> LogCapture::texts(std::string_view prefix) const {
    std::vector<std::string> result;
    for (const LogLine& line : lines()) {
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
