// From the calls to the file: whatever is logged is to be found there, in order and cut as the
// format says, and nothing is read of a text but what its caller gave.

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include "Check.h"
#include "ComparedWriter.h"
#include "ExactCopy.h"
#include "jlog/file/FileJLoggerBase.h"

namespace JCam::Fuzz {

using namespace Utils::JLog;
using namespace Utils::JLog::File;

namespace {

constexpr size_t kMaxNameBytes = 200;
constexpr size_t kMaxTextBytes = 5000;
/// Enough to fill more than one buffer with what an input says.
constexpr size_t kMaxRepeats = 1000;
/// Of all calls of an input: more than a buffer has.
constexpr size_t kMaxLoggedBytes = 300000;

/// The base as a subclass sees it. This one consumes its buffers on request.
class Logger : public FileJLoggerBase {
  public:
    using FileJLoggerBase::recycleFront;
    using FileJLoggerBase::renderRecords;

    /// Queues the current buffer, if there is anything in it.
    void retire() {
        const JLogLock lock(mMutex);
        if (currentHoldsRecordsLocked()) {
            check(retireCurrentLocked() == 0, "no writer is pending");
        }
    }
    /// The oldest buffer of the queue, or null.
    const Buffer* oldest() {
        const JLogLock lock(mMutex);
        return mFullBuffers.front();
    }
};

/// A call, with what it was given in memory that ends where the text does.
class Call {
  public:
    enum class Kind { ENTER, EXIT, DETAILS };

    explicit Call(FuzzedDataProvider& input)
            : mKind(input.PickValueInArray({Kind::DETAILS, Kind::ENTER, Kind::EXIT})),
              mName(makeText(input, kMaxNameBytes) + '\0'),
              mModuleId(input.ConsumeBool() ? 1U << input.ConsumeIntegralInRange(0, 31)
                                            : input.ConsumeIntegral<uint32_t>()),
              mNumber(input.ConsumeIntegral<uint8_t>()) {
        if (input.ConsumeIntegralInRange(0, 7) == 7) {
            mNumber = input.ConsumeIntegral<uint32_t>();
        }
        if (mKind == Kind::DETAILS) {
            makeMessage(input);
        }
    }

    void log(JLogger& logger) const {
        switch (mKind) {
            case Kind::ENTER:
                logger.onLogEnter(mModuleId, mName.data(), mNumber);
                break;
            case Kind::EXIT:
                logger.onLogExit(mModuleId, mName.data(), mNumber);
                break;
            case Kind::DETAILS:
                logger.onLogDetails(mModuleId, mName.data(), static_cast<JLogLevel>(mNumber),
                                    mMessage ? mMessage->data() : nullptr, mMessageLength);
                break;
        }
    }

    /// `serial` is that of the last call that took one.
    void expect(ComparedWriter& compared, timespec timestamp, uint32_t& serial) const {
        if (mKind == Kind::DETAILS) {
            compared.expectDetails(gettid(), timestamp, mNumber, mName.view(), message());
        } else {
            compared.expectEnterExit(gettid(), timestamp, ++serial, mModuleId, mNumber,
                                     mName.view(), mKind == Kind::ENTER ? '+' : '-');
        }
    }

    [[nodiscard]] size_t loggedBytes() const {
        return mName.size() + std::min(message().size(), kMaxMessageChars) + sizeof(LogDetails);
    }

  private:
    /// A few bytes again and again, of a length of their own.
    static std::string makeText(FuzzedDataProvider& input, size_t maxBytes) {
        const std::string pattern = input.ConsumeRandomLengthString(64);
        std::string text = pattern;
        if (input.ConsumeBool() && !pattern.empty()) {
            const auto bytes = input.ConsumeIntegralInRange<size_t>(0, maxBytes);
            while (text.size() < bytes) {
                text += pattern;
            }
            text.resize(bytes);
        }
        return text;
    }

    void makeMessage(FuzzedDataProvider& input) {
        const std::string text = makeText(input, kMaxTextBytes);
        mMessageLength = text.size();
        if (input.ConsumeIntegralInRange(0, 31) != 31) {
            mMessage.emplace(text);
        }
    }

    [[nodiscard]] std::string_view message() const { return mMessage ? mMessage->view() : ""; }

    Kind mKind;
    ExactCopy mName;
    std::optional<ExactCopy> mMessage;
    size_t mMessageLength{0};
    uint32_t mModuleId;
    uint32_t mNumber;  // the request's, or the level
};

/// Calls that are in no file yet.
class LoggedRun {
  public:
    LoggedRun(const std::string& prefix, bool signalSafe) : mCompared(prefix, true, signalSafe) {}

    void log(Call call, size_t times) {
        mCalls.push_back(std::make_unique<Call>(std::move(call)));
        for (size_t i = 0; i < times && mLoggedBytes < kMaxLoggedBytes; ++i) {
            mCalls.back()->log(mLogger);
            mLogged.push_back(mCalls.back().get());
            mLoggedBytes += mCalls.back()->loggedBytes();
        }
    }

    /// Renders all buffers and gives them back, for the next records.
    void drain() {
        mLogger.retire();
        size_t rendered = 0;
        for (const Buffer* buffer = mLogger.oldest(); buffer != nullptr;
             buffer = mLogger.oldest()) {
            const uint32_t records = Logger::renderRecords(*buffer, mCompared.writer());
            check(records == expectBuffer(*buffer, rendered), "all records are counted");
            mLogger.recycleFront();
        }
        check(rendered == mLogged.size(), "every call has its record");
        mLogged.clear();
        mCalls.clear();
    }

    void flush() { mCompared.flush(); }
    void finish() { mCompared.finish(); }

  private:
    /// The lines of a buffer, whose first record is of the call behind `rendered` others. Of the
    /// memory it takes only what no call was given: how many records there are, and when.
    uint32_t expectBuffer(const Buffer& buffer, size_t& rendered) {
        check(static_cast<size_t>(buffer.end() - buffer.data) + buffer.freeBytes == kBufferBytes,
              "what is not used of a buffer is free");
        uint32_t records = 0;
        for (const char* place = buffer.data; place < buffer.end(); ++records) {
            const auto& header = *reinterpret_cast<const LogHeader*>(place);
            check(rendered < mLogged.size(), "there are no more records than calls");
            check(header.timestamp.tv_nsec >= 0 && header.timestamp.tv_nsec < 1000000000,
                  "a record has a time");
            mLogged[rendered++]->expect(mCompared, header.timestamp, mSerial);
            place += header.size();
        }
        return records;
    }

    Logger mLogger;
    ComparedWriter mCompared;
    std::vector<std::unique_ptr<Call>> mCalls;
    std::vector<const Call*> mLogged;
    size_t mLoggedBytes{0};
    uint32_t mSerial{0};
};

void testInput(FuzzedDataProvider& input) {
    LoggedRun run("", input.ConsumeBool());
    while (input.remaining_bytes() > 0) {
        const bool repeated = input.ConsumeIntegralInRange(0, 15) == 15;
        const size_t times = repeated ? input.ConsumeIntegralInRange<size_t>(1, kMaxRepeats) : 1;
        run.log(Call(input), times);
        const auto next = input.ConsumeIntegralInRange(0, 7);
        if (next >= 6) {
            run.drain();
        }
        if (next == 7) {
            run.flush();
        }
    }
    run.drain();
    run.finish();
}

}  // namespace

}  // namespace JCam::Fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    JCam::Fuzz::testInput(input);
    return 0;
}
