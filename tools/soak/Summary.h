#pragma once

#include <cstdint>

#include "Generation.h"
#include "Resources.h"

namespace JCam::Soak {

/// What all generations have come to, and what the process keeps from one to the next.
class Summary {
  public:
    /// For each generation to add to.
    [[nodiscard]] GenerationCounts& counts() { return mSum; }
    /// A Fault if the process holds on to more than before the generation that has ended.
    void endGeneration();

    [[nodiscard]] uint64_t generations() const { return mGenerations; }
    [[nodiscard]] uint64_t records() const { return mSum.series.records; }
    /// A line for whoever waits.
    void printProgress(double seconds) const;
    void print(double seconds) const;

  private:
    uint64_t mGenerations{0};
    GenerationCounts mSum;
    /// After the first generation: descriptors and threads are those of every later one.
    Resources mFirst;
    /// After the warm-up: from here on memory is flat.
    Resources mWarm;
    Resources mLast;
    uint64_t mMostResidentKib{0};  // since the warm-up
    uint64_t mMostHeapBytes{0};
};

}  // namespace JCam::Soak
