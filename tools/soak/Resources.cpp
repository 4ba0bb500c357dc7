#include "Resources.h"

#include <malloc.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace JCam::Soak {

namespace {

namespace fs = std::filesystem;

size_t countEntries(const fs::path& folder) {
    return static_cast<size_t>(std::distance(fs::directory_iterator(folder), {}));
}

uint64_t readResidentKib() {
    std::ifstream in("/proc/self/status");
    std::string word;
    uint64_t kib = 0;
    while (in >> word && word != "VmRSS:") {
    }
    in >> kib;
    return kib;
}

}  // namespace

Resources Resources::read() {
    malloc_trim(0);
    const struct mallinfo2 heap = mallinfo2();
    return {countEntries("/proc/self/fd"), countEntries("/proc/self/task"), readResidentKib(),
            heap.uordblks + heap.hblkhd};
}

}  // namespace JCam::Soak
