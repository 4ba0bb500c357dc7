#include "ComparedWriter.h"

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <limits>

#include "Check.h"
#include "jlog/file/LogRecord.h"
#include "support/Records.h"
#include "support/TempFolder.h"

namespace JCam::Fuzz {

using Support::Record;
using Utils::JLog::File::kMaxMessageChars;
using Utils::JLog::File::kMaxNameChars;

namespace {

/// Of the process, and empty between two inputs.
const Support::TempFolder& logFolder() {
    static const Support::TempFolder kFolder;
    return kFolder;
}

/// A zone with two offsets, or the one whose offset is the same at all times: a writer of crash
/// dumps has only that of now.
void setZone(bool signalSafe) {
    setenv("TZ", signalSafe ? "UTC0" : "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
}

}  // namespace

std::string textIn(std::string_view room, size_t maxChars) {
    const std::string_view text = room.substr(0, maxChars);
    return std::string(text.substr(0, text.find('\0')));
}

ComparedWriter::ComparedWriter(const std::string& prefix, bool silent, bool signalSafe)
        : mReference(getpid(),
                     [this](const char* text, size_t bytes) { mExpected.append(text, bytes); }),
          mSignalSafe(signalSafe) {
    setZone(signalSafe);
    if (signalSafe) {
        mWriter.makeSignalSafe(CLOCK_REALTIME);
    }
    mWriter.mFolder = logFolder().path();
    check(mWriter.open(true, prefix.c_str(), silent), "the file is opened");
    const std::string head =
            logFolder().path("cam_jlog_") + std::to_string(getpid()) + "_" + prefix.substr(0, 29);
    constexpr std::string_view kTail = "yyyy_mmdd_hhmmss_01.txt";
    const std::string_view path = mWriter.mFilePath.view();
    check(path.starts_with(head) && path.size() == head.size() + kTail.size() &&
                  path.ends_with("_01.txt"),
          "the file has the name of the first of its series");
}

timespec ComparedWriter::comparable(timespec timestamp) const {
    // Beyond some 31 million years a crash dump prints what the others print where a second has no
    // local form at all.
    constexpr time_t kFarOff = 1000000000000000;
    const bool far = timestamp.tv_sec > kFarOff || timestamp.tv_sec < -kFarOff;
    return {mSignalSafe && far ? std::numeric_limits<time_t>::max() : timestamp.tv_sec,
            timestamp.tv_nsec};
}

void ComparedWriter::expectEnterExit(int tid, timespec timestamp, unsigned int serial,
                                     unsigned int moduleId, unsigned int requestNo,
                                     std::string_view name, char direction) {
    const Record record = Record::enterExit(tid, comparable(timestamp), serial, moduleId, requestNo,
                                            textIn(name, kMaxNameChars));
    mReference.enterExit(record.asEnterExit(), direction);
}

void ComparedWriter::expectDetails(int tid, timespec timestamp, unsigned int level,
                                   std::string_view name, std::string_view message) {
    // Eight bits hold the levels that have a letter, and one that has none.
    const Record record =
            Record::details(tid, comparable(timestamp), level <= 6 ? level : 7,
                            textIn(name, kMaxNameChars), textIn(message, kMaxMessageChars));
    mReference.details(record.asDetails());
}

void ComparedWriter::flush() {
    mWriter.flush(false);
    mReference.flush();
}

void ComparedWriter::finish() {
    mWriter.close();
    mReference.flush();
    check(logFolder().names().size() == 1, "all went into one file");
    checkEqual(logFolder().logText(), mExpected, "the file has the lines of the reference");
    std::filesystem::remove(mWriter.mFilePath.c_str());
}

}  // namespace JCam::Fuzz
