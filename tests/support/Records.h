#pragma once

#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "jlog/file/LogRecord.h"

namespace JCam::Support {

/// A record outside any logger, laid out as the logger lays it out. What is not part of a field is
/// dirty.
class Record {
  public:
    static Record enterExit(int tid, timespec timestamp, unsigned int serial, unsigned int moduleId,
                            unsigned int requestNo, const std::string& name) {
        using Utils::JLog::File::LogEnterExit;
        Record record(sizeof(LogEnterExit) + name.size() + 1, tid, timestamp);
        auto* fields = reinterpret_cast<LogEnterExit*>(record.bytes());
        fields->serial = serial;
        fields->moduleId = moduleId;
        fields->requestNo = requestNo;
        fields->requestType = 1;
        memcpy(record.bytes() + LogEnterExit::kNameOffset, name.c_str(), name.size() + 1);
        return record;
    }

    static Record details(int tid, timespec timestamp, unsigned int level, const std::string& name,
                          const std::string& message) {
        using Utils::JLog::File::LogDetails;
        const size_t messageOffset = sizeof(LogDetails) + name.size() + 1;
        Record record(messageOffset + message.size() + 1, tid, timestamp);
        auto* fields = reinterpret_cast<LogDetails*>(record.bytes());
        fields->moduleId = 1;
        fields->level = static_cast<uint8_t>(level);
        fields->message = record.bytes() + messageOffset;
        memcpy(record.bytes() + LogDetails::kNameOffset, name.c_str(), name.size() + 1);
        memcpy(record.bytes() + messageOffset, message.c_str(), message.size() + 1);
        return record;
    }

    [[nodiscard]] const Utils::JLog::File::LogEnterExit& asEnterExit() const {
        return *reinterpret_cast<const Utils::JLog::File::LogEnterExit*>(mWords.data());
    }
    [[nodiscard]] const Utils::JLog::File::LogDetails& asDetails() const {
        return *reinterpret_cast<const Utils::JLog::File::LogDetails*>(mWords.data());
    }

  private:
    Record(size_t size, int tid, timespec timestamp)
            : mWords((size + sizeof(uint64_t) - 1) / sizeof(uint64_t), 0xA5A5A5A5A5A5A5A5) {
        auto* header = new (mWords.data()) Utils::JLog::File::LogHeader;
        header->reserve(static_cast<uint32_t>(mWords.size() * sizeof(uint64_t)));
        header->tid = tid;
        header->timestamp = timestamp;
    }
    char* bytes() { return reinterpret_cast<char*>(mWords.data()); }

    std::vector<uint64_t> mWords;
};

}  // namespace JCam::Support
