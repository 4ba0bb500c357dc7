#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace JCam::Soak {

/// Numbers that the same seed always gives again. Any seeds do, neighbours among them, and making
/// one costs nothing: every call of every thread has one of its own. (Splitmix64.)
class Random {
  public:
    explicit Random(uint64_t seed) : mState(seed) {}
    /// The `index`th of many that `seed` stands for.
    Random(uint64_t seed, uint64_t index) : mState(seed ^ Random(index).next()) {}

    uint64_t next() {
        mState += 0x9e3779b97f4a7c15;
        uint64_t z = mState;
        z = (z ^ (z >> 30U)) * 0xbf58476d1ce4e5b9;
        z = (z ^ (z >> 27U)) * 0x94d049bb133111eb;
        return z ^ (z >> 31U);
    }
    /// From 0 to `count` - 1.
    uint32_t below(uint32_t count) {
        return static_cast<uint32_t>(((next() >> 32U) * count) >> 32U);
    }
    bool oneIn(uint32_t count) { return below(count) == 0; }
    template <typename T, size_t N>
    const T& pick(const std::array<T, N>& choice) {
        return choice[below(static_cast<uint32_t>(N))];
    }

  private:
    uint64_t mState;
};

}  // namespace JCam::Soak
