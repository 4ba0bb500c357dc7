#include "Witness.h"

#include <algorithm>
#include <array>
#include <string_view>

#include <fmt/format.h>

#include "Ledger.h"

namespace CameraHost {

using JCam::Utils::JLog::JLogLevel;

namespace {

/// Room for " seq=T" and ":" with the longest 32-bit and 64-bit numbers: the number must never be
/// what is cut.
constexpr size_t kSeqBytes = 6 + 10 + 1 + 20;

/// A text on the stack, as long as a back end keeps it.
struct NumberedText {
    std::array<char, Witness::kMaxTextChars + 1> chars;
    size_t length;

    [[nodiscard]] std::string_view view() const { return {chars.data(), length}; }
};

/// Copies `text`, cut if need be, with its number behind it.
void numberText(NumberedText& numbered, std::string_view text, uint32_t threadNumber,
                uint64_t textNumber) {
    constexpr size_t kRoom = Witness::kMaxTextChars - kSeqBytes;
    char* const begin = numbered.chars.data();
    char* end = std::copy_n(text.data(), std::min(text.size(), kRoom), begin);
    end = fmt::format_to_n(end, kSeqBytes, " seq=T{}:{}", threadNumber, textNumber).out;
    *end = '\0';
    numbered.length = static_cast<size_t>(end - begin);
}

}  // namespace

Witness::Witness() : mLogger(*getLogger()) {
    // Release, like every store of the pointer: see JLogger::getLogger().
    sJLogger.store(this, std::memory_order_release);
}

Witness::~Witness() {
    sJLogger.store(&mLogger, std::memory_order_release);
}

void Witness::onLogEnter(unsigned int moduleId, const char* name, unsigned int requestNo) {
    mLogger.onLogEnter(moduleId, name, requestNo);
    if (Ledger* const ledger = Ledger::ofThisThread(); ledger != nullptr) {
        ledger->countEnter();
        ledger->addContent(scopeHash('+', moduleId, name, requestNo));
    }
}

void Witness::onLogExit(unsigned int moduleId, const char* name, unsigned int requestNo) {
    mLogger.onLogExit(moduleId, name, requestNo);
    if (Ledger* const ledger = Ledger::ofThisThread(); ledger != nullptr) {
        ledger->countExit();
        ledger->addContent(scopeHash('-', moduleId, name, requestNo));
    }
}

void Witness::onLogDetails(unsigned int moduleId, const char* tag, JLogLevel level,
                           const char* text, unsigned long length) {
    Ledger* const ledger = Ledger::ofThisThread();
    if (ledger == nullptr) {
        mLogger.onLogDetails(moduleId, tag, level, text, length);
        return;
    }
    // The number of a call that has not returned is thus one above the count.
    NumberedText numbered;
    numberText(numbered, text != nullptr ? std::string_view(text, length) : std::string_view(),
               ledger->number(), ledger->counts().details + 1);
    mLogger.onLogDetails(moduleId, tag, level, numbered.chars.data(), numbered.length);
    ledger->countDetails();
    ledger->addContent(detailsHash(levelLetter(level), tag, numbered.view()));
}

void Witness::onFlush(int timeoutSec) {
    mLogger.onFlush(timeoutSec);
}

}  // namespace CameraHost
