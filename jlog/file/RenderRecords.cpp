// Runs on the flush thread, and after a fatal signal by the rules of CrashHandler.cpp.

#include <algorithm>
#include <cstring>
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

/// Whether a text from `begin` on can be read. It ends where the record does, unless that is
/// damaged; then its bound ends it, and only near the end of the memory that can be read it
/// matters.
bool endsInside(const char* begin, size_t maxChars, const char* recordEnd, const char* end) {
    return static_cast<size_t>(end - begin) > maxChars ||
           memchr(begin, '\0', static_cast<size_t>(recordEnd - begin)) != nullptr;
}

/// Whether `record` holds its name, of which the renderer reads up to the maximum.
template <typename Record>
bool holdsName(const Record& record, const char* end) {
    const char* recordEnd = reinterpret_cast<const char*>(&record) + record.header.size();
    return record.header.size() > Record::kNameOffset &&
           endsInside(record.name(), kMaxNameChars, recordEnd, end);
}

/// Whether `record` holds its message.
bool holdsMessage(const LogDetails& record, const char* end) {
    const char* recordEnd = reinterpret_cast<const char*>(&record) + record.header.size();
    const std::less<> before;
    return !before(record.message, record.name()) && before(record.message, recordEnd) &&
           endsInside(record.message, kMaxMessageChars, recordEnd, end);
}

/// `end`: of the memory that can be read.
void renderRecord(const LogHeader* header, const char* end, FileJLogWriter& writer) {
    const auto* enterExit = reinterpret_cast<const LogEnterExit*>(header);
    const auto* details = reinterpret_cast<const LogDetails*>(header);
    switch (header->type()) {
        case RECORD_ENTER:
            if (holdsName(*enterExit, end)) {
                writer.onLogEnter(enterExit);
            }
            break;
        case RECORD_EXIT:
            if (holdsName(*enterExit, end)) {
                writer.onLogExit(enterExit);
            }
            break;
        case RECORD_DETAILS:
            if (holdsName(*details, end) && holdsMessage(*details, end)) {
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
    const char* readableEnd = buffer.data + maxBytes;
    const char* end = std::min(buffer.end(), readableEnd, std::less<>());
    for (const char* place = buffer.data; place < end; ++records) {
        const auto* header = reinterpret_cast<const LogHeader*>(place);
        const auto left = static_cast<size_t>(end - place);
        if (left < sizeof(LogHeader) || !isSound(*header, left)) {
            break;
        }
        renderRecord(header, readableEnd, writer);
        place += header->size();
    }
    return records;
}

}  // namespace JCam::Utils::JLog::File
