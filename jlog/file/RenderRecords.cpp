// Records become lines: the text half of FileJLogWriter. Runs on the flush thread, and after a
// fatal signal by the rules of CrashHandler.cpp.

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>

#include "jlog/file/DateText.h"
#include "jlog/file/FileJLoggerBase.h"
#include "jlog/file/FileJLogWriter.h"
#include "jlog/file/LineRendererInline.h"

namespace JCam::Utils::JLog::File {

// Memory that something has written over is no reason to read beyond the buffer, or for ever: ends,
// sizes and the address of a message are looked at before they are used.

uint32_t FileJLoggerBase::renderRecords(const Buffer& buffer, FileJLogWriter& writer,
                                        size_t maxBytes) {
    return writer.appendRecords(buffer.data,
                                std::min(buffer.end(), buffer.data + maxBytes, std::less<>()));
}

uint32_t FileJLogWriter::appendRecords(const char* begin, const char* end) {
    uint32_t records = 0;
    auto left = std::less<>()(begin, end) ? static_cast<size_t>(end - begin) : 0;
    for (const char* place = begin; left >= sizeof(LogHeader); ++records) {
        const auto& header = *reinterpret_cast<const LogHeader*>(place);
        const RecordType type = header.type();
        const size_t size = header.size();
        if (size > left || size % kRecordAlignment != 0) {
            break;
        }
        // One that has a line is large enough to be stepped over.
        if (!appendRecord(header, type, size) && size < sizeof(LogHeader)) {
            break;
        }
        place += size;
        left -= size;
    }
    return records;
}

[[gnu::always_inline]] inline bool FileJLogWriter::appendRecord(const LogHeader& header,
                                                                RecordType type, size_t size) {
    const char* end = reinterpret_cast<const char*>(&header) + size;
    static_assert(RECORD_EXIT == RECORD_ENTER + 1);
    const auto direction = static_cast<Direction>(type - RECORD_ENTER);
    if (direction <= Direction::EXIT && size > LogEnterExit::kNameOffset) {
        endLine(mRenderer.renderEnterExit(beginLine(header.timestamp),
                                          reinterpret_cast<const LogEnterExit&>(header), end,
                                          direction));
        return true;
    }
    const auto& details = reinterpret_cast<const LogDetails&>(header);
    const std::less<> before;
    if (type == RECORD_DETAILS && size > LogDetails::kNameOffset &&
        !before(details.message, details.name()) && before(details.message, end)) {
        endLine(mRenderer.renderDetails(beginLine(header.timestamp), details, end));
        return true;
    }
    return false;
}

void FileJLogWriter::onLogEnter(const LogEnterExit* record) {
    appendRecord(record->header, RECORD_ENTER, record->header.size());
}

void FileJLogWriter::onLogExit(const LogEnterExit* record) {
    appendRecord(record->header, RECORD_EXIT, record->header.size());
}

void FileJLogWriter::onLogDetails(const LogDetails* record) {
    appendRecord(record->header, RECORD_DETAILS, record->header.size());
}

[[gnu::always_inline]] inline char* FileJLogWriter::beginLine(const timespec& timestamp) {
    if (timestamp.tv_sec != mDateSecond) [[unlikely]] {
        setDate(timestamp.tv_sec);
    }
    char* line = mEnd;
    memcpy(line, mDateText, sizeof(mDateText));
    return line + kDateBytes;
}

[[gnu::always_inline]] inline void FileJLogWriter::endLine(char* end) {
    if (end >= mLimit) [[unlikely]] {
        endLineBehindLimit(end);
    } else {
        advanceTo(end);
    }
}

void FileJLogWriter::advanceTo(char* end) {
    // The text before its end, for rescue().
    std::atomic_signal_fence(std::memory_order_release);
    mEnd = end;
}

void FileJLogWriter::endLineBehindLimit(char* end) {
    if (bufferedBytes() + kDateBytes >= kFlushMark) {
        const char* line = mEnd;
        flush(false);
        memmove(mText, line, static_cast<size_t>(end - line));
        end = mText + (end - line);
        mBegin = mText;
        mFileBytes += kDateBytes;
        setLimit();
    }
    // One byte of room stays free, as it does for a formatter that terminates its text.
    advanceTo(std::min(end, buffer() + kWriteBufferBytes - 1));
    heedLimit();
}

[[gnu::noinline]] void FileJLogWriter::setDate(time_t second) {
    setDateText(toLocalTime(second, mRecordClock));
    mDateSecond = second;
}

void FileJLogWriter::setDateText(const tm& local) {
    static_assert(kDateBytes == kDateChars && kDateBytes <= sizeof(mDateText));
    char date[kDateChars];
    formatDate(date, local);
    memcpy(mDateText, date, sizeof(date));
}

}  // namespace JCam::Utils::JLog::File
