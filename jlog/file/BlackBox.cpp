// markDumped() also runs after a fatal signal, by the rules of CrashHandler.cpp.

#include "jlog/file/BlackBox.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include <android/log.h>
#include <cutils/properties.h>

#include "jlog/file/FileLogTag.h"
#include "jlog/file/LogFolder.h"
#include "jlog/file/SignalSafeFormat.h"

namespace JCam::Utils::JLog::File {

namespace {

constexpr mode_t kFolderMode = 0700;
constexpr mode_t kFileMode = 0600;
constexpr char kNameFormat[] = "cam_jlog_%d_%02u.box";

int64_t now(clockid_t clock) {
    timespec time = {};
    clock_gettime(clock, &time);
    return time.tv_sec;
}

/// When this process began, in seconds since the epoch; now if the kernel does not tell.
int64_t processStart() {
    // Field 22 of the line, in ticks since boot; the second, in brackets, may hold anything.
    constexpr int kFieldsBehindName = 20;
    char line[1024];
    const int fd = ::open("/proc/self/stat", O_RDONLY | O_CLOEXEC);
    const ssize_t count = fd >= 0 ? read(fd, line, sizeof(line) - 1) : -1;
    if (fd >= 0) {
        close(fd);
    }
    line[count > 0 ? count : 0] = '\0';
    const char* field = strrchr(line, ')');
    for (int i = 0; field != nullptr && i < kFieldsBehindName; ++i) {
        field = strchr(field + 1, ' ');
    }
    const long ticksPerSecond = sysconf(_SC_CLK_TCK);
    if (field == nullptr || ticksPerSecond <= 0) {
        return now(CLOCK_REALTIME);
    }
    const int64_t start = now(CLOCK_REALTIME) - now(CLOCK_BOOTTIME) +
                          strtoll(field, nullptr, 10) / ticksPerSecond;
    return std::max<int64_t>(start, 0);
}

}  // namespace

constinit JLogMutex BlackBox::sMutex;
uint32_t BlackBox::sIndex{0};
std::atomic<BlackBox*> BlackBox::sBox{nullptr};

bool lockBox(int fd) {
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return fcntl(fd, F_SETLK, &lock) == 0;
}

bool boxFolder(char* path) {
    property_get("vendor.debug.camera.jlog.blackbox", path, "");
    return path[0] != '\0';
}

std::unique_ptr<BlackBox> BlackBox::make(clockid_t clock) {
    char folder[kFolderPathBytes];
    if (!boxFolder(folder)) {
        return nullptr;
    }
    std::unique_ptr<BlackBox> box(new (std::nothrow) BlackBox);
    const char* failed = box != nullptr ? box->open(folder) : "memory";
    if (failed != nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kFileLogTag, "No black box in %s: %s (%s)", folder,
                            failed, strerror(errno));
        return nullptr;
    }
    box->fillHead(clock);
    __android_log_print(ANDROID_LOG_INFO, kFileLogTag, "Black box %s", box->mPath.c_str());
    return box;
}

bool BlackBox::isOwnNameLocked(std::string_view name) {
    PathText own;
    formatPath(own, kNameFormat, getpid(), sIndex);
    return sIndex != 0 && own == name;
}

int BlackBox::openLeft(const PathText& path, const char*& problem) {
    const JLogLock lock(sMutex);
    // The own one is not even opened: to close it would end its lock.
    if (isOwnNameLocked(path.view().substr(path.view().rfind('/') + 1))) {
        return -1;
    }
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0) {
        problem = errno != ENOENT ? strerror(errno) : nullptr;  // recovered by another process
        return -1;
    }
    if (!S_ISREG(status.st_mode) || status.st_uid != geteuid() || status.st_nlink != 1) {
        problem = "not a file of this user alone";
        return -1;
    }
    const int fd = ::open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        problem = strerror(errno);
        return -1;
    }
    const bool isLocked = lockBox(fd);
    // In use; otherwise there can be no lock.
    problem = !isLocked && errno != EAGAIN ? strerror(errno) : nullptr;
    if (isLocked && fstat(fd, &status) == 0 && status.st_nlink > 0) {
        return fd;  // and no other process has recovered it meanwhile
    }
    close(fd);
    return -1;
}

