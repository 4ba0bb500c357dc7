#pragma once

#include <chrono>
#include <string_view>
#include <vector>

#include "LedgerBook.h"
#include "LogFiles.h"
#include "Options.h"
#include "Reconciliation.h"
#include "Replay.h"

/// Everything that the program prints, on the standard output. The library's own lines go to the
/// Android log.
namespace CameraHost {

/// `mode` is the one that the library has chosen, not the one that was asked for.
void printStart(const Options& options, unsigned int mode);
void printScript(const ReplayScript& script);
void printProgress(std::chrono::duration<double> elapsed, const LedgerBook& ledgers);
/// `timedWhat` tells what the timed calls consist of.
void printLogged(const LedgerBook& ledgers, std::string_view timedWhat);
void printFindings(const Findings& findings);
void printFiles(const std::vector<LogFile>& files);

}  // namespace CameraHost
