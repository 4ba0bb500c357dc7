#include "LogFiles.h"

#include <algorithm>
#include <deque>
#include <fstream>
#include <stdexcept>
#include <utility>

#include <fmt/format.h>

namespace CameraHost {

namespace fs = std::filesystem;

namespace {

std::vector<fs::path> listFolder(const fs::path& folder) {
    std::vector<fs::path> paths;
    std::error_code error;
    for (fs::directory_iterator i(folder, error), end; !error && i != end; i.increment(error)) {
        paths.push_back(i->path());
    }
    return paths;
}

/// Names of one series differ in the index at their end only, which has two digits or more: the
/// shorter name is the earlier file. Those of crash files are longer.
bool isEarlier(const LogFile& a, const LogFile& b) {
    const std::string nameA = a.path.filename().string();
    const std::string nameB = b.path.filename().string();
    return std::pair(nameA.size(), nameA) < std::pair(nameB.size(), nameB);
}

}  // namespace

std::vector<LogFile> findLogFiles(const fs::path& folder, pid_t pid) {
    const std::string prefix = fmt::format("cam_jlog_{}_", pid);
    std::vector<LogFile> files;
    for (fs::path& path : listFolder(folder)) {
        const std::string name = path.filename().string();
        if (name.starts_with(prefix) && name.ends_with(".txt")) {
            const uint64_t bytes = fs::file_size(path);
            files.push_back({std::move(path), bytes});
        }
    }
    std::sort(files.begin(), files.end(), isEarlier);
    return files;
}

FolderSnapshot::FolderSnapshot(fs::path folder) : mFolder(std::move(folder)) {
    for (fs::path& path : listFolder(mFolder)) {
        mBefore.insert(std::move(path));
    }
}

std::vector<LogFile> FolderSnapshot::newFiles(pid_t pid) const {
    std::vector<LogFile> files = findLogFiles(mFolder, pid);
    std::erase_if(files, [this](const LogFile& file) { return mBefore.contains(file.path); });
    return files;
}

void forEachLine(const std::vector<LogFile>& files,
                 const std::function<void(const FileLine&)>& visit) {
    std::string text;
    for (const LogFile& file : files) {
        std::ifstream in(file.path, std::ios::binary);
        if (!in) {
            throw std::runtime_error(fmt::format("cannot open {}", file.path.string()));
        }
        for (uint64_t number = 1; std::getline(in, text); number++) {
            visit({file, number, text, !in.eof()});
        }
    }
}

std::vector<std::string> firstLines(const LogFile& file, size_t count) {
    std::ifstream in(file.path, std::ios::binary);
    std::vector<std::string> lines;
    std::string text;
    while (lines.size() < count && std::getline(in, text)) {
        lines.push_back(text);
    }
    return lines;
}

std::vector<std::string> lastLines(const LogFile& file, size_t count) {
    // More than any `count` lines of this program take; a whole file may be 180 MiB.
    constexpr std::streamoff kTailBytes = 65536;
    std::ifstream in(file.path, std::ios::binary);
    std::string text;
    if (static_cast<std::streamoff>(file.bytes) > kTailBytes) {
        in.seekg(-kTailBytes, std::ios::end);
        std::getline(in, text);  // most likely the middle of a line
    }
    std::deque<std::string> lines;
    while (std::getline(in, text)) {
        lines.push_back(text);
        if (lines.size() > count) {
            lines.pop_front();
        }
    }
    return {lines.begin(), lines.end()};
}

}  // namespace CameraHost
