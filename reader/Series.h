#pragma once

// Reads the log files of the library, without a need for it:
//
//     JCam::Reader::Series series(JCam::Reader::listLogFiles(folder));
//     while (const auto record = series.next()) {
//         if (record->line) {
//             use(record->line->origin.tid, record->line->text);
//         } else if (!record->crash) {
//             tell(series.file().path, record->lineNumber, record->skipped);
//         }
//     }
//
// Files are mapped, and records are views of them: nothing is copied or allocated for a line. Any
// file is survived, and what is not a record is handed out with the reason why it was skipped.

#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

#include "reader/LogFile.h"
#include "reader/MappedFile.h"
#include "reader/Records.h"

namespace JCam::Reader {

/// The records of several files, one file after the other.
class Series {
  public:
    explicit Series(std::vector<LogFile> files) : mFiles(std::move(files)) {}

    /// The next one, which holds until the one after it is asked for; nullptr at the end. A file
    /// that cannot be read is a record without bytes that was skipped.
    [[nodiscard]] const Record* next();

    /// The file of the last record.
    [[nodiscard]] const LogFile& file() const { return mFiles[mOpened - 1]; }

  private:
    const std::vector<LogFile> mFiles;
    size_t mOpened = 0;
    std::optional<MappedFile> mMapped;
    std::optional<Records> mRecords;
    Record mUnreadable;
};

}  // namespace JCam::Reader
