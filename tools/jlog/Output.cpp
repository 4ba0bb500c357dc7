#include "tools/jlog/Output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace JCam::Tool {

namespace {

constexpr size_t kBufferBytes = size_t{256} * 1024;

}  // namespace

Output::Output() : mFd(STDOUT_FILENO), mIsTerminal(isatty(mFd) == 1), mName("standard output") {
    mBuffer.reserve(kBufferBytes);
}

Output::Output(const std::filesystem::path& path)
        : mFd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)),
          mName(path.string()) {
    if (mFd < 0) {
        throw std::system_error(errno, std::generic_category(), mName);
    }
    mBuffer.reserve(kBufferBytes);
}

Output::~Output() {
    try {
        close();
    } catch (const std::system_error&) {  // NOLINT(bugprone-empty-catch): see close()
    }
}

void Output::flush() {
    writeAll(mBuffer);
    mBuffer.clear();
}

void Output::close() {
    if (mFd < 0) {
        return;
    }
    flush();
    const int fd = std::exchange(mFd, -1);
    if (fd != STDOUT_FILENO && ::close(fd) != 0) {
        throw std::system_error(errno, std::generic_category(), mName);
    }
}

void Output::writeAll(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(mFd, bytes.data(), bytes.size());
        if (written >= 0) {
            mWritten += static_cast<size_t>(written);
            bytes.remove_prefix(static_cast<size_t>(written));
        } else if (errno != EINTR) {
            const int error = errno;
            mBuffer.clear();
            throw std::system_error(error, std::generic_category(), mName);
        }
    }
}

}  // namespace JCam::Tool
