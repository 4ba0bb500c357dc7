#pragma once

#include <cstdint>

namespace JCam::Utils::JLog::File {

/// A file, whatever its name.
struct FileIdentity {
    /// Of the file system.
    uint64_t device{0};
    /// 0 stands for no file.
    uint64_t inode{0};
};

}  // namespace JCam::Utils::JLog::File
