#pragma once

#include <cstdint>

#include "jlog/JLogger.h"

namespace JCam::Utils::JLog {

/// The back end reserved for trace markers. For every enter and exit event it forms the section
/// name "MODULE NAME" on the stack, cut to 127 characters, and reads the enabled trace categories.
/// Its own category mask is 0, so it writes no marker. Details, start, stop and flush do nothing.
/// Stateless; any thread; allocates nothing. Not signal-safe.
class JLOG_EXPORT TraceJLogger : public JLogger {
  public:
    /// The trace categories (ATRACE_TAG_...) for which it writes markers: none.
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
