#include "CallSite.h"

#include <algorithm>

#include <fmt/format.h>

namespace CameraHost {

namespace {

/// Room for " seq=T" and ":" with the longest 32-bit and 64-bit numbers: the number must never be
/// what is cut.
constexpr size_t kSeqBytes = 6 + 10 + 1 + 20;

}  // namespace

void formatText(LogText& text, uint32_t threadNumber, uint64_t textNumber, fmt::string_view format,
                fmt::format_args args) {
    constexpr size_t kRoom = std::tuple_size_v<decltype(text.chars)> - kSeqBytes - 1;
    char* const begin = text.chars.data();
    const size_t wanted = fmt::vformat_to_n(begin, kRoom, format, args).size;
    char* end = begin + std::min(wanted, kRoom);
    end = fmt::format_to_n(end, kSeqBytes, " seq=T{}:{}", threadNumber, textNumber).out;
    *end = '\0';
    text.length = static_cast<size_t>(end - begin);
}

}  // namespace CameraHost
