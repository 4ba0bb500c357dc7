#pragma once

#include <memory>
#include <vector>

#include "tools/jlog/analysis/Analysis.h"
#include "tools/jlog/analysis/Logcat.h"
#include "tools/jlog/analysis/Selection.h"
#include "tools/jlog/Options.h"
#include "tools/jlog/Output.h"

namespace JCam::Tool {

/// The analysed series, in the order they began.
using Logs = std::vector<std::unique_ptr<Analysis>>;

/// Entry::wall of the first record; 0 if there is none.
[[nodiscard]] int64_t firstTimeOf(const Logs& logs);

// Each prints what its command is asked for, and returns the exit status. `logcat` is nullptr if
// there is no Android log.

int report(const Logs& logs, const Logcat* logcat, const Selection& selection,
           const Options& options, Output& out);
int listRequests(const Logs& logs, const Selection& selection, const Options& options, Output& out);
int showRequest(const Logs& logs, const Selection& selection, const Options& options, Output& out);
int showAround(const Logs& logs, const Logcat* logcat, const Selection& selection,
               const Options& options, Output& out);
int showCrash(const Logs& logs, const Logcat* logcat, const Options& options, Output& out);
int merge(const Logs& logs, const Logcat* logcat, const Selection& selection,
          const Options& options, Output& out);
int diff(const Logs& before, const Logs& after, const Selection& selection, const Options& options,
         Output& out);
/// To the file of the options, in their format.
int exportTo(const Logs& logs, const Selection& selection, const Options& options);
/// One series after the other: nothing is analysed before.
int exportNdjson(std::vector<SeriesFiles> series, const Selection& selection,
                 const Options& options, const Analysis::Progress& progress);
int follow(const Options& options, Output& out);
/// The records of a black box, to the file of the options.
int recover(const Options& options);

}  // namespace JCam::Tool
