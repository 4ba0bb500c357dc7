#include "reader/MappedFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>

namespace JCam::Reader {

MappedFile::MappedFile(const std::filesystem::path& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status = {};
    if (fd >= 0 && fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
        const auto size = static_cast<size_t>(status.st_size);
        mIsOpen = size == 0;  // which cannot be mapped
        void* const memory =
                mIsOpen ? MAP_FAILED : mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
        if (memory != MAP_FAILED) {
            madvise(memory, size, MADV_SEQUENTIAL);
            mBytes = {static_cast<const char*>(memory), size};
            mIsOpen = true;
        }
    }
    if (fd >= 0) {
        close(fd);
    }
}

MappedFile::~MappedFile() {
    if (!mBytes.empty()) {
        munmap(const_cast<char*>(mBytes.data()), mBytes.size());
    }
}

}  // namespace JCam::Reader
