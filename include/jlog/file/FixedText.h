#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace JCam::Utils::JLog::File {

/// NUL-terminated text in an array of `Bytes`, which are 1 or more; what is longer is cut. Unlike
/// std::string it never allocates, so that whoever holds one works without memory and inside a
/// signal handler. Empty when made.
template <size_t Bytes>
class FixedText {
  public:
    /// Takes `text`, which may not lie in here, up to Bytes - 1 characters of it.
    FixedText& operator=(std::string_view text) {
        const size_t count = std::min(text.size(), Bytes - 1);
        memcpy(mText, text.data(), count);
        mText[count] = '\0';
        return *this;
    }

    /// Never null; as long-lived as the object.
    [[nodiscard]] const char* c_str() const { return mText; }
    /// The text up to its NUL.
    [[nodiscard]] std::string_view view() const { return mText; }
    /// Whether the text, as it was cut, is `text`.
    bool operator==(std::string_view text) const { return view() == text; }

    /// For formatters: the array itself, of which `Bytes` are writable.
    [[nodiscard]] char* data() { return mText; }
    /// Of the array, not of the text.
    [[nodiscard]] static constexpr size_t size() { return Bytes; }

  private:
    char mText[Bytes]{};
};

/// Room for any path of a log file.
using PathText = FixedText<512>;

}  // namespace JCam::Utils::JLog::File
