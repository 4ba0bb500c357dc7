#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "jlog/file/LogRecord.h"
#include "jlog/file/RunningNumber.h"

namespace JCam::Utils::JLog::File {

/// Bytes that any line behind its date fits into, with what is written beyond its end. The name
/// takes 128 of them and the message 1023.
inline constexpr size_t kMaxLineBytes = 1280;

/// Whether a request enters a scope or leaves it.
enum class Direction : uint8_t {
    ENTER,  ///< printed as '+'
    EXIT,   ///< printed as '-'
};

/// The text of records, behind the date part of their lines. It is the whole work of the flush
/// thread and of a crash dump: no printf, no allocation, no lock, nothing of the locale,
/// signal-safe. What most lines of a thread or of a module share is rendered once and copied.
///
/// Texts are copied in blocks, and a copy may run beyond the end of what it copies; `out` has room
/// for that. Nothing beyond the end of a record is read, and a text that has no end there is cut.
///
/// Threads: one at a time.
class LineRenderer {
  public:
    /// `pid` stands in every line.
    explicit LineRenderer(int32_t pid);

    /// Writes the text of `record`, which ends at `recordEnd`, at `out`, which has kMaxLineBytes,
    /// and returns the end; the line ends in a newline. What lies behind it may have been
    /// overwritten.
    char* renderEnterExit(char* out, const LogEnterExit& record, const char* recordEnd,
                          Direction direction);
    /// The same for a message, which stands in its record.
    char* renderDetails(char* out, const LogDetails& record, const char* recordEnd);

  private:
    /// A few characters that are copied with what lies behind them, whatever their number.
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

    char* putOrigin(char* out, const LogHeader& header);
    static char* putShort(char* out, const ShortText& text);
    void rememberThread(ThreadText& entry, int32_t tid) const;
    static void rememberModule(ModuleText& entry, uint32_t moduleId, Direction direction);

    const int32_t mPid;
    /// By the lowest bits of the thread id: the threads of a process are mostly neighbours.
    std::array<ThreadText, 8> mThreads;
    /// By direction and by the lowest bit that the id has.
    std::array<std::array<ModuleText, 8>, 2> mModules;
    RunningNumber mRequestNo{"", ""};
    RunningNumber mSerial{" #", "\n"};
};

}  // namespace JCam::Utils::JLog::File
