#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

namespace JCam::Fuzz {

/// A copy whose end is the end of its memory, so that AddressSanitizer sees whoever reads on.
class ExactCopy {
  public:
    explicit ExactCopy(std::string_view text) : mBytes(new char[text.size()]), mSize(text.size()) {
        text.copy(mBytes.get(), mSize);
    }

    [[nodiscard]] char* data() { return mBytes.get(); }
    [[nodiscard]] const char* data() const { return mBytes.get(); }
    [[nodiscard]] size_t size() const { return mSize; }
    [[nodiscard]] std::string_view view() const { return {mBytes.get(), mSize}; }

  private:
    std::unique_ptr<char[]> mBytes;
    size_t mSize;
};

}  // namespace JCam::Fuzz
