#include "HandWritten.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "Files.h"

namespace JCam::Bench {

nlohmann::json measureHandWritten(const Workload& work, unsigned int lines) {
    const std::string path = (work.folder / "handwritten.txt").string();
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) {
        throw std::runtime_error("cannot create " + path);
    }
    const HandWrittenLines source(work);
    const auto begin = std::chrono::steady_clock::now();
    char block[24576];
    char* out = block;
    for (unsigned int i = 0; i < lines; ++i) {
        out = source.putLine(out, i);
        if (static_cast<size_t>(block + sizeof(block) - out) < HandWrittenLines::kLongestLine ||
            i + 1 == lines) {
            const auto bytes = static_cast<size_t>(out - block);
            if (::write(fd, block, bytes) != static_cast<ssize_t>(bytes)) {
                ::close(fd);
                throw std::runtime_error("cannot write " + path);
            }
            out = block;
        }
    }
    ::close(fd);
    const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - begin;
    const FileCount found = countLines(work.folder);
    return {{"lines", lines},
            {"lines_lost", static_cast<int64_t>(lines) - static_cast<int64_t>(found.lines)},
            {"bytes", found.bytes},
            {"seconds", spent.count()},
            {"lines_per_s", lines / spent.count()}};
}

}  // namespace JCam::Bench
