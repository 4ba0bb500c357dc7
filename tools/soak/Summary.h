#pragma once

#include <cstdint>

#include "Generation.h"
#include "Resources.h"

namespace JCam::Soak {

/// Adds up the generations, and watches what the process keeps from one to the next.
class Summary {
  public:
    /// Takes in a generation that has ended. A Fault if the process holds on to more than before
    /// it.
    void add(const GenerationCounts& counts);

    [[nodiscard]] uint64_t generations() const { return mGenerations; }
    [[nodiscard]] uint64_t records() const { return mSum.series.records; }
    /// A line for whoever waits.
    void printProgress(double seconds) const;
    void print(double seconds) const;

  private:
    void watchResources();

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
