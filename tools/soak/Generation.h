#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

#include "Call.h"
#include "SeriesCheck.h"

namespace JCam::Soak {

/// What generations have come to.
struct GenerationCounts {
    SeriesCounts series;
    uint64_t threads{0};
    uint64_t initializers{0};
};

/// A logger's whole life, at its hardest: initializers, threads that log and change levels and
/// flush, in bursts and with pauses, the end, and then the check of what is in the files. Its
/// folder must not be there before, and goes when nothing is amiss. Everything that is amiss is a
/// Fault.
class Generation {
  public:
    /// `material` must outlive it.
    Generation(const Material& material, uint64_t seed, std::filesystem::path folder);

    /// Takes some seconds. The host thread's. Adds to `counts`.
    void run(GenerationCounts& counts);
    /// Its properties, for people.
    [[nodiscard]] std::string describe() const;

  private:
    /// Everything of it that is drawn before it begins.
    struct Plan {
        uint32_t mode;
        uint32_t flushMs;
        bool monotonic;
        uint32_t hook;
        uint32_t milliseconds;
        uint64_t bytes;  // more are not to be written
    };

    static Plan drawPlan(uint64_t seed);

    const Material& mMaterial;
    const uint64_t mSeed;
    const std::filesystem::path mFolder;
    const Plan mPlan;
};

}  // namespace JCam::Soak
