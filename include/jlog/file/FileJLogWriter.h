#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

#include "jlog/file/LogRecord.h"
#include "jlog/file/PathText.h"
#include "jlog/JLogExport.h"

namespace JCam::Utils::JLog::File {

/// Renders records as lines of text and writes them to a series of files in the log folder.
///
/// Files are named "cam_jlog_PID_PREFIXTIMESTAMP_NN.txt"; the time stamp is that of the series, NN
/// counts its files from 01. Text gathers in a buffer and goes out with one write(2) when 1124
/// bytes of room or fewer are left, on flush() and on close(). Above 180 MiB the file is followed
/// by the next of the series, which begins with "-- CONTINUED --". Before a file is made, the
/// oldest files of the folder are deleted until more than 280 MiB are free. The clean-up spares the
/// file that is open, and the one that was just filled.
///
/// When a file cannot be created, the writer moves to /data/vendor for good; if that fails, too, it
/// has no file, and text is dropped. A write that fails, or takes only a part, is not repeated:
/// that text is lost. An ERROR line reports the first loss of a file, and every new reason.
///
/// Every write ends with a whole line, so a process that ends between two writes leaves no torn
/// line. Exceptions: a text that was cut, and one that writeString() was given without a newline.
///
/// Threads: one at a time; the writer has no lock. Its own messages go to the Android log. A write
/// takes as long as the file system does, and does not begin while a crash dump runs, unless that
/// has made no progress for seconds. The writer itself allocates nothing after construction, but
/// for what libc may do in writeString().
///
/// Signals: a signal handler may use a silent writer on which makeSignalSafe() was called. That one
/// neither allocates nor locks nor waits: it has all its memory since its construction.
class JLOG_EXPORT FileJLogWriter {
  public:
    /// Above this many bytes the file is followed by the next one: 180 MiB.
    static constexpr uint64_t kMaxFileBytes = 0xB400000;
    /// The clean-up works towards more free bytes than this: 280 MiB.
    static constexpr int64_t kMinFreeBytes = 0x11800000;

    /// Makes a writer without a file, for this process. Allocates the memory of the clean-up;
    /// without that memory no space is ever freed.
    FileJLogWriter();
    /// The same for records of the process `pid`, whose number is in the lines and the names.
    explicit FileJLogWriter(int32_t pid);
    /// Writes the buffered text and closes the file, if one is open.
    ~FileJLogWriter();
    FileJLogWriter(const FileJLogWriter&) = delete;
    FileJLogWriter& operator=(const FileJLogWriter&) = delete;

    /// Makes this the writer of a crash dump: it takes local time from the cached UTC offsets, does
    /// not wait at the crash gate, and keeps a descriptor in reserve for its file, since a process
    /// may die of having none left. `recordClock` is the clock of the records. To be called before
    /// the first open(), and not in a signal handler.
    void makeSignalSafe(clockid_t recordClock);

    /// Opens the next file; none may be open. True when a file is open afterwards; text that was
    /// buffered without one is then gone. A new series takes a new time stamp, starts at index 1,
    /// keeps the first 29 characters of `namePrefix` unless that is null, and is `silent` or not
    /// from then on; otherwise both are ignored. Never opens an existing file: the index moves on
    /// to the next free one.
    bool open(bool newSeries, const char* namePrefix, bool silent);
    /// Writes the buffered text and closes the file, without fsync. Without effect when none is
    /// open.
    void close();
    /// Writes the buffered text; with `sync` and if there was any, waits until the disk has it.
    /// Without a file the text is dropped.
    void flush(bool sync);
    /// Deletes the oldest files of the folder while kMinFreeBytes or less are free. In
    /// /data/vendor, under any name, which holds files of other components, it deletes log files
    /// only. `silent` suppresses the messages. Skips files that cannot be read or deleted, and the
    /// open file.
    void reserveSpace(bool silent) const;
    /// The clean-up also spares the file that `other` has open at this moment, or goes on from;
    /// null ends that. `other` may be in use on another thread. Signal-safe.
    void spareFileOf(const FileJLogWriter* other);
    /// Goes on to the next file if the open one was deleted. Says so in a WARN line, once a file,
    /// and makes the folder again if it is gone. If there is no place for a next file, it keeps the
    /// open one, so that the next call tries again. Does not clean up. Nothing may be buffered. One
    /// system call if the file is still there. Not in a signal handler.
    void leaveDeletedFile();

    /// Appends the line of an enter record, laid out as in a buffer, unless its contents are
    /// impossible. Does not check whether the record is complete. This and the other functions that
    /// append also write, and go on to the next file, when that is due.
    void onLogEnter(const LogEnterExit* record);
    /// The same for an exit record.
    void onLogExit(const LogEnterExit* record);
    /// The same for a details record.
    void onLogDetails(const LogDetails* record);
    /// Appends the lines of all complete records in [begin, end), packed as in a buffer. Returns
    /// how many records there are, incomplete ones included. A record of an impossible size, which
    /// only damaged memory holds, ends the walk; one with impossible contents is stepped over.
    uint32_t appendRecords(const char* begin, const char* end);
    /// Appends free text, printf-style, with its own newline. A signal-safe writer knows %s, %d,
    /// %u, %x and %p, with a width; any other conversion ends its formatting. What goes beyond the
    /// room left in the buffer, at least 1124 characters, is cut.
    void writeString(const char* format, ...) __attribute__((format(printf, 2, 3)));
    /// Whether there is no file, or a file of the series has not taken all text of a write.
    /// Signal-safe.
    [[nodiscard]] bool hasLostText() const;
    /// Writes the buffered text and changes nothing else: for a signal handler that has interrupted
    /// this writer. If the writer goes on, it writes that text again.
    void rescue() const;

    /// The open file, or -1. For the owner to read.
    int32_t mFd{-1};
    /// The log folder, without a trailing slash. The owner sets it before the first open().
    PathText mFolder;
    /// Path of the file opened last. For the owner to read.
    PathText mFilePath;

  private:
    struct Parts;

    JLOG_INTERNAL Parts& parts();
    [[nodiscard]] JLOG_INTERNAL const Parts& parts() const;
    JLOG_INTERNAL void append(const LogHeader& header, RecordType type);
    /// Takes in a line that reaches the limit of the text buffer.
    JLOG_INTERNAL void takeInLine();
    /// Writes the text out, and goes on to the next file, where that is due.
    JLOG_INTERNAL void heedLimit();
    /// Sets the limit of the text buffer. To be called when the bytes of the file have changed.
    JLOG_INTERNAL void setLimit();
    JLOG_INTERNAL bool openNext();
    JLOG_INTERNAL void startFile();
    JLOG_INTERNAL void rotate();

    /// Holds the parts in place: a writer is made where memory may be short, and in the logger. The
    /// spare bytes let the parts change without the layout of programs that are built already.
    alignas(64) std::byte mParts[28 * 1024];
};

}  // namespace JCam::Utils::JLog::File
