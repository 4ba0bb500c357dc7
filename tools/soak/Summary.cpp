#include "Summary.h"

#include <algorithm>

#include <fmt/format.h>

#include "Fault.h"
#include "KernelCalls.h"
#include "support/Await.h"

namespace JCam::Soak {

namespace {

/// After so many generations whatever is made once and kept has been made.
constexpr uint64_t kWarmUp = 5;
/// What malloc may have handed out more than after the warm-up: texts like the folder's name are
/// not always of the same length.
constexpr uint64_t kHeapSlackBytes = 1024;
#if defined(JCAM_SANITIZED)
/// What may be resident more. AddressSanitizer keeps 256 MiB of what was freed, and looks itself
/// for what is lost; both sanitizers have a shadow for each address that was ever used.
constexpr uint64_t kResidentSlackKib = 512 << 10U;
#else
/// What may be resident more: the kernel counts in batches on each core, and no two generations
/// leave the same pages of malloc and of the stacks in use. Three record buffers are more.
constexpr uint64_t kResidentSlackKib = 512;
#endif

uint64_t callsOf(const SeriesCounts& series, CallKind kind) {
    return series.calls[static_cast<size_t>(kind)];
}

void expectNoMore(const char* what, uint64_t now, uint64_t most) {
    if (now > most) {
        throw Fault(fmt::format("{} after the generation: {}, not {} at most", what, now, most));
    }
}

}  // namespace

void Summary::endGeneration() {
    ++mGenerations;
    mLast = Resources::read();
    if (mGenerations == 1) {
        mFirst = mLast;
    }
    // A joined thread may still be on its way out of the kernel.
    static_cast<void>(Support::await([this] {
        mLast = Resources::read();
        return mLast.threads <= mFirst.threads;
    }));
    if (mLast.threads != mFirst.threads || mLast.descriptors != mFirst.descriptors) {
        throw Fault(fmt::format(
                "threads {}, descriptors {} after the generation; after the first one {} and {}",
                mLast.threads, mLast.descriptors, mFirst.threads, mFirst.descriptors));
    }
    if (mGenerations <= kWarmUp) {
        mWarm = mLast;
    }
    expectNoMore("KiB of resident memory", mLast.residentKib,
                 mWarm.residentKib + kResidentSlackKib);
    expectNoMore("bytes of heap", mLast.heapBytes, mWarm.heapBytes + kHeapSlackBytes);
    mMostResidentKib = std::max(mMostResidentKib, mLast.residentKib);
    mMostHeapBytes = std::max(mMostHeapBytes, mLast.heapBytes);
}

void Summary::printProgress(double seconds) const {
    fmt::print("{:7.0f} s: {} generations, {} records, {} MiB\n", seconds, mGenerations,
               mSum.series.records, mSum.series.bytes >> 20U);
}

void Summary::print(double seconds) const {
    const SeriesCounts& series = mSum.series;
    fmt::print("\ngenerations      {} in {:.0f} s, with {} threads and {} initializers\n",
               mGenerations, seconds, mSum.threads, mSum.initializers);
    fmt::print("calls            enter {}, exit {}, details {}; {} more did not pass their test\n",
               callsOf(series, CallKind::ENTER), callsOf(series, CallKind::EXIT),
               callsOf(series, CallKind::DETAILS), series.refused);
    fmt::print("                 flush {}, level {} and {} by properties, filter {}\n",
               callsOf(series, CallKind::FLUSH), callsOf(series, CallKind::SET_LEVEL),
               callsOf(series, CallKind::UPDATE_LEVEL), callsOf(series, CallKind::SET_FILTER));
    fmt::print("records found    {} in {} files of {} bytes, {} of them cut by a full buffer\n",
               series.records, series.files, series.bytes, series.cuts);
    fmt::print("record buffers   {} at most were mapped\n", KernelCalls::mostMappedBuffers());
    fmt::print("descriptors      {} after the first generation, {} after the last\n",
               mFirst.descriptors, mLast.descriptors);
    fmt::print("resident memory  {} KiB after {} generations, {} after the last, {} at most\n",
               mWarm.residentKib, std::min(mGenerations, kWarmUp), mLast.residentKib,
               mMostResidentKib);
    fmt::print("heap             {} bytes, {} and {}, likewise\n", mWarm.heapBytes, mLast.heapBytes,
               mMostHeapBytes);
}

}  // namespace JCam::Soak
