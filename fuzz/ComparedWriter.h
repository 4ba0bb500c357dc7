#pragma once

#include <ctime>
#include <string>
#include <string_view>

#include "jlog/file/FileJLogWriter.h"
#include "support/ReferenceWriter.h"

namespace JCam::Fuzz {

/// Characters of a text in `room` of which at most `maxChars` are printed: those before its NUL.
std::string textIn(std::string_view room, size_t maxChars);

/// A writer with a file of its own, and the reference that is to render the same text.
class ComparedWriter {
  public:
    /// Opens the file, of a writer of crash dumps if `signalSafe`.
    ComparedWriter(const std::string& prefix, bool silent, bool signalSafe);

    [[nodiscard]] Utils::JLog::File::FileJLogWriter& writer() { return mWriter; }

    // What the writer was given. Names and messages are cut as the format says.

    void expectEnterExit(int tid, timespec timestamp, unsigned int serial, unsigned int moduleId,
                         unsigned int requestNo, std::string_view name, char direction);
    void expectDetails(int tid, timespec timestamp, unsigned int level, std::string_view name,
                       std::string_view message);

    /// Both write out what they have.
    void flush();
    /// Closes the file, compares and removes it. Nothing is to follow.
    void finish();

  private:
    /// With what both have of it in common.
    [[nodiscard]] timespec comparable(timespec timestamp) const;

    Utils::JLog::File::FileJLogWriter mWriter;
    std::string mExpected;
    Support::ReferenceWriter mReference;
    const bool mSignalSafe;
};

}  // namespace JCam::Fuzz
