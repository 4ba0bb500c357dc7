#include "tools/jlog/analysis/Logcat.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

#include "jlog/file/FileLogTag.h"
#include "jlog/track/CamHalFbConf.h"
#include "jlog/track/TrackLogTag.h"
#include "reader/Line.h"
#include "reader/Text.h"
#include "tools/jlog/analysis/TrackerLines.h"
#include "tools/jlog/analysis/WallClock.h"

namespace JCam::Tool {

namespace {

constexpr size_t kYearChars = 5;  // "2026-"

/// Gives lines their day. Most have that of the line before.
class Days {
  public:
    explicit Days(int64_t reference) : mReference(reference) {}

    /// `year`: "2026-" or empty. kNoTime if there is no such day.
    int64_t beginOf(std::string_view year, std::string_view date) {
        if (year != mYear || date != mDate) {
            mYear = year;
            mDate = date;
            const std::string start =
                    mYear.substr(0, 4) + "_" + mDate.substr(0, 2) + mDate.substr(3) + "_000000";
            mDay = (year.empty() ? dayNear(dateOf(date), mReference) : parseStart(start))
                           .value_or(kNoTime);
        }
        return mDay;
    }

  private:
    const int64_t mReference;
    std::string mYear;
    std::string mDate;
    int64_t mDay = kNoTime;
};

}  // namespace

Logcat::Logcat(const std::filesystem::path& path, int64_t reference)
        : mFile(path), mReference(reference) {
    if (!mFile.isOpen()) {
        throw std::runtime_error(path.string() + ": cannot be read");
    }
    TrackerLines tracker(mExceptions);
    forEachLine([&](const LogcatLine& line) {
        if (line.tag == Utils::JLog::Track::kTrackLogTag) {
            tracker.add(line);
            mResolution = line.isCoarse ? 1000 : mResolution;
        } else if (line.tag == Utils::JLog::File::kFileLogTag) {
            noteStatus(line);
        }
    });
    mRefusedCalls = tracker.refusedCalls();
}

std::optional<int64_t> Logcat::bootTime(int pid) const {
    const auto found = mBootTimes.find(pid);
    return found != mBootTimes.end() ? std::optional(found->second) : std::nullopt;
}

void Logcat::forEachLine(const std::function<void(const LogcatLine& line)>& visit) const {
    Days days(mReference);
    LogcatLine line;
    std::string_view rest = mFile.bytes();
    while (!rest.empty()) {
        const LogcatLine before = std::exchange(line, {});
        line.wall = before.wall;
        line.number = before.number + 1;
        line.bytes = rest.substr(0, std::min(rest.find('\n'), rest.size() - 1) + 1);
        rest.remove_prefix(line.bytes.size());
        std::string_view text = line.bytes;
        // Logs that came over a terminal have both.
        text.remove_suffix(text.ends_with('\n') ? 1 : 0);
        text.remove_suffix(text.ends_with('\r') ? 1 : 0);
        line.text = text;
        const std::string_view year =
                text.substr(0, Reader::hasShape(text, "0000-00-00 ") ? kYearChars : 0);
        std::string_view reason;
        if (const auto parsed = Reader::parseLine(text.substr(year.size()), reason)) {
            if (const int64_t day = days.beginOf(year, parsed->origin.date); day != kNoTime) {
                line.wall = day + parsed->origin.microseconds;
            }
            line.isCoarse = parsed->origin.time.size() == sizeof("00:00:00.000") - 1;
            line.pid = parsed->origin.pid;
            line.tid = parsed->origin.tid;
            line.level = parsed->level;
            line.tag = parsed->tag;
            line.text = parsed->text;
        }
        visit(line);
    }
}

/// "...; mono = 01-02 03:04:05.678901, real = 11-26 14:51:01.152846 (path)"
void Logcat::noteStatus(const LogcatLine& line) {
    constexpr std::string_view kMono = "; mono = ";
    constexpr std::string_view kReal = ", real = ";
    constexpr size_t kStampChars = sizeof("01-02 03:04:05.678901") - 1;
    const size_t at = line.text.find(kMono);
    if (at == std::string_view::npos) {
        return;
    }
    std::string_view text = line.text.substr(at);
    // The reader takes stamps with ids behind them.
    const auto takeStamp = [&](std::string_view mark, int64_t near) {
        Reader::Origin origin;
        const bool isThere = Reader::take(text, mark) && text.size() >= kStampChars;
        const std::string stamp = std::string(text.substr(0, isThere ? kStampChars : 0)) + " 1 1 ";
        std::string_view rest = stamp;
        if (!Reader::takeOrigin(rest, origin)) {
            return kNoTime;
        }
        text.remove_prefix(kStampChars);
        const std::optional<int64_t> day = dayNear(dateOf(origin.date), near);
        return day ? *day + origin.microseconds : kNoTime;
    };
    const int64_t mono = takeStamp(kMono, 0);  // west of Greenwich it may be in 1969
    const int64_t real = takeStamp(kReal, line.wall);
    if (mono != kNoTime && real != kNoTime) {
        mBootTimes[line.pid] = real - mono;
    }
}

ExceptionName nameOf(const CameraException& exception) {
    using namespace Utils::JLog::Track;
    if (exception.kind == ExceptionKind::DARK_SCREEN) {
        return {"dark screen", "stats atom"};
    }
    const int row = findCamHalFbRow(static_cast<int32_t>(exception.code));
    return row < 0 ? ExceptionName()
                   : ExceptionName{gCamHalFbConf[row].desc, gCamHalFbConf[row].category};
}

}  // namespace JCam::Tool
