#include "tools/jlog/analysis/SeriesFiles.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <map>
#include <numeric>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <tuple>
#include <utility>

#include "reader/Records.h"
#include "tools/jlog/analysis/CrashOverlap.h"
#include "tools/jlog/analysis/WallClock.h"

namespace JCam::Tool {

namespace fs = std::filesystem;

namespace {

using Reader::LogFile;

constexpr std::string_view kBoxExtension = ".box";

bool isBefore(const LogFile& a, const LogFile& b) {
    return std::tie(a.index, a.path) < std::tie(b.index, b.path);
}

std::string readBegin(const fs::path& path, size_t size) {
    std::string bytes(size, '\0');
    std::ifstream stream(path, std::ios::binary);
    stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<size_t>(stream.gcount()));
    return bytes;
}

/// The process of the first record of a file whose name does not tell.
LogFile describe(const fs::path& path) {
    constexpr size_t kLookBytes = size_t{1024} * 1024;
    const std::string bytes = readBegin(path, kLookBytes);
    LogFile file;
    file.path = path;
    Reader::Records records(bytes, 0);
    while (const Reader::Record* const record = records.next()) {
        file.isCrash = file.isCrash || record->crash;
        if (record->crash && record->crash->box) {
            file.isBlackBox = true;
            file.pid = record->crash->box->pid;
        }
        if (record->line) {
            file.pid = record->line->origin.pid;
            break;
        }
    }
    return file;
}

void collect(const fs::path& path, std::vector<LogFile>& files) {
    std::error_code error;
    if (!fs::is_directory(path, error)) {
        struct stat status = {};
        if (stat(path.c_str(), &status) != 0) {
            throw std::runtime_error(path.string() + ": " + std::strerror(errno));
        }
        if (!S_ISREG(status.st_mode)) {
            throw std::runtime_error(path.string() + ": not a file or folder");
        }
        if (path.extension() == kBoxExtension) {
            throw std::runtime_error(path.string() + ": a black box, see jlog recover");
        }
        std::optional<LogFile> file = Reader::parseName(path);
        files.push_back(file ? *std::move(file) : describe(path));
        return;
    }
    fs::directory_iterator i(path, error);
    if (error) {
        throw std::runtime_error(path.string() + ": " + error.message());
    }
    const size_t before = files.size();
    bool hasBox = false;
    for (const fs::directory_iterator end; !error && i != end; i.increment(error)) {
        std::optional<LogFile> file = Reader::parseName(i->path());
        std::error_code ignored;
        if (file && i->is_regular_file(ignored)) {
            files.push_back(*std::move(file));
        }
        hasBox = hasBox || i->path().extension() == kBoxExtension;
    }
    if (files.size() == before) {
        throw std::runtime_error(path.string() + ": no log files (cam_jlog_*.txt) in this folder" +
                                 (hasBox ? ", but black boxes, see jlog recover" : ""));
    }
}

/// A file may be named twice, in whatever way: by links, or by itself and by its folder.
void dropRepeated(std::vector<LogFile>& files) {
    // A file has its own name, and a link may have any.
    std::stable_partition(files.begin(), files.end(), [](const LogFile& file) {
        std::error_code error;
        return !fs::is_symlink(file.path, error);
    });
    std::set<std::pair<dev_t, ino_t>> seen;
    std::erase_if(files, [&](const LogFile& file) {
        struct stat status = {};
        return stat(file.path.c_str(), &status) == 0 &&
               !seen.emplace(status.st_dev, status.st_ino).second;
    });
}

/// Log files of one series. With the logger's fallback the later ones are in another folder; but
/// the same number in two folders is not the same series.
std::vector<SeriesFiles> split(std::vector<LogFile> files) {
    std::sort(files.begin(), files.end(), [](const LogFile& a, const LogFile& b) {
        const fs::path folderA = a.path.parent_path();
        const fs::path folderB = b.path.parent_path();
        return std::tie(folderA, a.index) < std::tie(folderB, b.index);
    });
    std::vector<SeriesFiles> result;
    for (size_t begin = 0; begin < files.size();) {
        size_t end = begin + 1;
        while (end < files.size() &&
               files[end].path.parent_path() == files[begin].path.parent_path()) {
            end++;
        }
        const auto overlaps = [&](const SeriesFiles& series) {
            return std::any_of(series.files.begin(), series.files.end(), [&](const LogFile& file) {
                return std::any_of(files.begin() + static_cast<std::ptrdiff_t>(begin),
                                   files.begin() + static_cast<std::ptrdiff_t>(end),
                                   [&](const LogFile& other) { return other.index == file.index; });
            });
        };
        auto series = std::find_if_not(result.begin(), result.end(), overlaps);
        if (series == result.end()) {
            series = result.emplace(series);
            series->pid = files[begin].pid;
            series->start = files[begin].start;
        }
        for (; begin < end; begin++) {
            series->files.push_back(std::move(files[begin]));
        }
        std::sort(series->files.begin(), series->files.end(), isBefore);
    }
    return result;
}

/// When the box was made of which a file has the records, "YYYY_MMDD_hhmmss"; empty if it is not
/// known.
std::string boxStampOf(const LogFile& file) {
    constexpr size_t kMaxLine = 512;
    std::string stamp;
    if (file.isBlackBox) {
        const std::string bytes = readBegin(file.path, kMaxLine);
        const std::string_view line = std::string_view(bytes).substr(0, bytes.find('\n'));
        const std::optional<Reader::CrashCause> cause = Reader::parseCause(line);
        const std::string_view made = cause && cause->box ? cause->box->made : "";
        for (const char c : made) {
            if (c >= '0' && c <= '9') {
                stamp += stamp.size() == 4 || stamp.size() == 9 ? "_" : "";
                stamp += c;
            }
        }
    }
    return stamp;
}

/// The series of a crash file; nullptr if there is nothing else of it. `boxStamp`: empty if it is
/// not known.
SeriesFiles* findOwner(std::vector<SeriesFiles>& all, const LogFile& crash,
                       const std::string& boxStamp) {
    // A series begins just after its box was made. Its process may be long dead when the file is
    // made of the box, and the number of the process used again.
    constexpr int64_t kMaxBefore = 2 * int64_t{1000000};
    constexpr int64_t kMaxAfter = 60 * int64_t{1000000};
    const std::optional<int64_t> made = parseStart(boxStamp);
    SeriesFiles* owner = nullptr;
    std::pair<std::string, bool> best;
    for (SeriesFiles& series : all) {
        const LogFile& first = series.files.front();
        const std::optional<int64_t> start = parseStart(series.start);
        // Without log files the series has the time of its crash.
        const int64_t maxDelay = first.isCrash && !first.isBlackBox ? INT64_MAX : kMaxAfter;
        const bool fits = made && start ? *start >= *made - kMaxBefore && *start - *made <= maxDelay
                                        : crash.start.empty() || series.start <= crash.start;
        // The newest; of two that lie in two folders the one beside it.
        const std::pair rank(series.start, first.path.parent_path() == crash.path.parent_path());
        if (series.pid == crash.pid && fits && (owner == nullptr || best < rank)) {
            owner = &series;
            best = rank;
        }
    }
    return owner;
}

void plan(SeriesFiles& series) {
    for (uint32_t i = 0; i < series.files.size(); i++) {
        std::error_code error;
        const uint64_t size = fs::file_size(series.files[i].path, error);
        series.sizes.push_back(error ? 0 : size);
        if (error) {
            series.problems.push_back(series.files[i].path.string() + ": " + error.message());
        } else if (size > 0 && !series.files[i].isCrash) {
            series.pieces.push_back({i, 0, size, 1});
        }
    }
    for (uint32_t i = 0; i < series.files.size(); i++) {
        if (series.files[i].isCrash && series.sizes[i] > 0) {
            joinCrashFile(series, i);
        }
    }
}

}  // namespace

