#include "SharedMapping.h"

#include <sys/mman.h>

#include <cerrno>
#include <system_error>

namespace CameraHost {

SharedMapping::SharedMapping(size_t bytes)
        : mBytes(bytes),
          mMemory(mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
    if (mMemory == MAP_FAILED) {
        throw std::system_error(errno, std::generic_category(), "shared memory");
    }
}

SharedMapping::~SharedMapping() {
    munmap(mMemory, mBytes);
}

}  // namespace CameraHost
