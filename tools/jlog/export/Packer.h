#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace JCam::Tool {

/// Numbers as the page reads them: 7 bits a byte, the lowest first, bit 7 set in all but the last.
class Packer {
  public:
    void add(uint64_t number);
    /// Small either side of zero stays short.
    void addSigned(int64_t number);
    void addText(std::string_view text);
    void append(const Packer& other) { mBytes += other.mBytes; }
    void clear() { mBytes.clear(); }

    [[nodiscard]] const std::string& bytes() const { return mBytes; }
    [[nodiscard]] size_t size() const { return mBytes.size(); }

  private:
    std::string mBytes;
};

/// zlib's format in base64, which no byte of a log can leave.
[[nodiscard]] std::string deflateToBase64(std::string_view bytes);

}  // namespace JCam::Tool
