// Also runs after a fatal signal, by the rules of CrashHandler.cpp.

#include "jlog/file/SignalSafeFormat.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace JCam::Utils::JLog::File {

namespace {

/// Text that is cut at the end of its room, and counted beyond it.
class Sink {
  public:
    Sink(char* out, size_t room) : mOut(out), mRoom(room - 1) {}

    void put(char c, size_t count) {
        if (mLength < mRoom) {
            memset(mOut + mLength, c, std::min(count, mRoom - mLength));
        }
        mLength += count;
    }
    void put(std::string_view text) {
        if (mLength < mRoom) {
            memcpy(mOut + mLength, text.data(), std::min(text.size(), mRoom - mLength));
        }
        mLength += text.size();
    }
    size_t finish() {
        mOut[std::min(mLength, mRoom)] = '\0';
        return mLength;
    }

  private:
    char* mOut;
    size_t mRoom;
    size_t mLength{0};
};

/// The field of one conversion.
struct Field {
    char padding{' '};
    size_t width{0};

    void put(Sink& sink, std::string_view prefix, std::string_view text) const {
        const size_t missing = width - std::min(width, prefix.size() + text.size());
        if (padding == ' ') {
            sink.put(' ', missing);
        }
        sink.put(prefix);
        if (padding == '0') {
            sink.put('0', missing);
        }
        sink.put(text);
    }
    void putNumber(Sink& sink, std::string_view prefix, uint64_t magnitude, int base) const {
        char digits[20];
        const char* end = std::to_chars(digits, digits + sizeof(digits), magnitude, base).ptr;
        put(sink, prefix, {digits, static_cast<size_t>(end - digits)});
    }
};

/// Reads a field at `format` and moves it on, to the conversion.
Field takeField(const char*& format) {
    Field field;
    if (*format == '0') {
        field.padding = '0';
    }
    for (; *format >= '0' && *format <= '9'; ++format) {
        field.width = field.width * 10 + static_cast<size_t>(*format - '0');
    }
    return field;
}

}  // namespace

size_t vformatText(char* out, size_t room, const char* format, va_list arguments) {
    Sink sink(out, room);
    while (const char* percent = strchr(format, '%')) {
        sink.put({format, static_cast<size_t>(percent - format)});
        format = percent + 1;
        const Field field = takeField(format);
        switch (*format++) {
            case 's': {
                const char* text = va_arg(arguments, const char*);
                field.put(sink, "", text != nullptr ? text : "(null)");
                break;
            }
            case 'd': {
                const int64_t value = va_arg(arguments, int);
                field.putNumber(sink, value < 0 ? "-" : "",
                                static_cast<uint64_t>(value < 0 ? -value : value), 10);
                break;
            }
            case 'u':
                field.putNumber(sink, "", va_arg(arguments, unsigned int), 10);
                break;
            case 'x':
                field.putNumber(sink, "", va_arg(arguments, unsigned int), 16);
                break;
            case 'p':
                field.putNumber(sink, "0x", reinterpret_cast<uintptr_t>(va_arg(arguments, void*)),
                                16);
                break;
            default:
                sink.put(percent);
                return sink.finish();
        }
    }
    sink.put(format);
    return sink.finish();
}

size_t formatText(char* out, size_t room, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const size_t length = vformatText(out, room, format, arguments);
    va_end(arguments);
    return length;
}

void formatPath(PathText& path, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    if (vformatText(path.data(), PathText::size(), format, arguments) >= PathText::size()) {
        path = "";
    }
    va_end(arguments);
}

}  // namespace JCam::Utils::JLog::File
