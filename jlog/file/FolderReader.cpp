#include "jlog/file/FolderReader.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

namespace JCam::Utils::JLog::File {

namespace {

// struct linux_dirent64 of getdents64(2), which has no libc header: two 64-bit words, the length of
// the entry, its type, and the name.
constexpr size_t kEntryLengthOffset = 16;
constexpr size_t kNameOffset = 19;

}  // namespace

FolderReader::FolderReader(const char* path)
        : mFd(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}

FolderReader::~FolderReader() {
    if (mFd >= 0) {
        close(mFd);
    }
}

const char* FolderReader::next() {
    if (mPosition == mFilled) {
        const long filled = syscall(SYS_getdents64, mFd, mEntries, sizeof(mEntries));
        if (filled <= 0) {
            return nullptr;
        }
        mFilled = static_cast<size_t>(filled);
        mPosition = 0;
    }
    const char* entry = mEntries + mPosition;
    uint16_t length = 0;
    memcpy(&length, entry + kEntryLengthOffset, sizeof(length));
    mPosition += length;
    return entry + kNameOffset;
}

}  // namespace JCam::Utils::JLog::File
