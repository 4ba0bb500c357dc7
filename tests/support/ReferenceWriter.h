#pragma once

#include <array>
#include <functional>
#include <string>

#include "jlog/file/LogRecord.h"

namespace JCam::Support {

/// The log file format once more, as plainly as it can be put: printf and strftime, straight into a
/// buffer that is written out when it is nearly full. What the library renders must equal it byte
/// for byte, and benchmarks measure the library against it.
class ReferenceWriter {
  public:
    using Sink = std::function<void(const char* text, size_t bytes)>;

    ReferenceWriter(int pid, Sink sink);

    void enterExit(const Utils::JLog::File::LogEnterExit& record, char direction);
    void details(const Utils::JLog::File::LogDetails& record);
    void flush();

  private:
    void date(const timespec& timestamp);
    void append(int formatted);
    [[nodiscard]] size_t room() const { return mBuffer.size() - mBytes; }

    int mPid;
    Sink mSink;
    std::array<char, 24576> mBuffer;
    size_t mBytes{0};
};

}  // namespace JCam::Support
