#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "LedgerBook.h"
#include "reader/LogFile.h"

namespace CameraHost {

/// The outcome of comparing what a process had logged with what its files hold. A damaged record
/// may count twice: its line is torn, and the record itself is lost. One that is in two files of
/// different kinds (normal, crash, black box) is no duplicate.
struct Findings {
    EventCounts found;
    uint64_t lost = 0;
    uint64_t duplicated = 0;
    uint64_t torn = 0;
    uint64_t crashFiles = 0;
    uint64_t expectedCrashFiles = 0;
    uint64_t badFirstLines = 0;  // crash and black-box files that do not begin as they should
    uint64_t inCrashFile = 0;    // records
    uint64_t onlyInCrashFile = 0;
    uint64_t onlyInBlackBox = 0;     // records that only its file has
    std::vector<std::string> notes;  // the first few faults, for people

    [[nodiscard]] bool isClean() const {
        return lost == 0 && duplicated == 0 && torn == 0 && badFirstLines == 0 &&
               crashFiles == expectedCrashFiles;
    }
    /// All but the notes.
    Findings& operator+=(const Findings& other);
};

/// How a run has ended, as far as its files tell.
enum class RunEnd {
    STOP,         // the sum of all contents is that of the ledgers
    SUDDEN,       // each thread may have one more record, of the call that it was in
    CRASH,        // likewise, and there is a crash file
    TWO_CRASHES,  // likewise, but there may be none, and it may end anywhere
};

/// Checks a run record by record: every record whose call had returned when the ledgers were marked
/// is in a file, with its serial, or with its number on a line of its thread, and once. A log file
/// may end with the begin of a record that a black-box file has whole: its process was killed in a
/// write. So may the crash file of two crashes. `sig` is the signal that a crash file tells.
[[nodiscard]] Findings checkFiles(std::vector<JCam::Reader::LogFile> files,
                                  const LedgerBook& ledgers, RunEnd end, int sig = 0);

}  // namespace CameraHost
