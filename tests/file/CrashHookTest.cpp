// The crash hook, in children that die for real.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csetjmp>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <regex>
#include <thread>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <android/log.h>

#include "jlog/file/FileAloneJLogger.h"
#include "support/Await.h"
#include "support/ChildProcess.h"
#include "support/Faults.h"
#include "support/Interpose.h"
#include "support/LogCapture.h"
#include "support/Properties.h"
#include "support/TempFolder.h"

namespace JCam::Utils::JLog::File {
namespace {

namespace Faults = Support::Faults;
using Faults::Call;
using Support::await;
using Support::Ending;
using Support::runChild;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::SizeIs;

constexpr char kFolderProperty[] = "vendor.debug.camera.ulog.folder";
constexpr char kHookProperty[] = "vendor.debug.camera.jlog.hookne";
constexpr int kSignals[] = {SIGABRT, SIGSEGV, SIGBUS};

/// What both loggers of this file open up to tests.
template <typename Base>
class Open : public Base {
  public:
    using Base::initHook;
    using Base::mCrashWriter;
    using Base::mNeHook;
    using Base::mNewActions;
    using Base::mOldActions;
    using Base::recycleFront;
    using Base::registerSigAction;
    using Base::sActiveLogger;
    using Base::sigHandler;
    using Base::uninitHook;

    void log(const std::string& text) {
        this->onLogDetails(1, "Test", LEVEL_INFO, text.c_str(), text.size());
    }
    /// Fills the rest of the current buffer, so that the next record retires it.
    void fillBuffer() {
        LogHeader* header = nullptr;
        Buffer* buffer = nullptr;
        if (this->allocLogSpace(current().freeBytes, &header, &buffer, nullptr)) {
            this->publish(header, buffer, RECORD_INCOMPLETE);
        }
    }
    /// Reserves a record that is never completed.
    LogHeader* reserve(size_t bytes) {
        LogHeader* header = nullptr;
        Buffer* buffer = nullptr;
        return this->allocLogSpace(bytes, &header, &buffer, nullptr) ? header : nullptr;
    }
    Buffer& current() {
        const JLogLock lock(this->mMutex);
        return *this->mCurrent.get();
    }
    Buffer& oldest() {
        const JLogLock lock(this->mMutex);
        return *this->mFullBuffers.front();
    }
    void lock() JLOG_NO_THREAD_SAFETY_ANALYSIS { this->mMutex.lock(); }
};

using BufferingLogger = Open<FileJLoggerBase>;  // without a consumer
using RunningLogger = Open<FileAloneJLogger>;

/// Causes a fault at `address`. No sanitizer looks at it first.
__attribute__((no_sanitize("address", "thread", "undefined"))) void touch(uintptr_t address) {
    const volatile uintptr_t place = address;                // which the compiler cannot know
    *reinterpret_cast<volatile int*>(uintptr_t{place}) = 1;  // NOLINT(performance-no-int-to-ptr)
}

void installAction(int sig, void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    sigaction(sig, &action, nullptr);
}

void installAction(int sig, void (*handler)(int, siginfo_t*, void*)) {
    struct sigaction action = {};
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO;
    sigaction(sig, &action, nullptr);
}

struct sigaction actionOf(int sig) {
    struct sigaction action = {};
    sigaction(sig, nullptr, &action);
    return action;
}

/// What a previous action has seen, in the child.
std::atomic<int> sSeenSignal{0};
std::atomic<int> sSeenValue{0};

void keepSignal(int sig) {
    sSeenSignal = sig;
}
void keepInfo(int sig, siginfo_t* info, void* context) {
    sSeenSignal = info->si_signo == sig && context != nullptr ? sig : -1;
    sSeenValue = info->si_value.sival_int;
}

/// Ends a child that finds a condition broken.
void require(bool condition, int exitStatus) {
    if (!condition) {
        _exit(exitStatus);
    }
}

class CrashHookTest : public ::testing::Test {
  protected:
    CrashHookTest() {
        mProperties.set(kFolderProperty, mFolder.path());
        // Records stay in memory until somebody asks for them.
        mProperties.set("vendor.debug.camera.jlog.flushms", "100000");
        __android_log_set_minimum_priority(ANDROID_LOG_ERROR);
    }
    ~CrashHookTest() override { __android_log_set_minimum_priority(ANDROID_LOG_DEFAULT); }