BlackBox::~BlackBox() {
    if (mMemory != nullptr) {
        sBox.store(nullptr, std::memory_order_seq_cst);
        munmap(mMemory, kBoxBytes);
    }
    const JLogLock lock(sMutex);
    if (mFd >= 0) {
        // First of all the name: without the lock the box would be taken for that of a dead
        // process.
        unlink(mPath.c_str());
        close(mFd);
    }
    if (mIsClaimed) {
        sIndex = 0;
    }
}

const char* BlackBox::open(const char* folder) {
    static const int atForkError = pthread_atfork(nullptr, nullptr, leaveToParent);
    errno = atForkError;
    if (atForkError != 0) {
        return "pthread_atfork failed";
    }
    char logFolder[kFolderPathBytes] = {};
    prepareLogFolder(logFolder);
    if (mkdir(folder, kFolderMode) != 0 && errno != EEXIST) {
        return "mkdir failed";
    }
    if (isSameFolder(folder, logFolder)) {
        errno = EINVAL;
        return "it is the log folder, where the clean-up deletes files";
    }
    if (const char* failed = createFile(folder)) {
        return failed;
    }
    // Beyond the limit, fallocate would end the process by SIGXFSZ.
    rlimit limit = {};
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur < kBoxBytes) {
        errno = EFBIG;
        return "the process may make no such file";
    }
    // The size, and the space for it.
    while (fallocate(mFd, 0, 0, static_cast<off_t>(kBoxBytes)) != 0) {
        if (errno != EINTR) {
            return "fallocate failed";
        }
    }
    void* memory = mmap(nullptr, kBoxBytes, PROT_READ | PROT_WRITE, MAP_SHARED, mFd, 0);
    if (memory == MAP_FAILED) {
        return "mmap failed";
    }
    mMemory = static_cast<char*>(memory);
    // A child that libc does not know of has no handler. Rather shall it end when it logs than
    // write over the records of its parent.
    if (madvise(mMemory, kBoxBytes, MADV_DONTFORK) != 0) {
        return "madvise failed";
    }
    sBox.store(this, std::memory_order_seq_cst);
    return nullptr;
}

const char* BlackBox::createFile(const char* folder) {
    constexpr uint32_t kMaxIndex = 99;
    const JLogLock lock(sMutex);
    if (sIndex != 0) {
        errno = EBUSY;
        return "another logger of this process has one";
    }
    mIsClaimed = true;
    for (uint32_t index = 1; index <= kMaxIndex; ++index) {
        sIndex = index;
        PathText name;
        formatPath(name, kNameFormat, getpid(), index);
        formatPath(mPath, "%s/%s", folder, name.c_str());
        mFd = ::open(mPath.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kFileMode);
        if (mFd < 0 && errno != EEXIST) {
            return "open failed";
        }
        if (mFd < 0) {
            continue;
        }
        const bool isLocked = lockBox(mFd);
        if (!isLocked && errno != EAGAIN) {
            return "lock failed";
        }
        struct stat status = {};
        if (isLocked && fstat(mFd, &status) == 0 && status.st_nlink > 0) {
            return nullptr;
        }
        // Another process has found the file before it was locked, and deletes it.
        close(mFd);
        mFd = -1;
    }
    return "no free name";
}

void BlackBox::fillHead(clockid_t clock) {
    BoxHead& head = *::new (mMemory) BoxHead{};
    head.version = kBoxVersion;
    head.headBytes = kBoxHeadBytes;
    head.slotBytes = kBufferBytes;
    head.slotCount = kBoxSlots;
    head.recordLayout = kBoxRecordLayout;
    head.clock = clock;
    head.pid = getpid();
    head.processStart = processStart();
    head.boxStart = now(CLOCK_REALTIME);
    head.address = reinterpret_cast<uint64_t>(mMemory);
    head.magic.store(kBoxMagic, std::memory_order_release);
}

