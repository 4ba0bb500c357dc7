#pragma once

#include <sys/types.h>

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>

#include "HandWritten.h"
#include "Workload.h"

namespace JCam::Bench {

enum class EventKind : uint8_t { ENTER, DETAILS };

/// One event, as a logger written by hand keeps it. Name and text run on behind it.
struct Event {
    static constexpr size_t kMaxNameChars = 128;
    static constexpr size_t kMaxTextChars = 1023;

    uint32_t bytes;  // of all, a multiple of 8
    int32_t tid;
    timespec time;
    uint32_t module;
    uint32_t request;
    uint16_t nameBytes;
    uint16_t textBytes;
    EventKind kind;
    uint8_t level;

    static constexpr size_t bytesFor(size_t nameBytes, size_t textBytes) {
        return (sizeof(Event) + nameBytes + textBytes + 7) & ~size_t{7};
    }
    /// Sets lengths, thread and time of an event that takes `size` bytes.
    void begin(size_t size, int32_t thread, size_t nameLength, size_t textLength) {
        bytes = static_cast<uint32_t>(size);
        tid = thread;
        clock_gettime(CLOCK_REALTIME, &time);
        nameBytes = static_cast<uint16_t>(nameLength);
        textBytes = static_cast<uint16_t>(textLength);
    }
    /// Sets the rest.
    void fillEnter(unsigned int moduleId, const char* name, unsigned int requestNo) {
        kind = EventKind::ENTER;
        module = moduleId;
        request = requestNo;
        memcpy(texts(), name, nameBytes);
    }
    /// The same. The text is not cut. For a length that is bounded GCC copies by `rep movs`, which
    /// takes some 10 ns to begin, in place of a call of memcpy.
    void fillDetails(unsigned int moduleId, uint8_t logLevel, const char* tag, const char* text,
                     size_t textLength) {
        kind = EventKind::DETAILS;
        module = moduleId;
        level = logLevel;
        memcpy(texts(), tag, nameBytes);
        memcpy(texts() + nameBytes, text, textLength);
    }

    char* texts() { return reinterpret_cast<char*>(this + 1); }
    [[nodiscard]] const char* texts() const { return reinterpret_cast<const char*>(this + 1); }
};
static_assert(sizeof(Event) == 40 && alignof(Event) == 8);

/// The calls of a load, for a `Logger` that is written by hand and derived from this.
template <typename Logger>
class EventCalls {
  public:
    void logEnter(unsigned int request) {
        static_cast<Logger*>(this)->enter(kPreview, Workload::kName, request);
    }
    void logMessage() {
        constexpr uint8_t kInfo = 3;
        static_cast<Logger*>(this)->details(kPreview, Workload::kTag, kInfo, mWork.text.c_str(),
                                            mWork.text.size());
    }
    /// Lines that are no event.
    static uint64_t foreignLines(uint64_t /*files*/) { return 0; }

  private:
    friend Logger;
    static constexpr unsigned int kPreview = 4;

    explicit EventCalls(const Workload& work) : mWork(work) {}

    const Workload& mWork;
};

/// Renders events as lines of our layout and writes the text to a file of its own, 24 KiB at a
/// time.
class EventFile {
  public:
    /// Creates `name` in the folder of `work`.
    EventFile(const Workload& work, const char* name);
    ~EventFile();
    EventFile(const EventFile&) = delete;
    EventFile& operator=(const EventFile&) = delete;

    /// Adds the line of `event`. Calls `beforeNext` when all events before this one are in the
    /// file.
    template <typename BeforeNext>
    void add(const Event& event, BeforeNext beforeNext) {
        if (static_cast<size_t>(mText + sizeof(mText) - mEnd) < HandWrittenLines::kLongestLine) {
            writeText();
            beforeNext();
        }
        mEnd = putLine(mEnd, event);
    }
    /// Writes what was added.
    void writeText();

  private:
    char* putLine(char* out, const Event& event);
    void rememberDate(time_t second);
    void rememberThread(int32_t tid);

    int mFd;
    const DigitPairs mDigits;
    time_t mSecond{-1};
    std::string mDate;
    int32_t mTid{-1};
    std::string mOrigin;
    uint32_t mSerial{0};
    char mText[24576];
    char* mEnd{mText};
};

inline char* EventFile::putLine(char* out, const Event& event) {
    if (event.time.tv_sec != mSecond) [[unlikely]] {
        rememberDate(event.time.tv_sec);
    }
    if (event.tid != mTid) [[unlikely]] {
        rememberThread(event.tid);
    }
    out = put(out, mDate);
    out = mDigits.putMicroseconds(out, static_cast<uint32_t>(event.time.tv_nsec / 1000));
    out = put(out, mOrigin);
    const std::string_view name(event.texts(), event.nameBytes);
    if (event.kind == EventKind::ENTER) {
        out = put(out, "D JLog    : R AppRequest:");
        out = std::to_chars(out, out + 10, event.request).ptr;
        out = put(out, " M[Preview:4] +  :");
        out = put(out, name);
        out = put(out, " #");
        out = std::to_chars(out, out + 10, ++mSerial).ptr;
    } else {
        constexpr size_t kNameColumns = 8;
        *out++ = "VEWIDDV"[event.level];
        *out++ = ' ';
        char* const column = out + kNameColumns;
        out = put(out, name);
        while (out < column) {
            *out++ = ' ';
        }
        out = put(out, ": ");
        out = put(out, {event.texts() + event.nameBytes, event.textBytes});
    }
    *out++ = '\n';
    return out;
}

}  // namespace JCam::Bench
