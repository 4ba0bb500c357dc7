#include "Files.h"

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

namespace JCam::Bench {

namespace fs = std::filesystem;

FileCount countLines(const fs::path& folder) {
    FileCount count;
    std::vector<char> block(1 << 20);
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        if (!entry.is_regular_file() || entry.is_symlink()) {
            continue;
        }
        ++count.files;
        std::ifstream file(entry.path(), std::ios::binary);
        while (file) {
            file.read(block.data(), static_cast<std::streamsize>(block.size()));
            const std::streamsize got = file.gcount();
            count.bytes += static_cast<uint64_t>(got);
            count.lines +=
                    static_cast<uint64_t>(std::count(block.begin(), block.begin() + got, '\n'));
        }
    }
    return count;
}

namespace {

fs::path chooseParent() {
    const fs::path memory = "/dev/shm";
    return access(memory.c_str(), W_OK) == 0 ? memory : fs::temp_directory_path();
}

}  // namespace

ScratchFolder::ScratchFolder(const fs::path& parent)
        : mPath((parent.empty() ? chooseParent() : parent) /
                ("jlog_loadbench." + std::to_string(getpid()))) {
    fs::remove_all(mPath);
    fs::create_directories(mPath);
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(mPath, ignored);
}

}  // namespace JCam::Bench
