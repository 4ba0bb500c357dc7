#include "Ledger.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <functional>

namespace CameraHost {

using JCam::Utils::JLog::JLogLevel;

namespace {

constexpr size_t kMaxTagBytes = 128;
constexpr size_t kMaxTextBytes = 1023;

uint64_t mix(uint64_t seed, uint64_t value) {
    constexpr uint64_t kGoldenRatio = 0x9e3779b97f4a7c15;
    return seed ^ (value + kGoldenRatio + (seed << 6U) + (seed >> 2U));
}

/// The ledger of the calling thread, if it has adopted one.
constinit thread_local Ledger* tLedger = nullptr;

uint64_t hashOf(std::string_view text) {
    return std::hash<std::string_view>{}(text);
}

}  // namespace

char levelLetter(JLogLevel level) {
    constexpr std::string_view kLetters = "VEWIDDV";
    return level < kLetters.size() ? kLetters[level] : 'V';
}

uint64_t detailsHash(char letter, std::string_view tag, std::string_view text) {
    tag = tag.substr(0, kMaxTagBytes);
    tag = tag.substr(0, tag.find_last_not_of(' ') + 1);
    return mix(mix(hashOf(tag), hashOf(text.substr(0, kMaxTextBytes))),
               static_cast<uint64_t>(letter));
}

uint64_t scopeHash(char sign, uint32_t moduleId, std::string_view name, uint32_t requestNo) {
    return mix(mix(mix(hashOf(name), moduleId), requestNo), static_cast<uint64_t>(sign));
}

void Ledger::adoptThread() {
    tLedger = this;
    mTid.store(static_cast<int>(syscall(SYS_gettid)), std::memory_order_relaxed);
}

Ledger* Ledger::ofThisThread() {
    return tLedger;
}

void Ledger::addTiming(uint64_t calls, uint64_t ns) {
    mTimedCalls += calls;
    mTimedNs += ns;
}

}  // namespace CameraHost
