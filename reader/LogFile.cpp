#include "reader/LogFile.h"

#include <algorithm>
#include <string_view>
#include <system_error>
#include <tuple>
#include <utility>

#include "reader/Text.h"

namespace JCam::Reader {

namespace fs = std::filesystem;

std::optional<LogFile> parseName(const fs::path& path) {
    constexpr std::string_view kStartShape = "0000_0000_000000";
    const std::string name = path.filename().string();
    std::string_view rest = name;
    LogFile file;
    if (!take(rest, "cam_jlog_") || !takeNumber(rest, file.pid) || !take(rest, "_")) {
        return std::nullopt;
    }
    // The stamp is the last thing in front of the number.
    const size_t number = rest.rfind('_');
    if (number == std::string_view::npos || number < kStartShape.size()) {
        return std::nullopt;
    }
    const size_t start = number - kStartShape.size();
    file.start = rest.substr(start, kStartShape.size());
    file.isCrash = start > 0;
    file.isBlackBox = rest.substr(0, start) == "BB_";
    const bool isPrefixed = start == 0 || rest[start - 1] == '_';
    rest.remove_prefix(number + 1);
    if (!isPrefixed || !hasShape(file.start, kStartShape) || !takeNumber(rest, file.index) ||
        rest != ".txt") {
        return std::nullopt;
    }
    file.path = path;
    return file;
}

std::vector<LogFile> listLogFiles(const fs::path& folder, int pid) {
    std::vector<LogFile> files;
    std::error_code error;
    for (fs::directory_iterator i(folder, error), end; !error && i != end; i.increment(error)) {
        std::optional<LogFile> file = parseName(i->path());
        if (file && (pid == 0 || file->pid == pid)) {
            files.push_back(*std::move(file));
        }
    }
    std::sort(files.begin(), files.end(), [](const LogFile& a, const LogFile& b) {
        return std::tie(a.pid, a.isCrash, a.start, a.isBlackBox, a.index) <
               std::tie(b.pid, b.isCrash, b.start, b.isBlackBox, b.index);
    });
    return files;
}

}  // namespace JCam::Reader