void BlackBox::leaveToParent() {
    BlackBox* box = sBox.load(std::memory_order_seq_cst);
    if (box == nullptr) {
        return;
    }
    if (mmap(box->mMemory, kBoxBytes, PROT_READ | PROT_WRITE,
             MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) == MAP_FAILED) {
        munmap(box->mMemory, kBoxBytes);  // rather a child that ends than a parent without records
    }
    close(box->mFd);
    box->mFd = -1;
}

char* BlackBox::takeBlock() {
    uint32_t free = mFree.load(std::memory_order_relaxed);
    while (free != 0) {
        const auto index = static_cast<size_t>(std::countr_zero(free));
        const uint32_t bit = 1U << index;
        if (mFree.compare_exchange_weak(free, free & ~bit, std::memory_order_acquire,
                                        std::memory_order_relaxed)) {
            char* block = mMemory + kBoxHeadBytes + index * kBufferBytes;
            if ((mUsed.fetch_and(~bit, std::memory_order_relaxed) & bit) != 0) {
                memset(block, 0, kBufferBytes);
            }
            return block;
        }
    }
    return nullptr;
}

size_t BlackBox::indexOf(const char* block) const {
    const auto begin = reinterpret_cast<uintptr_t>(mMemory) + kBoxHeadBytes;
    const auto place = reinterpret_cast<uintptr_t>(block);
    return place < begin ? kBoxSlots : std::min((place - begin) / kBufferBytes, kBoxSlots);
}

bool BlackBox::giveBlock(const char* block) {
    const size_t index = indexOf(block);
    if (index < kBoxSlots) {
        mUsed.fetch_or(1U << index, std::memory_order_relaxed);
        mFree.fetch_or(1U << index, std::memory_order_release);
    }
    return index < kBoxSlots;
}

BoxSlot* BlackBox::slotOf(const char* block) const {
    const size_t index = indexOf(block);
    return index < kBoxSlots ? &head().slots[index] : nullptr;
}

void BlackBox::markOpened(BoxSlot* slot) {
    ++mOpened;
    // The release of the opening keeps this in front of the first record.
    if (slot != nullptr) {
        slot->sequence.store(mOpened, std::memory_order_relaxed);
    } else {
        head().outside.fetch_add(1, std::memory_order_relaxed);
    }
}

void BlackBox::markEmptied(BoxSlot* slot) {
    if (slot != nullptr) {
        slot->sequence.store(0, std::memory_order_relaxed);
        // Before the block is cleared: half a block must not be taken for records.
        std::atomic_signal_fence(std::memory_order_seq_cst);
    } else {
        head().outside.fetch_sub(1, std::memory_order_relaxed);
    }
}

void BlackBox::markDumped(const BoxSlot* slot, uint32_t complete) {
    for (BoxSlot& each : head().slots) {
        if (&each == slot) {
            each.dumpedRecords.store(complete, std::memory_order_relaxed);
            each.dumpedSequence.store(each.sequence.load(std::memory_order_relaxed),
                                      std::memory_order_release);
        }
    }
}

size_t BlackBox::blocksInUse() const {
    // std::popcount() is a call into libgcc, which the library otherwise does without.
    size_t blocks = kBoxSlots;
    for (uint32_t free = mFree.load(std::memory_order_relaxed); free != 0; free &= free - 1) {
        --blocks;
    }
    return blocks;
}

const char* BlackBox::damage() const {
    struct stat status = {};
    if (mFd < 0 || fstat(mFd, &status) != 0) {
        return nullptr;
    }
    return status.st_nlink == 0                             ? "was deleted"
           : status.st_size < static_cast<off_t>(kBoxBytes) ? "was made shorter"
                                                            : nullptr;
}

}  // namespace JCam::Utils::JLog::File
