// Also runs after a fatal signal, by the rules of CrashHandler.cpp: a silent writer that
// makeSignalSafe() has prepared allocates, locks and waits for nothing.

#include "jlog/file/FileJLogWriter.h"

#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <new>

#include "jlog/file/FileSeries.h"
#include "jlog/file/LineRenderer.h"
#include "jlog/file/SignalSafeFormat.h"
#include "jlog/file/TextBuffer.h"

namespace JCam::Utils::JLog::File {

namespace {

constexpr char kContinuedMark[] = "-- CONTINUED --\n";

}  // namespace

// The writer orders: it decides when text is written and when the next file is due. The parts know
// nothing of each other, but for the renderer, which fills the text buffer.
struct FileJLogWriter::Parts {
    Parts(FileJLogWriter& writer, int32_t pid)
            : files(writer.mFd, writer.mFolder, writer.mFilePath, pid), renderer(pid) {}

    FileSeries files;
    LineRenderer renderer;
    TextBuffer text;
    /// Bytes counted against the open file but for those that `text` counts.
    uint64_t fileBytes{0};
    bool isSignalSafe{false};
};

FileJLogWriter::FileJLogWriter() : FileJLogWriter(getpid()) {}

FileJLogWriter::FileJLogWriter(int32_t pid) {
    static_assert(sizeof(Parts) <= sizeof(mParts) && alignof(Parts) <= 64);
    new (mParts) Parts(*this, pid);
    setLimit();
}

FileJLogWriter::~FileJLogWriter() {
    close();
    parts().~Parts();
}

FileJLogWriter::Parts& FileJLogWriter::parts() {
    return *std::launder(reinterpret_cast<Parts*>(mParts));
}

const FileJLogWriter::Parts& FileJLogWriter::parts() const {
    return *std::launder(reinterpret_cast<const Parts*>(mParts));
}

void FileJLogWriter::makeSignalSafe(clockid_t recordClock) {
    parts().isSignalSafe = true;
    parts().files.makeSignalSafe();
    parts().renderer.makeSignalSafe(recordClock);
}

bool FileJLogWriter::open(bool newSeries, const char* namePrefix, bool silent) {
    if (newSeries) {
        parts().files.begin(namePrefix, silent);
    }
    return openNext();
}

bool FileJLogWriter::openNext() {
    if (!parts().files.openNext()) {
        return false;
    }
    startFile();
    return true;
}

void FileJLogWriter::startFile() {
    parts().text.clear();
    parts().fileBytes = 0;
    setLimit();
}

void FileJLogWriter::close() {
    if (mFd >= 0) {
        flush(false);
        parts().files.close();
    }
}

void FileJLogWriter::flush(bool sync) {
    TextBuffer& text = parts().text;
    if (text.bytes() > 0 && mFd >= 0) {
        parts().files.write(text.text());
        if (sync) {
            parts().files.sync();
        }
    }
    parts().fileBytes += text.bytes();
    text.clear();
    setLimit();
}

bool FileJLogWriter::hasLostText() const {
    return mFd < 0 || parts().files.hasLostText();
}

void FileJLogWriter::rescue() const {
    if (parts().text.bytes() > 0 && mFd >= 0) {
        parts().files.writeQuietly(parts().text.text());
    }
}

void FileJLogWriter::reserveSpace(bool silent) const {
    parts().files.reserveSpace(silent);
}

void FileJLogWriter::spareFileOf(const FileJLogWriter* other) {
    parts().files.spareFileOf(other != nullptr ? &other->parts().files : nullptr);
}

void FileJLogWriter::leaveDeletedFile() {
    if (parts().files.replaceDeleted()) {
        startFile();
        parts().files.write(kContinuedMark);
    }
}

void FileJLogWriter::onLogEnter(const LogEnterExit* record) {
    append(record->header, RECORD_ENTER);
}

void FileJLogWriter::onLogExit(const LogEnterExit* record) {
    append(record->header, RECORD_EXIT);
}

void FileJLogWriter::onLogDetails(const LogDetails* record) {
    append(record->header, RECORD_DETAILS);
}

void FileJLogWriter::append(const LogHeader& header, RecordType type) {
    if (parts().renderer.renderRecord(header, type, parts().text)) {
        takeInLine();
    }
}

uint32_t FileJLogWriter::appendRecords(const char* begin, const char* end) {
    RecordWalk walk(begin, end);
    while (parts().renderer.renderToLimit(walk, parts().text)) {
        takeInLine();
    }
    return walk.records;
}

void FileJLogWriter::writeString(const char* format, ...) {
    TextBuffer& text = parts().text;
    va_list arguments;
    va_start(arguments, format);
    const size_t length =
            parts().isSignalSafe
                    ? vformatText(text.end(), text.room(), format, arguments)
                    : static_cast<size_t>(
                              std::max(vsnprintf(text.end(), text.room(), format, arguments), 0));
    va_end(arguments);
    text.advanceTo(text.end() + std::min(length, text.room() - 1));
    heedLimit();
}

void FileJLogWriter::takeInLine() {
    TextBuffer& text = parts().text;
    if (text.dateReachesMark()) {
        // The date belongs to what is written now. It is held over, so that a write ends with a
        // whole line, and is counted as if it had been.
        const size_t written = text.bytes() + TextBuffer::kDateBytes;
        if (mFd >= 0) {
            parts().files.write(text.text());
        }
        parts().fileBytes += written;
        text.holdOverDate();
        setLimit();
    }
    text.takeInLine();
    heedLimit();
}

void FileJLogWriter::heedLimit() {
    if (parts().text.bytes() >= TextBuffer::kMark) {
        flush(false);
    }
    if (parts().fileBytes + parts().text.bytes() > kMaxFileBytes) {
        rotate();
    }
}

void FileJLogWriter::setLimit() {
    parts().text.setLimit(kMaxFileBytes + 1 - std::min(parts().fileBytes, kMaxFileBytes + 1));
}

void FileJLogWriter::rotate() {
    if (mFd >= 0) {
        flush(false);
    }
    if (openNext()) {
        // Ahead of whatever is buffered, and not counted against the new file.
        parts().files.write(kContinuedMark);
    }
}

}  // namespace JCam::Utils::JLog::File
