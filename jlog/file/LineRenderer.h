#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>

#include "jlog/file/LogRecord.h"
#include "jlog/file/NumberText.h"
#include "jlog/file/TextBuffer.h"

namespace JCam::Utils::JLog::File {

/// A way through records that stand one after the other, as in a buffer.
struct RecordWalk {
    RecordWalk(const char* begin, const char* end)
            : place(begin),
              bytesLeft(std::less<>()(begin, end) ? static_cast<size_t>(end - begin) : 0) {}

    /// The next record whose size is written, complete or not; null at the end, and at a record of
    /// an impossible size.
    const LogHeader* next();
    /// Goes on to the next record whose size is written. A writer that has reserved space, and has
    /// not got to the size yet, leaves zeros there.
    void skipZeros();

    const char* place;
    size_t bytesLeft;
    /// Passed so far, incomplete ones included.
    uint32_t records{0};
};

/// How many of the records in [begin, end) are complete. Signal-safe.
uint32_t countComplete(const char* begin, const char* end);

/// Turns records into lines of text. This is all the work of the flush thread and of a crash dump:
/// it uses no printf and no locale and, once signal-safe, no allocation and no lock. It keeps the
/// text that the lines of a second, a thread or a module share, and copies it.
///
/// Texts are copied in blocks, and a copy may run beyond the end of what it copies; the text buffer
/// has room for that. Nothing beyond the end of a record is read; a text without an end there is
/// cut. Memory that something has written over leads neither out of the records nor round in
/// circles: ends, sizes and the address of a message are checked before they are used.
///
/// Threads: one at a time. Signal-safe once makeSignalSafe() was called.
class LineRenderer {
  public:
    /// `pid` stands in every line.
    explicit LineRenderer(int32_t pid);

    /// From now on dates come from the cached UTC offset of `recordClock`, the clock of the
    /// records.
    void makeSignalSafe(clockid_t recordClock);

    /// Renders the line of one record as that of a complete one of `type`, unless its contents are
    /// impossible. True if the line reaches the limit of `text`, whose owner takes it in; otherwise
    /// it is taken in.
    bool renderRecord(const LogHeader& header, RecordType type, TextBuffer& text);
    /// Renders the complete records of `walk`, up to one whose line reaches the limit of `text`:
    /// then returns true, and the owner takes that line in and goes on. False at the end of the
    /// records. A record of an impossible size ends the walk; one with impossible contents is
    /// stepped over.
    bool renderToLimit(RecordWalk& walk, TextBuffer& text);

  private:
    enum class Direction : uint8_t {
        ENTER,  // '+'
        EXIT,   // '-'
    };
    enum class Line : uint8_t {
        NONE,  // the record has none
        TAKEN_IN,
        AT_LIMIT,  // rendered, and to be taken in
    };
    /// A few characters. All kBytes are copied, whatever the length.
    struct ShortText {
        static constexpr size_t kBytes = 32;
        uint32_t length{0};
        char text[kBytes];
    };
    /// " PPPPP TTTTT " of a thread.
    struct ThreadText {
        int32_t tid{-1};
        ShortText text;
    };
    /// " M[NAME:ID] +  :" of a module, or the same with '-'.
    struct ModuleText {
        uint32_t moduleId{0};
        ShortText text;
    };

    Line render(const LogHeader& header, RecordType type, size_t size, TextBuffer& text);
    char* putEnterExit(char* out, const LogEnterExit& record, const char* recordEnd,
                       Direction direction);
    char* putDetails(char* out, const LogDetails& record, const char* recordEnd);
    char* putDate(char* out, time_t second);
    char* putOrigin(char* out, const LogHeader& header);
    static char* putShort(char* out, const ShortText& text);
    void rememberDate(time_t second);
    void rememberThread(ThreadText& entry, int32_t tid) const;
    static void rememberModule(ModuleText& entry, uint32_t moduleId, Direction direction);

    const int32_t mPid;
    bool mSignalSafe{false};
    clockid_t mRecordClock{CLOCK_REALTIME};
    /// The date of the second rendered last, which most records repeat; copied as a whole.
    char mDateText[16]{};
    time_t mDateSecond;
    /// By the lowest bits of the thread id: the threads of a process are mostly neighbours.
    std::array<ThreadText, 8> mThreads;
    /// By direction and by the lowest bit that the id has.
    std::array<std::array<ModuleText, 8>, 2> mModules;
    RunningNumber mRequestNo{"", ""};
    RunningNumber mSerial{" #", "\n"};
};

}  // namespace JCam::Utils::JLog::File
