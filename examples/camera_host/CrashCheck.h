#pragma once

#include <sys/types.h>

#include <cstdint>
#include <vector>

#include "LedgerBook.h"
#include "LogFiles.h"
#include "Reconciliation.h"

namespace CameraHost {

/// The outcome of comparing what a process had logged when it crashed with what its files hold. A
/// record may be in a normal file and in the crash file, which is no duplicate.
struct CrashFindings {
    Findings findings;  // its counts of records are those of both kinds of file together
    uint64_t crashFiles = 0;
    uint64_t badFirstLines = 0;  // crash files that do not begin with signal and address
    uint64_t inCrashFile = 0;    // records
    uint64_t onlyInCrashFile = 0;

    [[nodiscard]] bool isClean() const {
        return findings.isClean() && crashFiles == 1 && badFirstLines == 0;
    }
};

[[nodiscard]] bool isCrashFile(const LogFile& file);

/// Checks a run of the pipeline that ended by `sig`: every record whose call had returned when the
/// signal came, as the ledgers are marked, is in a file. What the threads have logged after it may
/// be there, too.
[[nodiscard]] CrashFindings reconcileCrash(pid_t pid, int sig, const std::vector<LogFile>& files,
                                           const LedgerBook& ledgers);

}  // namespace CameraHost
