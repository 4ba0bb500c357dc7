#pragma once

// Reads the files of a series in blocks of half a megabyte. Threads take them apart, one each at a
// time and some blocks ahead; the caller gets them in order. Nothing is kept of a block that was
// handed out, so the memory does not depend on the size of the files.

#include <cstddef>
#include <functional>

#include "tools/jlog/analysis/Block.h"
#include "tools/jlog/analysis/BlockParser.h"
#include "tools/jlog/analysis/SeriesFiles.h"

namespace JCam::Tool {

/// Calls `consume` on the caller's thread for each block of `files`, in order. What it throws ends
/// the scan. `sizes`: others let tests have many borders in few bytes.
void scanRecords(const SeriesFiles& files, const std::function<void(Block&)>& consume,
                 const BlockSizes& sizes = {});

}  // namespace JCam::Tool
