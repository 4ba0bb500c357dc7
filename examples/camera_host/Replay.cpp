#include "Replay.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <span>
#include <stdexcept>

#include <fmt/format.h>

#include "ThreadtimeLine.h"

namespace CameraHost {

using namespace JCam::Utils::JLog;
using Clock = std::chrono::steady_clock;
using Message = ReplayScript::Message;

namespace {

constexpr unsigned int kModule = MODULE_COMMON;
constexpr size_t kMaxUnreadable = 5;
/// Calls between two clock readings: enough to make the readings small beside them.
constexpr size_t kGroup = 16;

JLogLevel levelOf(char letter) {
    switch (letter) {
        case 'E':
        case 'F':  // Our levels have nothing above an error.
            return LEVEL_ERROR;
        case 'W':
            return LEVEL_WARN;
        case 'I':
            return LEVEL_INFO;
        case 'D':
            return LEVEL_DEBUG;
        default:
            return LEVEL_VERBOSE;
    }
}

/// Logs up to kGroup messages and appends their hashes to `logged`.
///
/// Through test and entry point, which the macros are made of, and without a Witness. The texts are
/// finished: "%s" would only copy them, and cut the long ones before the back end could. And they
/// are to be found without a number, so that the caller must know himself which were wanted.
void replayGroup(Ledger& ledger, std::span<const Message> messages, std::vector<uint64_t>& logged) {
    std::array<bool, kGroup> wanted{};
    uint64_t calls = 0;
    const Clock::time_point begin = Clock::now();
    for (size_t i = 0; i < messages.size(); i++) {
        const Message& message = messages[i];
        wanted[i] = JLogger::isLogDetailsEnabled(kModule, message.level);
        if (wanted[i]) {
            JLogger::logNormalDetails(kModule, message.tag.c_str(), message.level,
                                      message.text.c_str(), message.text.size());
            calls++;
        }
    }
    const std::chrono::nanoseconds duration = Clock::now() - begin;
    if (calls > 0) {
        ledger.addTiming(calls, static_cast<uint64_t>(duration.count()));
    }
    for (size_t i = 0; i < messages.size(); i++) {
        if (wanted[i]) {
            const Message& message = messages[i];
            const uint64_t hash =
                    detailsHash(levelLetter(message.level), message.tag, message.text);
            ledger.countDetails();
            ledger.addContent(hash);
            logged.push_back(hash);
        }
    }
}

void replayThread(Ledger& ledger, std::span<const Message> messages,
                  std::vector<uint64_t>& logged) {
    ledger.adoptThread();
    logged.reserve(messages.size());
    for (size_t i = 0; i < messages.size(); i += kGroup) {
        replayGroup(ledger, messages.subspan(i, std::min(kGroup, messages.size() - i)), logged);
    }
}

}  // namespace

ReplayScript loadReplay(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error(fmt::format("cannot open {}", path));
    }
    ReplayScript script;
    std::string text;
    for (size_t number = 1; std::getline(in, text); number++) {
        std::string_view reason;
        if (const auto line = parseThreadtimeLine(text, reason)) {
            script.threads[line->tid].push_back(
                    {levelOf(line->level), std::string(line->tag), std::string(line->text)});
            script.messages++;
            script.fatal += line->level == 'F' ? 1U : 0U;
            continue;
        }
        script.unreadable++;
        if (script.firstUnreadable.size() < kMaxUnreadable) {
            script.firstUnreadable.push_back({number, reason});
        }
    }
    if (in.bad()) {
        throw std::runtime_error(fmt::format("cannot read {}", path));
    }
    return script;
}

Replay::Replay(const ReplayScript& script, LedgerBook& ledgers)
        : mScript(script), mLedgers(ledgers) {}

void Replay::start() {
    for (const auto& [tid, messages] : mScript.threads) {
        Ledger& ledger = mLedgers.add(static_cast<uint32_t>(mLogged.size() + 1));
        std::vector<uint64_t>& logged = mLogged.emplace_back();
        mThreads.push_back(std::async(std::launch::async, [&ledger, &messages = messages, &logged] {
            replayThread(ledger, messages, logged);
        }));
    }
}

bool Replay::waitSecond() {
    const Clock::time_point end = Clock::now() + std::chrono::seconds(1);
    while (!mThreads.empty()) {
        if (mThreads.back().wait_until(end) != std::future_status::ready) {
            return false;
        }
        mThreads.back().get();
        mThreads.pop_back();
    }
    return true;
}

std::vector<uint64_t> Replay::logged() const {
    std::vector<uint64_t> all;
    for (const std::vector<uint64_t>& hashes : mLogged) {
        all.insert(all.end(), hashes.begin(), hashes.end());
    }
    return all;
}

}  // namespace CameraHost
