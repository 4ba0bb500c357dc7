#include "jlog/file/TextFormat.h"

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

    void put(char c, size_t count = 1) {
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

/// The bytes of the integer that a length modifier announces.
enum class Length { CHAR, SHORT, INT, LONG };

/// One "%..." of a format.
struct Directive {
    bool leftAligned{false};
    bool zeroPadded{false};
    size_t width{0};
    bool hasPrecision{false};
    size_t precision{0};
    Length length{Length::INT};
    char conversion{'\0'};
};

/// Reads the arguments one by one. A class, so that the list can be handed on by reference: as a
/// parameter a va_list is an array on some machines and a value on others.
class Arguments {
  public:
    explicit Arguments(va_list list) { va_copy(mList, list); }
    ~Arguments() { va_end(mList); }
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;

    int takeInt() { return va_arg(mList, int); }
    const char* takeString() { return va_arg(mList, const char*); }
    uintptr_t takePointer() { return reinterpret_cast<uintptr_t>(va_arg(mList, void*)); }

    int64_t takeSigned(Length length) {
        static_assert(sizeof(long) == sizeof(long long) && sizeof(long) == sizeof(size_t));
        if (length == Length::LONG) {
            return va_arg(mList, long);
        }
        const int value = takeInt();
        return length == Length::CHAR    ? static_cast<signed char>(value)
               : length == Length::SHORT ? static_cast<int16_t>(value)
                                         : value;
    }
    uint64_t takeUnsigned(Length length) {
        if (length == Length::LONG) {
            return va_arg(mList, unsigned long);
        }
        const unsigned int value = va_arg(mList, unsigned int);
        return length == Length::CHAR    ? static_cast<unsigned char>(value)
               : length == Length::SHORT ? static_cast<uint16_t>(value)
                                         : value;
    }

  private:
    va_list mList;
};

/// Reads a number or a '*' at `format` and moves it on. A negative argument is `negative`.
size_t takeSize(const char*& format, Arguments& arguments, bool& negative) {
    negative = false;
    if (*format == '*') {
        ++format;
        const int64_t value = arguments.takeInt();
        negative = value < 0;
        return static_cast<size_t>(negative ? -value : value);
    }
    size_t value = 0;
    for (; *format >= '0' && *format <= '9'; ++format) {
        value = value * 10 + static_cast<size_t>(*format - '0');
    }
    return value;
}

/// Reads what follows a '%' and moves `format` on, behind the conversion.
Directive takeDirective(const char*& format, Arguments& arguments) {
    Directive directive;
    for (; *format == '-' || *format == '0'; ++format) {
        (*format == '-' ? directive.leftAligned : directive.zeroPadded) = true;
    }
    bool negative = false;
    directive.width = takeSize(format, arguments, negative);
    directive.leftAligned = directive.leftAligned || negative;
    if (*format == '.') {
        ++format;
        directive.precision = takeSize(format, arguments, negative);
        directive.hasPrecision = !negative;
    }
    for (; *format != '\0' && strchr("hlzjt", *format) != nullptr; ++format) {
        directive.length = *format != 'h'                      ? Length::LONG
                           : directive.length == Length::SHORT ? Length::CHAR
                                                               : Length::SHORT;
    }
    directive.conversion = *format;
    if (*format != '\0') {
        ++format;
    }
    return directive;
}

void putPadded(Sink& sink, const Directive& directive, std::string_view text) {
    const size_t padding = directive.width - std::min(directive.width, text.size());
    if (!directive.leftAligned) {
        sink.put(' ', padding);
    }
    sink.put(text);
    if (directive.leftAligned) {
        sink.put(' ', padding);
    }
}

void putNumber(Sink& sink, const Directive& directive, std::string_view sign, uint64_t magnitude,
               int base) {
    char digits[20];
    const size_t count =
            directive.hasPrecision && directive.precision == 0 && magnitude == 0
                    ? 0
                    : static_cast<size_t>(
                              std::to_chars(digits, digits + sizeof(digits), magnitude, base).ptr -
                              digits);
    if (directive.conversion == 'X') {
        std::transform(digits, digits + count, digits,
                       [](char c) { return c >= 'a' ? static_cast<char>(c - 'a' + 'A') : c; });
    }
    size_t zeros = 0;
    if (directive.hasPrecision) {
        zeros = directive.precision - std::min(directive.precision, count);
    } else if (directive.zeroPadded && !directive.leftAligned) {
        zeros = directive.width - std::min(directive.width, sign.size() + count);
    }
    const size_t padding = directive.width - std::min(directive.width, sign.size() + zeros + count);
    if (!directive.leftAligned) {
        sink.put(' ', padding);
    }
    sink.put(sign);
    sink.put('0', zeros);
    sink.put({digits, count});
    if (directive.leftAligned) {
        sink.put(' ', padding);
    }
}

void putString(Sink& sink, const Directive& directive, const char* text) {
    const char* shown = text != nullptr ? text : "(null)";
    putPadded(
            sink, directive,
            {shown, directive.hasPrecision ? strnlen(shown, directive.precision) : strlen(shown)});
}

/// False for a conversion that is not known; nothing is written then.
bool putDirective(Sink& sink, const Directive& directive, Arguments& arguments) {
    switch (directive.conversion) {
        case 'd':
        case 'i': {
            const int64_t value = arguments.takeSigned(directive.length);
            const auto bits = static_cast<uint64_t>(value);
            putNumber(sink, directive, value < 0 ? "-" : "", value < 0 ? ~bits + 1 : bits, 10);
            return true;
        }
        case 'u':
            putNumber(sink, directive, "", arguments.takeUnsigned(directive.length), 10);
            return true;
        case 'x':
        case 'X':
            putNumber(sink, directive, "", arguments.takeUnsigned(directive.length), 16);
            return true;
        case 'p':
            putNumber(sink, directive, "0x", arguments.takePointer(), 16);
            return true;
        case 's':
            putString(sink, directive, arguments.takeString());
            return true;
        case 'c': {
            const char c = static_cast<char>(arguments.takeInt());
            putPadded(sink, directive, {&c, 1});
            return true;
        }
        case '%':
            sink.put('%');
            return true;
        default:
            return false;
    }
}

}  // namespace

size_t vformatText(char* out, size_t room, const char* format, va_list arguments) {
    Sink sink(out, room);
    Arguments list(arguments);
    while (const char* percent = strchr(format, '%')) {
        sink.put({format, static_cast<size_t>(percent - format)});
        format = percent + 1;
        if (!putDirective(sink, takeDirective(format, list), list)) {
            format = percent;
            break;
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

}  // namespace JCam::Utils::JLog::File
