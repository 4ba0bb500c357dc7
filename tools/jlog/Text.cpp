#include "tools/jlog/Text.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include <fmt/format.h>

#include "tools/jlog/analysis/WallClock.h"

namespace JCam::Tool {

namespace {

constexpr int64_t kMillisecond = 1000;
constexpr int64_t kSecond = 1000 * kMillisecond;
constexpr int64_t kMinute = 60 * kSecond;

/// Three digits, as "8.12" or "66.7" or "167".
std::string threeDigits(double value) {
    return fmt::format("{:.{}f}", value, value < 9.995 ? 2 : value < 99.95 ? 1 : 0);
}

/// How many bytes of a character of UTF-8 `bytes` begins with; 0 if it begins with none.
size_t characterSize(std::string_view bytes) {
    const auto byteAt = [&](size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const unsigned char first = byteAt(0);
    const size_t size = first < 0x80                    ? 1
                        : first >= 0xc2 && first < 0xe0 ? 2
                        : first >= 0xe0 && first < 0xf0 ? 3
                        : first >= 0xf0 && first < 0xf5 ? 4
                                                        : 0;
    if (size == 0 || size > bytes.size()) {
        return 0;
    }
    for (size_t i = 1; i < size; i++) {
        if ((byteAt(i) & 0xc0) != 0x80) {
            return 0;
        }
    }
    // Overlong forms, surrogates, and what is beyond the last character.
    const bool isValid =
            size < 3 ||
            !((first == 0xe0 && byteAt(1) < 0xa0) || (first == 0xed && byteAt(1) > 0x9f) ||
              (first == 0xf0 && byteAt(1) < 0x90) || (first == 0xf4 && byteAt(1) > 0x8f));
    return isValid ? size : 0;
}

bool isControl(std::string_view character) {
    const auto first = static_cast<unsigned char>(character[0]);
    // C1 controls are two bytes, 0xc2 and 0x80 to 0x9f.
    return first < 0x20 || first == 0x7f ||
           (first == 0xc2 && static_cast<unsigned char>(character[1]) < 0xa0);
}

/// Whether a byte is the first of a character of UTF-8.
bool isFirst(char byte) {
    return (static_cast<unsigned char>(byte) & 0xc0) != 0x80;
}

/// Columns on a terminal, if each character takes one.
size_t widthOf(std::string_view text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), isFirst));
}

/// Control characters but those of `kept`, and what is no UTF-8, as \xNN.
std::string escape(std::string_view bytes, std::string_view kept) {
    std::string text;
    while (!bytes.empty()) {
        size_t size = characterSize(bytes);
        if (size > 0 && (!isControl(bytes) || kept.find(bytes[0]) != std::string_view::npos)) {
            text.append(bytes.substr(0, size));
        } else {
            size = 1;
            text.append(fmt::format("\\x{:02x}", static_cast<unsigned char>(bytes[0])));
        }
        bytes.remove_prefix(size);
    }
    return text;
}

std::string_view codeOf(Colour colour) {
    constexpr std::array<std::string_view, 7> kCodes{"",         "\x1b[1m",  "\x1b[2m", "\x1b[31m",
                                                     "\x1b[33m", "\x1b[32m", "\x1b[36m"};
    return kCodes[static_cast<size_t>(colour)];
}

}  // namespace

std::string formatDuration(int64_t microseconds) {
    if (microseconds < kMillisecond) {
        return fmt::format("{} us", microseconds);
    }
    if (microseconds < kSecond - kMillisecond / 2) {
        return threeDigits(static_cast<double>(microseconds) / kMillisecond) + " ms";
    }
    if (microseconds < kMinute) {
        return threeDigits(static_cast<double>(microseconds) / kSecond) + " s";
    }
    const int64_t seconds = microseconds / kSecond;
    if (seconds < 3600) {
        return fmt::format("{} min {:02} s", seconds / 60, seconds % 60);
    }
    return fmt::format("{} h {:02} min", seconds / 3600, seconds / 60 % 60);
}

std::string formatCount(uint64_t count) {
    std::string text = std::to_string(count);
    for (size_t i = text.size(); i > 3; i -= 3) {
        text.insert(i - 3, 1, ',');
    }
    return text;
}

std::string formatCount(uint64_t count, std::string_view noun) {
    return fmt::format("{} {}{}", formatCount(count), noun, count == 1 ? "" : "s");
}

std::string shorten(std::string_view text, size_t columns) {
    if (widthOf(text) <= columns) {
        return std::string(text);
    }
    size_t end = 0;
    for (size_t left = columns - 3; left > 0 || !isFirst(text[end]); end++) {
        left -= isFirst(text[end]) ? 1U : 0U;
    }
    return std::string(text.substr(0, end)) + "...";
}

std::string formatDateTime(int64_t wall) {
    char text[27];
    formatWall(wall, text);
    return text;
}

std::string formatTime(int64_t wall) {
    constexpr size_t kTimeAt = sizeof("YYYY-MM-DD");
    return formatDateTime(wall).substr(kTimeAt, sizeof("hh:mm:ss.uuu") - 1);
}

Colour colourOf(char level) {
    return level == 'E' || level == 'F' ? Colour::RED
           : level == 'W'               ? Colour::YELLOW
           : level == 'V'               ? Colour::DIM
                                        : Colour::PLAIN;
}

Page::Page(Output& out)
        : mOut(out), mHasColours(out.isTerminal() && std::getenv("NO_COLOR") == nullptr) {}

Page& Page::add(std::string_view text, Colour colour) {
    const bool isColoured = mHasColours && colour != Colour::PLAIN && !text.empty();
    if (isColoured) {
        mOut.write(codeOf(colour));
    }
    mOut.write(text);
    if (isColoured) {
        mOut.write("\x1b[0m");
    }
    return *this;
}

Page& Page::addLogged(std::string_view bytes, Colour colour) {
    return isTerminal() ? add(escape(bytes, "\n\t"), colour) : add(bytes, colour);
}

void Table::print(Page& page, bool hasHeader) {
    constexpr size_t kMaxWidth = 50;
    std::vector<size_t> widths(mColumns.size(), 0);
    for (std::vector<std::string>& row : mRows) {
        for (size_t i = 0; i < row.size(); i++) {
            if (page.isTerminal()) {
                row[i] = shorten(escape(row[i], ""), kMaxWidth);
            }
            widths[i] = std::max(widths[i], widthOf(row[i]));
        }
    }
    for (size_t r = 0; r < mRows.size(); r++) {
        std::string line;
        const std::vector<std::string>& row = mRows[r];
        for (size_t i = 0; i < row.size(); i++) {
            const std::string blanks(widths[i] - widthOf(row[i]), ' ');
            line += i > 0 ? "  " : "";
            line += mColumns[i] == Align::RIGHT ? blanks + row[i] : row[i] + blanks;
        }
        line.erase(line.find_last_not_of(' ') + 1);
        page.add(line, hasHeader && r == 0 ? Colour::DIM : Colour::PLAIN).endLine();
    }
}

std::string toUtf8(std::string_view bytes) {
    std::string text;
    while (!bytes.empty()) {
        const size_t size = characterSize(bytes);
        text.append(size > 0 ? bytes.substr(0, size) : "\xef\xbf\xbd");
        bytes.remove_prefix(std::max<size_t>(size, 1));
    }
    return text;
}

}  // namespace JCam::Tool