    [[nodiscard]] static std::vector<std::string> crashFiles(const Support::TempFolder& folder) {
        std::vector<std::string> paths;
        for (const std::string& name : folder.names()) {
            if (name.find("_NE_") != std::string::npos) {
                paths.push_back(folder.path(name));
            }
        }
        return paths;
    }
    /// The lines of the one crash file; none when there is not exactly one.
    [[nodiscard]] std::vector<std::string> crashLines() const {
        const auto files = crashFiles(mFolder);
        return files.size() == 1 ? Support::splitLines(Support::readFile(files[0]))
                                 : std::vector<std::string>();
    }
    /// The texts of the records in the one crash file.
    [[nodiscard]] std::vector<std::string> crashTexts() const {
        std::vector<std::string> texts;
        for (const std::string& line : crashLines()) {
            const size_t text = line.find(" I Test    : ");
            if (text != std::string::npos) {
                texts.push_back(line.substr(text + 13));
            }
        }
        return texts;
    }

    Support::Interpose::Scope mInterpose;
    Support::TempFolder mFolder;
    Support::Properties mProperties;
};

TEST_F(CrashHookTest, FaultWithTheDefaultActionEndsTheProcessAndLeavesTheRecords) {
    // The page of a file that ends before it.
    const std::string empty = mFolder.path("empty");
    Support::writeFile(empty, "");
    const int fd = open(empty.c_str(), O_RDWR | O_CLOEXEC);
    void* page = mmap(nullptr, 4096, PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    std::filesystem::remove(empty);
    char pageText[32];
    snprintf(pageText, sizeof(pageText), "%p", page);
    struct Row {
        int sig;
        std::function<void()> fault;
        std::string firstLine;
    };
    const Row rows[] = {
            {SIGSEGV, [] { touch(0x10); }, "SIGSEGV : addr = 0x10"},
            {SIGABRT, [] { abort(); }, "SIGABRT : addr = 0x[0-9a-f]+"},
            {SIGBUS, [&] { touch(reinterpret_cast<uintptr_t>(page)); },
             std::string("SIGBUS : addr = ") + pageText},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.firstLine);
        EXPECT_EQ(runChild([&] {
                      RunningLogger logger;
                      logger.onInit();
                      logger.onFlush(60);
                      logger.onLogEnter(4, "scope", 42);
                      logger.log("last words");
                      row.fault();
                  }),
                  (Ending{Ending::KILLED, row.sig}));
        EXPECT_THAT(crashFiles(mFolder),
                    ElementsAre(MatchesRegex(
                            ".*/cam_jlog_[0-9]+_NE_[0-9]{4}_[0-9]{4}_[0-9]{6}_01.txt")));
        EXPECT_THAT(crashLines(),
                    ElementsAre(MatchesRegex(row.firstLine),
                                EndsWith("D JLog    : R AppRequest:42 M[Preview:4] +  :scope #1"),
                                EndsWith("I Test    : last words")));
        for (const std::string& name : mFolder.names()) {
            std::filesystem::remove(mFolder.path(name));
        }
    }
    munmap(page, 4096);
}

TEST_F(CrashHookTest, PreviousActionTakesTheSignalAndLoggingGoesOnIfItReturns) {
    const auto survive = [&](int sig, bool seen, int seenValue) {
        RunningLogger logger;
        const struct sigaction before = actionOf(sig);
        logger.onInit();
        logger.log("before");
        errno = 77;
        sigval value = {};
        value.sival_int = 4242;
        // To this thread: the flush thread may take what is sent to the process.
        pthread_sigqueue(pthread_self(), sig, value);
        require(errno == 77, 1);
        require(sSeenSignal == (seen ? sig : 0) && sSeenValue == seenValue, 2);
        require(actionOf(sig).sa_handler == before.sa_handler, 3);
        for (const int other : kSignals) {
            require(other == sig || actionOf(other).sa_sigaction == RunningLogger::sigHandler, 4);
        }
        logger.log("after");
        logger.onFlush(60);
        require(mFolder.logText().find("after\n") != std::string::npos, 5);
    };
    for (const int sig : kSignals) {
        SCOPED_TRACE(strsignal(sig));
        EXPECT_EQ(runChild([&] {
                      installAction(sig, keepInfo);
                      survive(sig, true, 4242);
                  }),
                  (Ending{Ending::EXITED, 0}));
        EXPECT_EQ(runChild([&] {
                      installAction(sig, keepSignal);
                      survive(sig, true, 0);
                  }),
                  (Ending{Ending::EXITED, 0}));
        EXPECT_EQ(runChild([&] {
                      installAction(sig, SIG_IGN);
                      survive(sig, false, 0);
                  }),
                  (Ending{Ending::EXITED, 0}));
    }
    EXPECT_THAT(crashFiles(mFolder), SizeIs(9));
    for (const std::string& file : crashFiles(mFolder)) {
        EXPECT_THAT(Support::readFile(file), EndsWith("I Test    : before\n"));
    }
}

/// Leaves one text in a queued buffer and one in the current.
void logQueuedAndCurrent(BufferingLogger& logger) {
    logger.log("queued");
    logger.fillBuffer();
    logger.log("current");
}

TEST_F(CrashHookTest, ModeDecidesWhatIsDumped) {
    struct Row {
        const char* mode;
        size_t currentBytes;
        std::vector<std::string> texts;
    };
    // The current buffer is brought to its size by a record that is not completed.
    const std::vector<std::string> all = {"queued", "current"};
    const std::vector<std::string> currentOnly = {"current"};
    for (const Row& row : {Row{"1", 12792, all}, Row{"1", 12800, currentOnly}, Row{"2", 20000, all},
                           Row{"", 20000, all}, Row{"junk", 20000, all}, Row{"7", 20000, all}}) {
        SCOPED_TRACE(row.mode + std::string(" ") + std::to_string(row.currentBytes));
        mProperties.set(kHookProperty, row.mode);
        EXPECT_EQ(runChild([&] {
                      BufferingLogger logger;
                      logger.initHook();
                      logQueuedAndCurrent(logger);
                      const auto used =
                              static_cast<size_t>(logger.current().end() - logger.current().data);
                      logger.reserve(row.currentBytes - used);
                      raise(SIGSEGV);
                  }),
                  (Ending{Ending::KILLED, SIGSEGV}));
        EXPECT_EQ(crashTexts(), row.texts);
        std::filesystem::remove(crashFiles(mFolder).at(0));
    }
    for (const char* off : {"0", "-1"}) {
        mProperties.set(kHookProperty, off);
        EXPECT_EQ(runChild([&] {
                      RunningLogger logger;
                      logger.onInit();
                      require(RunningLogger::sActiveLogger == &logger, 1);
                      require(logger.mCrashWriter == nullptr && logger.mNeHook == 0, 2);
                      for (const int sig : kSignals) {
                          require(actionOf(sig).sa_handler == SIG_DFL, 3);
                      }
                  }),
                  (Ending{Ending::EXITED, 0}));
    }
    EXPECT_THAT(crashFiles(mFolder), IsEmpty());
}

TEST_F(CrashHookTest, InstalledActionsTakeMaskFromThosePreviousAndNothingElse) {
    EXPECT_EQ(runChild([&] {
                  struct sigaction previous = {};
                  previous.sa_sigaction = keepInfo;
                  previous.sa_flags = SA_SIGINFO | SA_RESTART | SA_NODEFER | SA_ONSTACK;
                  sigaddset(&previous.sa_mask, SIGUSR2);
                  sigaction(SIGBUS, &previous, nullptr);
                  BufferingLogger logger;
                  logger.initHook();
                  logger.initHook();  // arming twice does nothing
                  const struct sigaction installed = actionOf(SIGBUS);
                  require(installed.sa_sigaction == BufferingLogger::sigHandler, 1);
                  constexpr int kKernelsOwn = 0x04000000;  // SA_RESTORER, which libc adds
                  require((installed.sa_flags & ~kKernelsOwn) == SA_SIGINFO, 2);
                  require(sigismember(&installed.sa_mask, SIGUSR2) == 1, 3);
                  require(logger.mOldActions[2].sa_sigaction == keepInfo, 4);
                  require(logger.mNewActions[2].sa_flags == SA_SIGINFO, 5);
                  struct sigaction unused = {};
                  BufferingLogger::registerSigAction(SIGUSR1, nullptr, &unused);
                  BufferingLogger::registerSigAction(SIGUSR1, &unused, nullptr);
                  require(actionOf(SIGUSR1).sa_handler == SIG_DFL, 6);
              }),
              (Ending{Ending::EXITED, 0}));
}

TEST_F(CrashHookTest, DisarmedHookLeavesSignalsAloneAndCanBeArmedAgain) {
    EXPECT_EQ(runChild([&] {
                  installAction(SIGABRT, keepSignal);
                  RunningLogger logger;
                  logger.onInit();
                  logger.onUninit();
                  require(logger.mNeHook == 0 && logger.mCrashWriter != nullptr, 1);
                  require(RunningLogger::sActiveLogger == &logger, 2);
                  logger.log("of no interest");
                  raise(SIGABRT);
                  require(sSeenSignal == SIGABRT, 3);
                  require(crashFiles(mFolder).empty(), 4);
                  logger.onInit();
                  logger.log("of interest");
                  raise(SIGSEGV);
              }),
              (Ending{Ending::KILLED, SIGSEGV}));
    EXPECT_THAT(crashTexts(), Contains(EndsWith("of interest")));
}

TEST_F(CrashHookTest, SignalWithoutAnActionToGoBackToEndsTheProcess) {
    // One that the hook does not know.
    EXPECT_EQ(runChild([&] {
                  BufferingLogger logger;
                  logger.initHook();
                  logger.log("text");
                  struct sigaction installed = {};
                  struct sigaction found = {};
                  BufferingLogger::registerSigAction(SIGILL, &installed, &found);
                  raise(SIGILL);
              }),
              (Ending{Ending::KILLED, SIGILL}));
    EXPECT_THAT(crashLines(),
                ElementsAre(MatchesRegex("NE : addr = 0x[0-9a-f]+"), EndsWith("text")));
    // A hook on top of another logger's, and a logger that is gone with its handler in place.
    EXPECT_EQ(runChild([&] {
                  BufferingLogger first;
                  first.initHook();
                  BufferingLogger second;
                  second.initHook();
                  raise(SIGBUS);
              }),
              (Ending{Ending::KILLED, SIGBUS}));
    EXPECT_EQ(runChild([&] {
                  std::make_unique<BufferingLogger>()->initHook();
                  require(BufferingLogger::sActiveLogger == nullptr, 1);
                  raise(SIGSEGV);
              }),
              (Ending{Ending::KILLED, SIGSEGV}));
}

/// The action that a host's own has found, and to which it hands the signal on.
struct sigaction sFoundByHost;

void installHostOnTop(int sig) {
    struct sigaction host = {};
    host.sa_flags = SA_SIGINFO;
    host.sa_sigaction = [](int signal, siginfo_t* info, void* context) {
        require(++sSeenValue < 50, 1);
        const struct sigaction self = actionOf(signal);
        sFoundByHost.sa_sigaction(signal, info, context);
        sigaction(signal, &self, nullptr);  // as some do, for the next time
    };
    sigaction(sig, &host, &sFoundByHost);
}

TEST_F(CrashHookTest, SignalUnderAHostsHandlerOnTopEndsTheProcess) {
    for (const int sig : kSignals) {
        SCOPED_TRACE(strsignal(sig));
        EXPECT_EQ(runChild([&] {
                      auto logger = std::make_unique<BufferingLogger>();
                      logger->initHook();
                      installHostOnTop(sig);
                      logger.reset();
                      std::thread([sig] { raise(sig); }).detach();
                      std::thread([sig] { raise(sig); }).detach();
                      raise(sig);
                  }),
                  (Ending{Ending::KILLED, sig}));
        EXPECT_EQ(runChild([&] {
                      BufferingLogger first;
                      first.initHook();
                      BufferingLogger second;
                      second.initHook();
                      installHostOnTop(sig);
                      raise(sig);
                  }),
                  (Ending{Ending::KILLED, sig}));
    }
    // Below the hook and on top of it as well.
    std::filesystem::remove_all(mFolder.path());
    EXPECT_EQ(runChild([&] {
                  installHostOnTop(SIGABRT);
                  RunningLogger logger;
                  logger.onInit();
                  logger.log("text");
                  installHostOnTop(SIGABRT);
                  raise(SIGABRT);
              }),
              (Ending{Ending::KILLED, SIGABRT}));
    EXPECT_THAT(crashTexts(), ElementsAre("text")) << "in one file";
    // An action that does not lead back has the signal to itself, each time.
    EXPECT_EQ(runChild([] {
                  installAction(SIGBUS, keepSignal);
                  for (int i = 0; i < 3; ++i) {
                      sSeenSignal = 0;
                      BufferingLogger::sigHandler(SIGBUS, nullptr, nullptr);
                      require(sSeenSignal == SIGBUS, 1);
                  }
              }),
              (Ending{Ending::EXITED, 0}));
}

/// Whether the kernel lets a process probe its own memory; in some containers it does not.
bool canProbe() {
    char from = 1;
    char to = 0;
    const iovec local = {&to, 1};
    const iovec remote = {&from, 1};
    return process_vm_readv(getpid(), &local, 1, &remote, 1, 0) == 1;
}

TEST_F(CrashHookTest, DumpStepsOverInterruptedRecordsAndDamagedMemory) {
    if (!canProbe()) {
        GTEST_SKIP() << "process_vm_readv is not allowed here";
    }
    EXPECT_EQ(runChild([&] {
                  BufferingLogger logger;
                  logger.initHook();
                  logger.log("one");
                  logger.reserve(48);  // its writer was interrupted
                  logger.log("two");
                  LogHeader* record = logger.reserve(64);
                  reinterpret_cast<LogDetails*>(record)->message = nullptr;
                  record->publish(RECORD_DETAILS);
                  logger.log("three");
                  logger.reserve(24)->reserve(0);  // a size that leads nowhere
                  logger.log("beyond reach");
                  logger.fillBuffer();
                  logger.log("four");
                  // A page that is gone takes the rest of its buffer with it.
                  char* end = logger.current().writePtr;
                  char* page = end + 4096 - reinterpret_cast<uintptr_t>(end) % 4096;
                  logger.reserve(static_cast<size_t>(page - end));
                  logger.log("on the lost page");
                  logger.fillBuffer();
                  logger.log("five");
                  // The second buffer's link leads out of the world; the third is found from the
                  // end.
                  logger.fillBuffer();
                  logger.log("six");
                  logger.oldest().next.load()->next = reinterpret_cast<Buffer*>(0x1000);  // NOLINT
                  mprotect(page, 4096, PROT_NONE);
                  raise(SIGSEGV);
              }),
              (Ending{Ending::KILLED, SIGSEGV}));
    EXPECT_THAT(crashTexts(), ElementsAre("one", "two", "three", "four", "five", "six"));
    std::filesystem::remove(crashFiles(mFolder).at(0));

    EXPECT_EQ(runChild([&] {
                  BufferingLogger logger;
                  logger.initHook();
                  logger.log("round");
                  logger.fillBuffer();
                  logger.log("end");
                  logger.oldest().next = &logger.oldest();
                  raise(SIGSEGV);
              }),
              (Ending{Ending::KILLED, SIGSEGV}));
    EXPECT_THAT(crashTexts(), ElementsAre("round", "end"));
    std::filesystem::remove(crashFiles(mFolder).at(0));

    EXPECT_EQ(runChild([&] {
                  static Buffer stray;  // which is empty, and leads nowhere
                  BufferingLogger logger;
                  logger.initHook();
                  for (const char* text : {"one", "two", "three"}) {
                      logger.log(text);
                      logger.fillBuffer();
                  }
                  logger.log("four");
                  logger.oldest().next = &stray;
                  raise(SIGSEGV);
              }),
              (Ending{Ending::KILLED, SIGSEGV}));
    EXPECT_THAT(crashTexts(), ElementsAre("one", "two", "three", "four"));
}

TEST_F(CrashHookTest, DumpGoesWithoutProbesWhereTheKernelHasNone) {
    Faults::arm({{.call = Call::PROBE, .error = ENOSYS}});
    EXPECT_EQ(runChild([&] {
                  BufferingLogger logger;
                  logger.initHook();
                  logQueuedAndCurrent(logger);
                  raise(SIGSEGV);
              }),
              (Ending{Ending::KILLED, SIGSEGV}));
    EXPECT_THAT(crashTexts(), ElementsAre("queued", "current"));
}

TEST_F(CrashHookTest, LinesAreThoseOfTheNormalFilesInBothClocks) {
    for (const char* monotonic : {"0", "1"}) {
        mProperties.set("vendor.debug.camera.jlog.monoclock", monotonic);
        EXPECT_EQ(runChild([&] {
                      // Half an hour off, and for most of the year another offset than in 1970.
                      setenv("TZ", "<+0530>-5:30<+0730>-7:30,M1.2.0,M12.5.0", 1);
                      tzset();
                      installAction(SIGBUS, SIG_IGN);
                      RunningLogger logger;
                      logger.onInit();
                      logger.onLogEnter(1, "name", 1);
                      logger.log("text");
                      logger.onLogExit(0x6, std::string(200, 'n').c_str(), 0xFFFFFFFF);
                      raise(SIGBUS);
                  }),
                  (Ending{Ending::EXITED, 0}));
        const std::string crash = Support::readFile(crashFiles(mFolder).at(0));
        std::filesystem::remove(crashFiles(mFolder)[0]);
        EXPECT_EQ(crash.substr(crash.find('\n') + 1), mFolder.logText());
        EXPECT_THAT(Support::splitLines(crash), SizeIs(4));
        std::filesystem::remove_all(mFolder.path());
    }
}

#if !defined(JCAM_SANITIZED)  // a sanitizer's heap has other locks and checks
/// Lets glibc find its heap damaged in the midst of an allocation: it aborts with the arena's lock
/// in hand.
void abortInsideMalloc() {
    // Volatile throughout: a compiler may leave out what is allocated in vain.
    volatile size_t* volatile victim = static_cast<size_t*>(malloc(4000));
    void* volatile barrier = malloc(16);
    free(const_cast<size_t*>(victim));  // into a list of chunks whose sizes are checked on the way
    victim[-1] = 0x666;                 // NOLINT(clang-analyzer-unix.Malloc): that is the point
    void* volatile never = malloc(8000);
    free(never);
    free(barrier);
}

TEST_F(CrashHookTest, DumpNeedsNoLockThatTheDyingThreadHolds) {
    EXPECT_EQ(runChild([&] {
                  RunningLogger logger;  // with a second thread the heap takes its lock
                  logger.onInit();
                  logger.log("in malloc");
                  abortInsideMalloc();
              }),
              (Ending{Ending::KILLED, SIGABRT}));
    EXPECT_THAT(crashTexts(), ElementsAre("in malloc"));
}
#endif

TEST_F(CrashHookTest, DumpNeedsNoMutexOfTheLogger) {
    EXPECT_EQ(runChild([&] {
                  RunningLogger logger;
                  logger.onInit();
                  logger.log("in the logger");
                  logger.lock();
                  raise(SIGSEGV);
              }),
              (Ending{Ending::KILLED, SIGSEGV}));
    EXPECT_THAT(crashTexts(), ElementsAre("in the logger"));
}

TEST_F(CrashHookTest, DumpNeedsNoTimeZoneCode) {
    // A zone that never finishes loading: whoever asks for it waits with the lock in hand.
    const std::string zone = mFolder.path("zone");
    ASSERT_EQ(mkfifo(zone.c_str(), 0600), 0);
    EXPECT_EQ(runChild([&] {
                  RunningLogger logger;
                  logger.onInit();
                  logger.onFlush(60);
                  std::atomic<pid_t> asker{0};
                  setenv("TZ", (":" + zone).c_str(), 1);
                  std::thread([&] {
                      asker = gettid();
                      tzset();
                  }).detach();
                  // Nobody can open it for writing before somebody has it open for reading; from
                  // then on the reader waits for a first byte.
                  require(await([&] { return open(zone.c_str(), O_WRONLY | O_NONBLOCK) >= 0; }), 1);
                  logger.log("in tzset");
                  syscall(SYS_tgkill, getpid(), asker.load(), SIGSEGV);
                  pause();
              }),
              (Ending{Ending::KILLED, SIGSEGV}));
    EXPECT_THAT(crashTexts(), ElementsAre("in tzset"));
}

/// Whether `fd` is a crash file.
bool isCrashFile(int fd) {
    char descriptor[64];
    char target[512] = {};
    snprintf(descriptor, sizeof(descriptor), "/proc/self/fd/%d", fd);
    return readlink(descriptor, target, sizeof(target) - 1) > 0 &&
           strstr(target, "_NE_") != nullptr;
}

TEST_F(CrashHookTest, SecondThreadWaitsForTheDumpAndLeavesItAlone) {
    EXPECT_EQ(runChild([&] {
                  static std::atomic<bool> dumping;
                  RunningLogger logger;
                  logger.onInit();
                  logger.onFlush(60);
                  for (int i = 0; i < 100; ++i) {
                      logger.log("record " + std::to_string(i));
                  }
                  // The dump goes on once the other thread is in the handler: its action is back.
                  Support::Interpose::onWrite([](int fd) {
                      if (isCrashFile(fd)) {
                          dumping = true;
                          while (actionOf(SIGBUS).sa_handler != SIG_DFL) {
                              usleep(1000);
                          }
                      }
                  });
                  std::thread([] {
                      while (!dumping) {
                          usleep(1000);
                      }
                      raise(SIGBUS);
                  }).detach();
                  raise(SIGSEGV);
              }).kind,
              Ending::KILLED);
    EXPECT_THAT(crashLines(), SizeIs(101));
    EXPECT_THAT(crashLines().back(), EndsWith("record 99"));
}

TEST_F(CrashHookTest, ActionThatJumpsOutOfTheHandlerHoldsLoggingUpOnce) {
    EXPECT_EQ(runChild([&] {
                  static sigjmp_buf place;
                  installAction(SIGSEGV, [](int /*sig*/) { siglongjmp(place, 1); });
                  RunningLogger logger;
                  logger.onInit();
                  logger.log("before");
                  if (sigsetjmp(place, 1) == 0) {
                      raise(SIGSEGV);
                  }
                  logger.log("after");
                  logger.onFlush(60);
                  require(mFolder.logText().find("after\n") != std::string::npos, 1);
                  logger.log("at last");
                  raise(SIGBUS);
              }),
              (Ending{Ending::KILLED, SIGBUS}));
    ASSERT_THAT(crashFiles(mFolder), SizeIs(2));
    EXPECT_THAT(Support::readFile(crashFiles(mFolder)[0]), EndsWith(" before\n"));
    EXPECT_THAT(Support::readFile(crashFiles(mFolder)[1]), EndsWith(" at last\n"));
}

TEST_F(CrashHookTest, SignalSentToTheDumpingThreadWaits) {
    for (const int second : {SIGBUS, SIGABRT}) {
        EXPECT_EQ(runChild([&] {
                      static int sent;
                      sent = second;
                      installAction(SIGSEGV, SIG_IGN);
                      BufferingLogger logger;
                      logger.initHook();
                      logger.log("text");
                      Support::Interpose::onWrite([](int fd) {
                          if (isCrashFile(fd) && sent != 0) {
                              raise(std::exchange(sent, 0));
                          }
                      });
                      raise(SIGSEGV);
                  }),
                  (Ending{Ending::KILLED, second}));
        const auto files = crashFiles(mFolder);
        EXPECT_THAT(Support::readFile(files.at(0)), EndsWith("I Test    : text\n"));
        std::for_each(files.begin(), files.end(),
                      [](const std::string& file) { std::filesystem::remove(file); });
    }
}

TEST_F(CrashHookTest, BuffersAreNeitherReusedNorUnlinkedWhileADumpRuns) {
    EXPECT_EQ(runChild([&] {
                  static std::atomic<bool> reused;
                  static auto* const logger = new BufferingLogger;  // as long as its process
                  logger->initHook();
                  for (const char* text : {"one", "two", "three", "four", "five"}) {
                      logger->log(text);
                      logger->fillBuffer();
                  }
                  logger->log("six");
                  // With the first buffer in the dump's hand, a consumer comes by, and a caller.
                  Support::Interpose::onWrite([](int fd) {
                      static int writes = 0;
                      if (isCrashFile(fd) && ++writes == 2) {
                          std::thread([] {
                              std::vector<const Buffer*> recycled;
                              for (int i = 0; i < 5; ++i) {  // more than the pool takes
                                  recycled.push_back(&logger->oldest());
                                  logger->recycleFront();
                              }
                              logger->fillBuffer();
                              logger->log("later");
                              reused = std::count(recycled.begin(), recycled.end(),
                                                  &logger->current()) > 0;
                          }).join();
                          require(!reused, 1);
                      }
                  });
                  raise(SIGSEGV);
              }),
              (Ending{Ending::KILLED, SIGSEGV}));
    EXPECT_THAT(crashTexts(), ElementsAre("one", "two", "three", "four", "five", "six"));
}

TEST_F(CrashHookTest, DumpHoldsWhatHasNoFileOrNoConsumer) {
    static std::atomic<RunningLogger*> logger;
    // While the head line is written, somebody else is busy.
    const auto crashWith = [&](void (*onHeadLine)()) {
        static void (*action)();
        action = onHeadLine;
        logger = new RunningLogger;  // as long as its process
        logger.load()->onInit();
        for (const char* text : {"one", "two", "three", "four"}) {
            logger.load()->log(text);
            logger.load()->fillBuffer();
        }
        logger.load()->log("five");
        logger.load()->mCrashWriter->mFolder = mFolder.path();
        Support::Interpose::onWrite([](int fd) {
            static bool isHeadLine = true;
            if (isCrashFile(fd) && std::exchange(isHeadLine, false)) {
                std::thread(action).join();
            }
        });
        raise(SIGSEGV);
    };
    Faults::arm({{.call = Call::THREAD, .error = EAGAIN}});
    EXPECT_EQ(runChild([&] {
                  crashWith([] {
                      for (int i = 0; i < 10; ++i) {
                          logger.load()->fillBuffer();
                          logger.load()->log("later");
                      }
                  });
              }),
              (Ending{Ending::KILLED, SIGSEGV}));
    std::vector<std::string> texts = crashTexts();
    texts.resize(5);  // what came later may be there, too
    EXPECT_THAT(texts, ElementsAre("one", "two", "three", "four", "five"));
    std::filesystem::remove(crashFiles(mFolder).at(0));

    Faults::disarm();
    Support::Interpose::redirect("/data/vendor", mFolder.path("absent"));
    mProperties.set(kFolderProperty, mFolder.path("a/b"));
    EXPECT_EQ(runChild([&] {
                  crashWith([] { logger.load()->onFlush(1); });  // in vain
              }),
              (Ending{Ending::KILLED, SIGSEGV}));
    EXPECT_THAT(crashTexts(), ::testing::Contains("five"));
}

TEST_F(CrashHookTest, FaultInTheDumpKeepsWhatWasRenderedAndGoesToThePreviousAction) {
    const auto crash = [&](int sig) {
        static std::atomic<int> writes;
        writes = 0;
        BufferingLogger logger;
        logger.initHook();
        logger.log("first buffer");
        logger.fillBuffer();
        logger.log("second buffer");
        logger.fillBuffer();
        logger.log("third buffer");
        Support::Interpose::onWrite([](int fd) {
            // The head line, the first buffer, the second one.
            if (isCrashFile(fd) && ++writes == 3) {
                touch(0x10);
            }
        });
        raise(sig);
    };
    EXPECT_EQ(runChild([&] { crash(SIGABRT); }), (Ending{Ending::KILLED, SIGSEGV}));
    EXPECT_THAT(crashTexts(), ElementsAre("first buffer", "second buffer"));
    std::filesystem::remove(crashFiles(mFolder).at(0));

    EXPECT_EQ(runChild([&] {
                  installAction(SIGSEGV, [](int /*sig*/) { _exit(9); });
                  crash(SIGSEGV);
              }),
              (Ending{Ending::EXITED, 9}));
    EXPECT_THAT(crashTexts(), ElementsAre("first buffer"));
}

TEST_F(CrashHookTest, CrashFileFindsAnotherPlaceOrTheSignalGoesOnWithout) {
    const Support::TempFolder fallback;
    Support::Interpose::redirect("/data/vendor", fallback.path());
    const auto crash = [&] {
        RunningLogger logger;
        logger.onInit();
        logger.log("text");
        std::filesystem::remove_all(mFolder.path());
        // Called here, since a sanitizer may set errno before it calls a handler.
        siginfo_t info = {};
        errno = 77;
        RunningLogger::sigHandler(SIGSEGV, &info, nullptr);
        require(errno == 77, 1);
    };
    EXPECT_EQ(runChild(crash), (Ending{Ending::KILLED, SIGSEGV}));
    ASSERT_THAT(crashFiles(fallback), SizeIs(1));
    EXPECT_THAT(Support::readFile(crashFiles(fallback)[0]), EndsWith("I Test    : text\n"));

    Support::Interpose::redirect("/data/vendor", fallback.path("absent"));
    EXPECT_EQ(runChild([&] {
                  installAction(SIGSEGV, [](int /*sig*/) {
                      sSeenValue = errno;
                      errno = 0;
                  });
                  crash();
                  require(sSeenValue == 77, 2);
              }),
              (Ending{Ending::EXITED, 0}));
}

TEST_F(CrashHookTest, CrashFileTakesTheSpaceOfOldFilesAndKeepsWithinItsLimit) {
    const std::string old = mFolder.path("old");
    Support::writeFile(old, "old");
    EXPECT_EQ(runChild([&] {
                  RunningLogger logger;
                  logger.onInit();
                  for (int i = 0; i < 1000; ++i) {
                      logger.log("text");  // several writes, one of them at the limit
                  }
                  // Whatever its name.
                  std::filesystem::rename(mFolder.path(mFolder.names().at(0)),
                                          mFolder.path("a log"));
                  Support::Interpose::setFreeBytes(0);
                  const rlimit limit = {4096, 4096};
                  setrlimit(RLIMIT_FSIZE, &limit);
                  while (dup(STDERR_FILENO) >= 0) {
                  }
                  raise(SIGBUS);
              }),
              (Ending{Ending::KILLED, SIGBUS}))
            << "not by SIGXFSZ";
    ASSERT_THAT(crashFiles(mFolder), SizeIs(1));
    EXPECT_THAT(mFolder.names(), ElementsAre("a log", testing::HasSubstr("_NE_")))
            << "old files are gone, and the open one is spared";
    EXPECT_EQ(std::filesystem::file_size(crashFiles(mFolder)[0]), 4096U);
}

}  // namespace
}  // namespace JCam::Utils::JLog::File
