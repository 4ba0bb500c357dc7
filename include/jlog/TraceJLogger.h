#pragma once

#include <cstdint>

#include "jlog/JLogger.h"

namespace JCam::Utils::JLog {

/// The back end set aside for trace markers. For every enter and exit event it forms the section
/// name "MODULE NAME" on the stack, cut to 127 characters, and asks which trace categories are
/// enabled; its own category mask is 0, so it writes no marker. Details, start, stop and flush do
/// nothing. Stateless; any thread; nothing is allocated. Not signal-safe.
class JLOG_EXPORT TraceJLogger : public JLogger {
  public:
    /// The trace categories (ATRACE_TAG_...) that would make it write markers: none.
    static constexpr uint64_t kTraceCategoryMask = 0;

    /// Does nothing.
    ~TraceJLogger() override;

    void onLogEnter(unsigned int moduleId, const char* name, unsigned int requestNo) override;
    void onLogExit(unsigned int moduleId, const char* name, unsigned int requestNo) override;
    /// Does nothing.
    void onLogDetails(unsigned int moduleId, const char* tag, JLogLevel level, const char* text,
                      unsigned long length) override;
};

}  // namespace JCam::Utils::JLog
