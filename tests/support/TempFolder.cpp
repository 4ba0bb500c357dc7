#include "support/TempFolder.h"

#include <unistd.h>

#include <cstdlib>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace JCam::Support {

TempFolder::TempFolder(const std::filesystem::path& parent) {
    std::string pattern = (parent / "jlog_test_XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("mkdtemp " + pattern);
    }
    mPath = pattern;
}

TempFolder::~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
}

std::filesystem::path TempFolder::inMemory() {
    return access("/dev/shm", W_OK) == 0 ? "/dev/shm" : std::filesystem::temp_directory_path();
}

std::string TempFolder::logText() const {
    constexpr std::string_view kContinued = "-- CONTINUED --\n";
    std::string text;
    for (const std::string& name : names()) {
        const std::string content = name.starts_with("cam_jlog_") ? readFile(path(name)) : "";
        text.append(content, content.starts_with(kContinued) ? kContinued.size() : 0);
    }
    return text;
}

std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string readFile(const std::string& path) {
    const std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

void writeFile(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary);
    if (!(file << content)) {
        throw std::runtime_error("cannot write " + path);
    }
}

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

}  // namespace JCam::Support
