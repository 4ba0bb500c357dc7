#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include <fmt/core.h>

#include "jlog/JLogger.h"
#include "Ledger.h"

/// How a camera module logs. Everything a call site does is in this file:
///
///     void IspNode::process(Request& request) {
///         NodeScope scope(ledger, MODULE_PREVIEW, "IspNode", request.number);
///         details(ledger, MODULE_PREVIEW, "IspNode", LEVEL_DEBUG, "gain {}", request.gain);
///     }
///
/// Ask first, log after: the entry points of JLogger filter nothing, so a call site that does not
/// ask is heard in every mode and at every level. Format only what will be logged, and on the
/// stack: a logging thread allocates nothing.
///
/// The ledger is this program's own addition. It lets the host prove that no event was lost.
namespace CameraHost {

/// Whether enter and exit are wanted: some back end is there that makes use of them.
[[nodiscard]] inline bool areScopesEnabled() {
    using namespace JCam::Utils::JLog;
    return JLogger::isFileModeEnabled() || JLogger::isModeEnabled(MODE_DEFAULT | MODE_TRACE);
}

/// Logs that a request enters a node and, at the end of the block, that it leaves it. The test is
/// asked once, so an enter has its exit even when the mode changes in between.
class NodeScope {
  public:
    /// `name` must outlive the scope.
    NodeScope(Ledger& ledger, unsigned int moduleId, const char* name, unsigned int requestNo)
            : mLedger(ledger),
              mName(name),
              mModuleId(moduleId),
              mRequestNo(requestNo),
              mEntered(areScopesEnabled()) {
        if (mEntered) {
            JCam::Utils::JLog::JLogger::logEnter(mModuleId, mName, mRequestNo);
            mLedger.countEnter();
            mLedger.addContent(scopeHash('+', mModuleId, mName, mRequestNo));
        }
    }
    ~NodeScope() {
        if (mEntered) {
            JCam::Utils::JLog::JLogger::logExit(mModuleId, mName, mRequestNo);
            mLedger.countExit();
            mLedger.addContent(scopeHash('-', mModuleId, mName, mRequestNo));
        }
    }
    NodeScope(const NodeScope&) = delete;
    NodeScope& operator=(const NodeScope&) = delete;

  private:
    Ledger& mLedger;
    const char* const mName;
    const unsigned int mModuleId;
    const unsigned int mRequestNo;
    const bool mEntered;
};

/// A message text on the stack, cut where the array ends and always NUL-terminated.
struct LogText {
    std::array<char, 256> chars;
    size_t length;

    [[nodiscard]] std::string_view view() const { return {chars.data(), length}; }
};

/// Formats a text and ends it with " seq=T<thread>:<number>", by which the check finds it again.
void formatText(LogText& text, uint32_t threadNumber, uint64_t textNumber, fmt::string_view format,
                fmt::format_args args);

/// Logs a message if its module and level are wanted.
template <typename... Args>
void details(Ledger& ledger, unsigned int moduleId, const char* tag,
             JCam::Utils::JLog::JLogLevel level, fmt::format_string<Args...> format,
             Args&&... args) {
    using JCam::Utils::JLog::JLogger;
    if (!JLogger::isLogDetailsEnabled(moduleId, level)) {
        return;
    }
    LogText text;
    formatText(text, ledger.number(), ledger.details() + 1, format, fmt::make_format_args(args...));
    JLogger::logNormalDetails(moduleId, tag, level, text.chars.data(), text.length);
    ledger.countDetails();
    ledger.addContent(detailsHash(levelLetter(level), tag, text.view()));
}

}  // namespace CameraHost
