#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "LedgerBook.h"
#include "LogFiles.h"

namespace CameraHost {

/// The outcome of comparing what was logged with what the files hold. A damaged record may count
/// twice: its line is torn, and the record itself is lost.
struct Findings {
    uint64_t enters = 0;
    uint64_t exits = 0;
    uint64_t details = 0;
    uint64_t lost = 0;
    uint64_t duplicated = 0;
    uint64_t torn = 0;
    std::vector<std::string> notes;  // the first few faults, for people

    [[nodiscard]] bool isClean() const { return lost == 0 && duplicated == 0 && torn == 0; }
};

// For whoever counts faults.
void addNote(Findings& findings, std::string note);
void noteLine(Findings& findings, const FileLine& line, std::string_view what);
/// Counts a torn line as well.
void noteTorn(Findings& findings, const FileLine& line, std::string_view what);

/// Checks a run of the pipeline record by record: the serials of enter and exit lines are 1..N, the
/// numbers of each thread's texts are 1..n, each once and on a line of that thread, and the sum of
/// all contents is that of the ledgers.
[[nodiscard]] Findings reconcilePipeline(pid_t pid, const std::vector<LogFile>& files,
                                         const LedgerBook& ledgers);

/// Checks a replay, whose texts carry no numbers: the files hold the messages of `logged` (each by
/// its detailsHash()), each the same number of times.
[[nodiscard]] Findings reconcileReplay(pid_t pid, const std::vector<LogFile>& files,
                                       const std::vector<uint64_t>& logged);

}  // namespace CameraHost
