#include "Crash.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <thread>

#include <fmt/core.h>

#include "ExitStatus.h"

namespace CameraHost {

namespace {

using Clock = std::chrono::steady_clock;

/// A store to `address`. No compiler may find out that it is wrong.
void touch(void* address) {
    *static_cast<volatile int*>(address) = 1;
}

/// Waits for the library's flush thread and returns its thread id.
pid_t findFlushThread() {
    constexpr char kName[] = "FileAloneJLogge";  // the kernel keeps 15 characters
    for (;;) {
        for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
            std::string name;
            std::getline(std::ifstream(task.path() / "comm"), name);
            if (name == kName) {
                return std::stoi(task.path().filename().string());
            }
        }
    }
}

/// Starts a thread that is most of the time in the allocator, and returns its thread id.
pid_t startAllocator() {
    static std::atomic<pid_t> tid{0};
    std::thread([] {
        // Sizes beyond what the allocator keeps per thread, so that it works on a shared heap.
        constexpr std::array<size_t, 4> kSizes{2000, 30000, 5000, 100000};
        for (size_t round = 0;; round++) {
            void* volatile block = malloc(kSizes[round % kSizes.size()]);
            void* volatile other = malloc(kSizes[(round + 1) % kSizes.size()]);
            free(block);
            free(other);
            if (round == 1000) {
                tid = gettid();
            }
        }
    }).detach();
    while (tid == 0) {
        std::this_thread::yield();
    }
    return tid;
}

}  // namespace

void fault(int sig) {
    if (sig == SIGKILL) {
        kill(getpid(), sig);
    }
    if (sig == SIGABRT) {
        abort();
    }
    void* address = reinterpret_cast<void*>(0x10);  // NOLINT(performance-no-int-to-ptr)
    if (sig == SIGBUS) {
        // The page of a file that ends before it.
        const int file = memfd_create("empty", 0);
        address = mmap(nullptr, 1, PROT_WRITE, MAP_SHARED, file, 0);
    }
    touch(address);
}

pid_t findThread(CrashPlace place, pid_t loggingTid) {
    return place == CrashPlace::LOGGING        ? loggingTid
           : place == CrashPlace::MALLOC       ? startAllocator()
           : place == CrashPlace::FLUSH_THREAD ? findFlushThread()
                                               : gettid();
}

void crash(int sig, CrashPlace place, pid_t loggingTid, const LedgerBook& ledgers) {
    const pid_t target = findThread(place, loggingTid);
    ledgers.mark();
    if (place == CrashPlace::HOST) {
        fault(sig);
    } else {
        syscall(SYS_tgkill, getpid(), target, sig);
    }
    for (;;) {
        pause();
    }
}

ChildEnd runInChild(const std::function<int()>& body, std::chrono::microseconds bound) {
    static_cast<void>(std::fflush(nullptr));  // lest both processes print it
    const pid_t pid = fork();
    if (pid < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (pid == 0) {
        const rlimit noCore = {};
        setrlimit(RLIMIT_CORE, &noCore);
        int status = EXIT_FAULT;
        try {
            status = body();
        } catch (const std::exception& error) {
            fmt::print(stderr, "camera_host: {}\n", error.what());
        }
        static_cast<void>(std::fflush(nullptr));
        _exit(status);
    }
    ChildEnd end = {};
    end.pid = pid;
    int status = 0;
    const Clock::time_point deadline = Clock::now() + bound;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (Clock::now() > deadline) {
            end.hung = true;
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    end.endedNs = std::chrono::nanoseconds(Clock::now().time_since_epoch()).count();
    end.sig = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    end.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
    return end;
}

std::string_view signalName(int sig) {
    switch (sig) {
        case SIGABRT:
            return "SIGABRT";
        case SIGSEGV:
            return "SIGSEGV";
        case SIGBUS:
            return "SIGBUS";
        case SIGKILL:
            return "SIGKILL";
        case SIGILL:
            return "SIGILL";
        case SIGFPE:
            return "SIGFPE";
        case SIGSYS:
            return "SIGSYS";
        case SIGTERM:
            return "SIGTERM";
        default:
            return "another signal";
    }
}

std::string_view placeName(CrashPlace place) {
    constexpr std::array<std::string_view, kCrashPlaces> kNames{
            "a thread that does not log", "a logging thread", "a thread in malloc",
            "the flush thread"};
    return kNames[static_cast<size_t>(place)];
}

std::string describeEnd(const ChildEnd& end) {
    if (end.hung) {
        return "hung, and was killed";
    }
    return end.sig != 0 ? fmt::format("killed by {} ({})", signalName(end.sig), strsignal(end.sig))
                        : fmt::format("exited with status {}", end.exitStatus);
}

}  // namespace CameraHost
