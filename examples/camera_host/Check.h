#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "LedgerBook.h"
#include "reader/LogFile.h"

namespace CameraHost {

/// The outcome of comparing what a process had logged with what its files hold. A damaged record
/// may count twice: its line is torn, and the record itself is lost. One that is both in a normal
/// file and in the crash file is no duplicate.
struct Findings {
    EventCounts found;
    uint64_t lost = 0;
    uint64_t duplicated = 0;
    uint64_t torn = 0;
    uint64_t crashFiles = 0;
    uint64_t expectedCrashFiles = 0;
    uint64_t badFirstLines = 0;  // crash files that do not begin with signal and address
    uint64_t inCrashFile = 0;    // records
    uint64_t onlyInCrashFile = 0;
    std::vector<std::string> notes;  // the first few faults, for people

    [[nodiscard]] bool isClean() const {
        return lost == 0 && duplicated == 0 && torn == 0 && badFirstLines == 0 &&
               crashFiles == expectedCrashFiles;
    }
    /// All but the notes.
    Findings& operator+=(const Findings& other);
};

/// Checks a run record by record: every record whose call had returned when the ledgers were marked
/// is in a file, with its serial, or with its number on a line of its thread, and once.
///
/// `sig` is the signal that the run ended by, or 0. With one there is a crash file, and each thread
/// may have one more record, of the call that it was in. Without, the sum of all contents is that
/// of the ledgers.
[[nodiscard]] Findings checkFiles(const std::vector<JCam::Reader::LogFile>& files,
                                  const LedgerBook& ledgers, int sig);

}  // namespace CameraHost
