#pragma once

#include <chrono>
#include <cstdint>
#include <string_view>
#include <vector>

#include "Check.h"
#include "Crash.h"
#include "ExceptionSession.h"
#include "LedgerBook.h"
#include "Options.h"
#include "reader/LogFile.h"
#include "Replay.h"
#include "Storm.h"

/// Everything that the program prints, on the standard output. The library's own lines go to the
/// Android log.
namespace CameraHost {

/// `mode` is the one that the library has chosen, not the one that was asked for.
void printStart(const Options& options, unsigned int mode);
void printScript(const ReplayScript& script);
void printProgress(std::chrono::duration<double> elapsed, const LedgerBook& ledgers);
/// `timedWhat` tells what the timed calls consist of.
void printLogged(const LedgerBook& ledgers, std::string_view timedWhat);
/// `ledgers` are marked.
void printFindings(const Findings& findings, const LedgerBook& ledgers, RunEnd end);
/// The sizes of all files, and lines of the last one.
void printFiles(const std::vector<JCam::Reader::LogFile>& files);
/// `signalToEndNs` is below 0 if it is not known.
void printChildEnd(const ChildEnd& end, int64_t signalToEndNs);
void printStormProgress(uint64_t children);
void printStormFindings(const StormFindings& found, const Options& options);
void printExceptionStep(std::string_view what);
/// A table of what each step has reached.
void printExceptionSteps(const std::vector<ExceptionStep>& steps);

}  // namespace CameraHost