uint64_t SeriesFiles::bytes() const {
    return std::accumulate(
            pieces.begin(), pieces.end(), uint64_t{0},
            [](uint64_t sum, const Piece& piece) { return sum + (piece.end - piece.begin); });
}

std::vector<SeriesFiles> findSeries(const std::vector<fs::path>& paths) {
    std::vector<LogFile> files;
    for (const fs::path& path : paths) {
        collect(path, files);
    }
    dropRepeated(files);

    std::map<std::pair<int, std::string>, std::vector<LogFile>> groups;
    std::vector<LogFile> crashes;
    for (LogFile& file : files) {
        if (file.isCrash) {
            crashes.push_back(std::move(file));
        } else {
            std::pair<int, std::string> key(file.pid, file.start);
            groups[std::move(key)].push_back(std::move(file));
        }
    }
    std::vector<SeriesFiles> result;
    for (auto& [key, group] : groups) {
        for (SeriesFiles& series : split(std::move(group))) {
            result.push_back(std::move(series));
        }
    }
    std::sort(crashes.begin(), crashes.end(), [](const LogFile& a, const LogFile& b) {
        // A black box lacks what a crash file has, and not the other way round.
        return std::tie(a.isBlackBox, a.start, a.index, a.path) <
               std::tie(b.isBlackBox, b.start, b.index, b.path);
    });
    for (LogFile& crash : crashes) {
        const std::string boxStamp = boxStampOf(crash);
        SeriesFiles* owner = findOwner(result, crash, boxStamp);
        if (owner == nullptr) {
            owner = &result.emplace_back();
            owner->pid = crash.pid;
            owner->start = boxStamp.empty() ? crash.start : boxStamp;
        }
        owner->files.push_back(std::move(crash));
    }
    std::sort(result.begin(), result.end(), [](const SeriesFiles& a, const SeriesFiles& b) {
        return std::tie(a.start, a.pid) < std::tie(b.start, b.pid);
    });
    for (SeriesFiles& series : result) {
        plan(series);
    }
    return result;
}

}  // namespace JCam::Tool
