#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "jlog/file/FileAloneJLogger.h"
#include "jlog/file/FileJLoggerBase.h"

namespace JCam::Support {

/// A file logger whose records, buffers and crash hook a test reaches.
template <typename Base>
class OpenLogger : public Base {
  public:
    using Buffer = Utils::JLog::File::Buffer;
    using LogHeader = Utils::JLog::File::LogHeader;
    using RecordType = Utils::JLog::File::RecordType;
    using Base::droppedInHandlers;
    using Base::initHook;
    using Base::mCond;
    using Base::mCurrent;
    using Base::mMutex;
    using Base::publish;
    using Base::recycleFront;
    using Base::registerSigAction;
    using Base::renderRecords;
    using Base::sActiveLogger;
    using Base::setLogWriter;
    using Base::setQueueBounded;
    using Base::sigHandler;
    using Base::uninitHook;

    /// A record that is not complete. Both pointers are null when it was refused.
    struct Reservation {
        LogHeader* header{nullptr};
        Buffer* buffer{nullptr};
    };
    Reservation reserve(size_t bytes) {
        Reservation result;
        return this->allocLogSpace(bytes, &result.header, &result.buffer, nullptr) ? result
                                                                                   : Reservation{};
    }
    /// Logs a record of this size whose type has no line. False when it was refused.
    bool logBytes(size_t bytes) {
        const Reservation record = reserve(bytes);
        if (record.header == nullptr) {
            return false;
        }
        publish(record.header, record.buffer, static_cast<RecordType>(99));
        return true;
    }
    void log(const std::string& text) {
        this->onLogDetails(1, "Test", Utils::JLog::LEVEL_INFO, text.c_str(), text.size());
    }
    /// Queues the current buffer.
    void retire() {
        const Utils::JLog::JLogLock lock(mMutex);
        this->retireCurrentLocked();
    }

    Buffer& current() {
        const Utils::JLog::JLogLock lock(mMutex);
        return *this->mCurrent.get();
    }
    /// The queued buffers, oldest first.
    std::vector<Buffer*> queued() {
        const Utils::JLog::JLogLock lock(mMutex);
        std::vector<Buffer*> result;
        for (Buffer* each = this->mFullBuffers.front(); each != nullptr; each = each->next) {
            result.push_back(each);
        }
        return result;
    }
    size_t pooled() {
        const Utils::JLog::JLogLock lock(mMutex);
        return this->mEmptyBuffers.size();
    }
    const Buffer* oldestPooled() {
        const Utils::JLog::JLogLock lock(mMutex);
        return this->mEmptyBuffers.oldest();
    }
    /// All buffers of the logger.
    size_t owned() {
        const Utils::JLog::JLogLock lock(mMutex);
        return this->mFullBuffers.size() + this->mEmptyBuffers.size() +
               (this->mCurrent.get() != nullptr ? 1 : 0);
    }
};

using BufferingLogger = OpenLogger<Utils::JLog::File::FileJLoggerBase>;  // without a consumer
using RunningLogger = OpenLogger<Utils::JLog::File::FileAloneJLogger>;

}  // namespace JCam::Support
