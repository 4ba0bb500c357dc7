// isSameFolder() also runs after a fatal signal, by the rules of CrashHandler.cpp.

#include "jlog/file/LogFolder.h"

#include <sys/stat.h>

#include <cerrno>

#include <android/log.h>
#include <cutils/properties.h>

#include "jlog/file/FileLogTag.h"

namespace JCam::Utils::JLog::File {

namespace {

// The vendor's ULog logger writes to the same folder.
constexpr char kFolderProperty[] = "vendor.debug.camera.ulog.folder";
constexpr char kDefaultFolder[] = "/data/vendor/cam_ulog";
constexpr mode_t kFolderMode = 0771;

static_assert(kFolderPathBytes >= PROPERTY_VALUE_MAX);

}  // namespace

void makeLogFolder(const char* path) {
    if (mkdir(path, kFolderMode) != 0 && errno != EEXIST) {
        __android_log_print(ANDROID_LOG_INFO, kFileLogTag, "mkdir(%s) failed, errno = %d", path,
                            errno);
    }
}

void prepareLogFolder(char* path) {
    property_get(kFolderProperty, path, kDefaultFolder);
    makeLogFolder(path);
}

bool isSameFolder(const char* a, const char* b) {
    struct stat statusA = {};
    struct stat statusB = {};
    return stat(a, &statusA) == 0 && stat(b, &statusB) == 0 && statusA.st_dev == statusB.st_dev &&
           statusA.st_ino == statusB.st_ino;
}

}  // namespace JCam::Utils::JLog::File
