#include "support/Interpose.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <mutex>
#include <new>

#include "jlog/file/Buffer.h"

namespace JCam::Support::Interpose {

namespace {

// Orders and counters, each complete in itself. Sequentially consistent: nothing here has to be
// fast.
std::atomic<int64_t> sFreeBytes{-1};
std::atomic<bool> sRefuseThreads{false};
std::atomic<bool> sRefuseBuffers{false};
std::atomic<int> sSyncs{0};

std::mutex sMutex;  // guards what follows
std::string sFrom;
std::string sTo;
std::string sUndeletable;
std::vector<int> sNiceValues;

/// The function that `name` would be without this binary.
template <typename Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

std::string redirected(const char* path) {
    const std::lock_guard<std::mutex> lock(sMutex);
    std::string original(path);
    if (sFrom.empty() || !original.starts_with(sFrom)) {
        return original;
    }
    return sTo + original.substr(sFrom.size());
}

}  // namespace

Scope::~Scope() {
    setFreeBytes(-1);
    refuseThreads(false);
    refuseBuffers(false);
    sSyncs = 0;
    const std::lock_guard<std::mutex> lock(sMutex);
    sFrom.clear();
    sUndeletable.clear();
    sNiceValues.clear();
}

void setFreeBytes(int64_t bytes) {
    sFreeBytes = bytes;
}
void refuseThreads(bool refuse) {
    sRefuseThreads = refuse;
}
void refuseBuffers(bool refuse) {
    sRefuseBuffers = refuse;
}
int syncs() {
    return sSyncs;
}

void redirect(const std::string& from, const std::string& to) {
    const std::lock_guard<std::mutex> lock(sMutex);
    sFrom = from;
    sTo = to;
}

void refuseUnlink(const std::string& path) {
    const std::lock_guard<std::mutex> lock(sMutex);
    sUndeletable = path;
}

std::vector<int> niceValues() {
    const std::lock_guard<std::mutex> lock(sMutex);
    return sNiceValues;
}

}  // namespace JCam::Support::Interpose

using namespace JCam::Support::Interpose;

// Visible to the library, which is another shared object.
#pragma GCC visibility push(default)

extern "C" {

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return next<int(const char*, int, ...)>("open")(redirected(path).c_str(), flags, mode);
}

DIR* opendir(const char* path) {
    return next<DIR*(const char*)>("opendir")(redirected(path).c_str());
}

int stat(const char* path, struct stat* status) noexcept {
    return next<int(const char*, struct stat*)>("stat")(redirected(path).c_str(), status);
}

int unlink(const char* path) noexcept {
    {
        const std::lock_guard<std::mutex> lock(sMutex);
        if (path == sUndeletable) {
            errno = EPERM;
            return -1;
        }
    }
    return next<int(const char*)>("unlink")(redirected(path).c_str());
}

int statvfs(const char* path, struct statvfs* storage) noexcept {
    if (sFreeBytes < 0) {
        return next<int(const char*, struct statvfs*)>("statvfs")(redirected(path).c_str(),
                                                                  storage);
    }
    *storage = {};
    storage->f_blocks = 1;
    storage->f_bsize = 1;
    storage->f_bfree = static_cast<fsblkcnt_t>(sFreeBytes.load());
    return 0;
}

int fsync(int fd) {
    ++sSyncs;
    return next<int(int)>("fsync")(fd);
}

int setpriority(__priority_which_t which, id_t who, int value) noexcept {
    {
        const std::lock_guard<std::mutex> lock(sMutex);
        sNiceValues.push_back(value);
    }
    return next<int(__priority_which_t, id_t, int)>("setpriority")(which, who, value);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                   void* argument) noexcept {
    if (sRefuseThreads) {
        return EAGAIN;
    }
    return next<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create")(
            thread, attributes, entry, argument);
}

}  // extern "C"

#pragma GCC visibility pop

void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return size >= JCam::Utils::JLog::File::kBufferBytes && sRefuseBuffers ? nullptr : malloc(size);
}

void* operator new(size_t size) {
    void* block = malloc(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void operator delete(void* block) noexcept {
    free(block);
}

void operator delete(void* block, size_t /*size*/) noexcept {
    free(block);
}
