#include "tools/jlog/export/Packer.h"

#include <zlib.h>

#include <cstddef>
#include <new>

namespace JCam::Tool {

namespace {

[[nodiscard]] std::string toBase64(std::string_view bytes) {
    constexpr std::string_view kDigits =
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t i = 0; i < bytes.size(); i += 3) {
        uint32_t three = 0;
        for (size_t k = i; k < i + 3; ++k) {
            three = three << 8 | (k < bytes.size() ? static_cast<uint8_t>(bytes[k]) : 0U);
        }
        for (unsigned int shift = 24; shift != 0;) {
            shift -= 6;
            text += kDigits[three >> shift & 63];
        }
    }
    const size_t missing = (3 - bytes.size() % 3) % 3;
    text.replace(text.size() - missing, missing, missing, '=');
    return text;
}

}  // namespace

void Packer::add(uint64_t number) {
    while (number >= 0x80) {
        mBytes += static_cast<char>(number | 0x80);
        number >>= 7;
    }
    mBytes += static_cast<char>(number);
}

void Packer::addSigned(int64_t number) {
    const auto bits = static_cast<uint64_t>(number);
    add(bits << 1 ^ (number < 0 ? UINT64_MAX : 0));
}

void Packer::addText(std::string_view text) {
    add(text.size());
    mBytes += text;
}

std::string deflateToBase64(std::string_view bytes) {
    uLongf size = compressBound(bytes.size());
    std::string deflated(size, '\0');
    // The buffers are large enough: only memory can lack.
    if (compress2(reinterpret_cast<Bytef*>(deflated.data()), &size,
                  reinterpret_cast<const Bytef*>(bytes.data()), bytes.size(),
                  Z_DEFAULT_COMPRESSION) != Z_OK) {
        throw std::bad_alloc();
    }
    return toBase64(std::string_view(deflated).substr(0, size));
}

}  // namespace JCam::Tool
