// Runs on the flush thread, and after a fatal signal by the rules of CrashHandler.cpp.

#include <algorithm>
#include <functional>

#include "jlog/file/FileJLoggerBase.h"
#include "jlog/file/FileJLogWriter.h"

namespace JCam::Utils::JLog::File {

namespace {

// Memory that something has written over is no reason to read beyond the buffer, or for ever.

/// Whether the record can be of a size that a logging call has reserved; `left` bytes of records
/// are there from it on.
bool isSound(const LogHeader& header, size_t left) {
    const size_t size = header.size();
    return size >= sizeof(LogHeader) && size <= left && size % kRecordAlignment == 0;
}

/// Whether `record` holds a name. The renderer reads no text beyond the record's end.
template <typename Record>
bool holdsName(const Record& record) {
    return record.header.size() > Record::kNameOffset;
}

/// Whether `record` holds its message.
bool holdsMessage(const LogDetails& record) {
    const char* recordEnd = reinterpret_cast<const char*>(&record) + record.header.size();
    const std::less<> before;
    return !before(record.message, record.name()) && before(record.message, recordEnd);
}

void renderRecord(const LogHeader* header, FileJLogWriter& writer) {
    const auto* enterExit = reinterpret_cast<const LogEnterExit*>(header);
    const auto* details = reinterpret_cast<const LogDetails*>(header);
    switch (header->type()) {
        case RECORD_ENTER:
            if (holdsName(*enterExit)) {
                writer.onLogEnter(enterExit);
            }
            break;
        case RECORD_EXIT:
            if (holdsName(*enterExit)) {
                writer.onLogExit(enterExit);
            }
            break;
        case RECORD_DETAILS:
            if (holdsName(*details) && holdsMessage(*details)) {
                writer.onLogDetails(details);
            }
            break;
        case RECORD_INCOMPLETE:
        default:
            break;
    }
}

}  // namespace

uint32_t FileJLoggerBase::renderRecords(const Buffer& buffer, FileJLogWriter& writer,
                                        size_t maxBytes) {
    uint32_t records = 0;
    const char* end = std::min(buffer.end(), buffer.data + maxBytes, std::less<>());
    for (const char* place = buffer.data; place < end; ++records) {
        const auto* header = reinterpret_cast<const LogHeader*>(place);
        const auto left = static_cast<size_t>(end - place);
        if (left < sizeof(LogHeader) || !isSound(*header, left)) {
            break;
        }
        renderRecord(header, writer);
        place += header->size();
    }
    return records;
}

}  // namespace JCam::Utils::JLog::File
