#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace JCam::Utils::JLog::File {

/// The path of a log file, NUL-terminated, in an array that holds up to 511 characters; a longer
/// text is cut. Unlike std::string it never allocates, so a signal handler may use it. Empty when
/// made.
class PathText {
  public:
    /// Takes `text`, which may not lie in here, as far as there is room.
    PathText& operator=(std::string_view text) {
        const size_t count = std::min(text.size(), size() - 1);
        memcpy(mText, text.data(), count);
        mText[count] = '\0';
        return *this;
    }

    /// Never null; as long-lived as the object.
    [[nodiscard]] const char* c_str() const { return mText; }
    /// The text up to its NUL.
    [[nodiscard]] std::string_view view() const { return mText; }
    /// Whether the path, as it was cut, is `text`.
    bool operator==(std::string_view text) const { return view() == text; }

    /// For formatters: the array itself, of which size() bytes are writable.
    [[nodiscard]] char* data() { return mText; }
    /// Of the array, not of the text.
    [[nodiscard]] static constexpr size_t size() { return sizeof(mText); }

  private:
    char mText[512]{};
};

}  // namespace JCam::Utils::JLog::File
