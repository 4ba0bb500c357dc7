#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/jlog/Output.h"

namespace JCam::Tool {

/// Microseconds in a unit that leaves three digits: "812 us", "66.7 ms", "1.25 s", "2 min 03 s".
[[nodiscard]] std::string formatDuration(int64_t microseconds);
/// 1983659 as "1,983,659".
[[nodiscard]] std::string formatCount(uint64_t count);
/// "1 file", "2 files".
[[nodiscard]] std::string formatCount(uint64_t count, std::string_view noun);
/// At most `columns` characters of a text: of a longer one the first, and "...".
[[nodiscard]] std::string shorten(std::string_view text, size_t columns);
/// Entry::wall as "hh:mm:ss.uuu".
[[nodiscard]] std::string formatTime(int64_t wall);
/// Entry::wall as "YYYY-MM-DD hh:mm:ss.uuuuuu".
[[nodiscard]] std::string formatDateTime(int64_t wall);

enum class Colour : uint8_t { PLAIN, BOLD, DIM, RED, YELLOW, GREEN, CYAN };

/// The colour of a level; PLAIN for those that nobody looks for.
[[nodiscard]] Colour colourOf(char level);

/// Text for a person: colours on a terminal alone, and there nothing that a log holds moves the
/// cursor.
class Page {
  public:
    explicit Page(Output& out);

    /// `text` is the tool's own.
    Page& add(std::string_view text, Colour colour = Colour::PLAIN);
    /// Bytes of a log. On a terminal control characters and what is no UTF-8 are shown as \xNN; a
    /// newline stays.
    Page& addLogged(std::string_view bytes, Colour colour = Colour::PLAIN);
    Page& endLine() { return add("\n"); }

    [[nodiscard]] bool isTerminal() const { return mOut.isTerminal(); }

  private:
    Output& mOut;
    bool mHasColours;
};

/// Columns that are as wide as what they hold, though not wider than a terminal can bear. A cell's
/// text is a log's.
class Table {
  public:
    enum class Align : uint8_t { LEFT, RIGHT };

    explicit Table(std::vector<Align> columns) : mColumns(std::move(columns)) {}

    void addRow(std::vector<std::string> cells) { mRows.push_back(std::move(cells)); }
    /// The first row, if it is a header, is dimmed. No blanks at the end of a line.
    void print(Page& page, bool hasHeader);

  private:
    std::vector<Align> mColumns;
    std::vector<std::vector<std::string>> mRows;
};

/// Bytes that are no UTF-8, replaced, so that JSON can hold them.
[[nodiscard]] std::string toUtf8(std::string_view bytes);

}  // namespace JCam::Tool
