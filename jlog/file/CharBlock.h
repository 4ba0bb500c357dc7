#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__aarch64__)
#include <arm_neon.h>
#elif defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace JCam::Utils::JLog::File {

/// Where the NULs of a CharBlock are: a few bits for each character, the first in the lowest.
class NulMask {
  public:
#if defined(__aarch64__)
    using Bits = uint64_t;
    static constexpr size_t kBitsPerChar = 4;
#else
    using Bits = uint32_t;
    static constexpr size_t kBitsPerChar = 1;
#endif
    explicit NulMask(Bits bits) : mBits(bits) {}

    [[nodiscard]] bool any() const {
        return mBits != 0;
    }
    /// Characters in front of the first NUL, which is there.
    [[nodiscard]] size_t first() const {
        return static_cast<size_t>(std::countr_zero(mBits)) / kBitsPerChar;
    }
    /// The mask without the first `count` characters, which are fewer than 16.
    [[nodiscard]] NulMask behind(size_t count) const {
        return NulMask(mBits >> (count * kBitsPerChar));
    }

  private:
    Bits mBits;
};

/// 16 characters that are examined and copied together.
class CharBlock {
  public:
    static constexpr size_t kBytes = 16;

    explicit CharBlock(const char* text) { memcpy(&mChars, text, kBytes); }
    void store(char* out) const { memcpy(out, &mChars, kBytes); }

    [[nodiscard]] NulMask nuls() const {
#if defined(__aarch64__)
        // Four bits for each byte: there is no instruction that takes one bit of each.
        const uint8x8_t nibbles = vshrn_n_u16(vreinterpretq_u16_u8(vceqzq_u8(mChars)), 4);
        return NulMask(vget_lane_u64(vreinterpret_u64_u8(nibbles), 0));
#elif defined(__SSE2__)
        return NulMask(static_cast<uint32_t>(
                _mm_movemask_epi8(_mm_cmpeq_epi8(mChars, _mm_setzero_si128()))));
#else
        uint32_t bits = 0;
        for (size_t i = 0; i < kBytes; ++i) {
            bits |= uint32_t{mChars[i] == 0} << i;
        }
        return NulMask(bits);
#endif
    }

  private:
#if defined(__aarch64__)
    uint8x16_t mChars;
#elif defined(__SSE2__)
    __m128i mChars;
#else
    char mChars[kBytes];
#endif
};

}  // namespace JCam::Utils::JLog::File
