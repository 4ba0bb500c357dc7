#include "Replay.h"

#include <chrono>
#include <fstream>
#include <functional>
#include <span>
#include <stdexcept>

#include <fmt/format.h>

#include "reader/Line.h"

namespace CameraHost {

using namespace JCam::Utils::JLog;
using Clock = std::chrono::steady_clock;
using Message = ReplayScript::Message;

namespace {

constexpr unsigned int kModule = MODULE_COMMON;
constexpr size_t kMaxUnreadable = 5;

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

/// Logs a thread's messages, and returns how many of them were wanted.
///
/// Through test and entry point, which the macros are made of: the texts are finished, and "%s"
/// would only copy them.
uint64_t replayThread(Ledger& ledger, std::span<const Message> messages) {
    ledger.adoptThread();
    uint64_t calls = 0;
    const Clock::time_point begin = Clock::now();
    for (const Message& message : messages) {
        if (JLogger::isLogDetailsEnabled(kModule, message.level)) {
            JLogger::logNormalDetails(kModule, message.tag.c_str(), message.level,
                                      message.text.c_str(), message.text.size());
            calls++;
        }
    }
    const std::chrono::nanoseconds duration = Clock::now() - begin;
    ledger.addTiming(calls, calls > 0 ? static_cast<uint64_t>(duration.count()) : 0);
    return calls;
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
        if (const auto line = JCam::Reader::parseLine(text, reason)) {
            script.threads[line->origin.tid].push_back(
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

void Replay::start() {
    for (const auto& [tid, messages] : mScript.threads) {
        Ledger& ledger = mLedgers.all()[mThreads.size()];
        mThreads.push_back(std::async(std::launch::async, replayThread, std::ref(ledger),
                                      std::span<const Message>(messages)));
    }
}

bool Replay::waitSecond() {
    const Clock::time_point end = Clock::now() + std::chrono::seconds(1);
    while (!mThreads.empty()) {
        if (mThreads.back().wait_until(end) != std::future_status::ready) {
            return false;
        }
        mLogged += mThreads.back().get();
        mThreads.pop_back();
    }
    return true;
}

}  // namespace CameraHost
