// The crash hook, in children that die for real.

#include <fcntl.h>
#include <sys/mman.h>
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
#include <functional>
#include <memory>
#include <thread>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/Await.h"
#include "support/ChildProcess.h"
#include "support/FileLoggerTest.h"

namespace JCam::Utils::JLog::File {
namespace {

namespace fs = std::filesystem;
using namespace Support;
using namespace ::testing;

constexpr int kSignals[] = {SIGABRT, SIGSEGV, SIGBUS};

/// Causes a fault at `address`. No sanitizer looks at it first.
__attribute__((no_sanitize("address", "thread", "undefined"))) void touch(uintptr_t address) {
    const volatile uintptr_t place = address;                // which the compiler cannot know
    *reinterpret_cast<volatile int*>(uintptr_t{place}) = 1;  // NOLINT(performance-no-int-to-ptr)
}

/// Does what ends in `sig`, with the address 0x10 or that of a page.
void causeFault(int sig) {
    if (sig == SIGABRT) {
        abort();
    } else if (sig == SIGSEGV) {
        touch(0x10);
    } else {
        const int empty = memfd_create("empty", MFD_CLOEXEC);
        void* page = mmap(nullptr, 4096, PROT_WRITE, MAP_SHARED, empty, 0);
        touch(reinterpret_cast<uintptr_t>(page));
    }
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

/// Runs `action` when the `nth` write from now on begins. A dump writes the head line, and then
/// each buffer.
void atWrite(int nth, std::function<void()> action) {
    static std::function<void()> sAction;
    static std::atomic<int> sWritesLeft;
    sAction = std::move(action);
    sWritesLeft = nth;
    Interpose::onWrite([](int /*fd*/) {
        if (--sWritesLeft == 0) {
            sAction();
        }
    });
}

/// Logs texts, each of which but the last fills a queued buffer.
template <typename Logger>
void logToBuffers(Logger& logger, const std::vector<const char*>& texts) {
    for (const char* text : texts) {
        logger.log(text);
        if (text != texts.back()) {
            logger.retire();
        }
    }
}

/// How a process has ended, and the texts that its crash files have.
using Death = std::pair<Ending, std::vector<std::string>>;

Death killed(int sig, const std::vector<std::string>& texts) {
    return {{Ending::KILLED, sig}, texts};
}
Death exited(const std::vector<std::string>& texts) {
    return {{Ending::EXITED, 0}, texts};
}

/// Ends a child, whose expectations would not be heard of otherwise; 0 is no signal.
void raiseUnlessFailed(int sig) {
    if (Test::HasFailure()) {
        _exit(1);
    }
    raise(sig);
}

class CrashHookTest : public FileLoggerTest {
  protected:
    /// Records stay in memory until somebody asks for them.
    CrashHookTest() { mProperties.set(kIntervalProperty, "100000"); }

    /// Runs `body` in a child, which exits with 0 if it lives on and its expectations hold. Empties
    /// the folder then; mNames, mLogText and mCrashFiles have what was in it.
    Death run(const std::function<void()>& body) {
        const Ending ending = runChild([&body] {
            body();
            _exit(HasFailure() ? 1 : 0);
        });
        mNames = mFolder.names();
        mCrashFiles.clear();
        std::vector<std::string> texts;
        for (const std::string& name : mNames) {
            if (name.find("_NE_") == std::string::npos) {
                continue;
            }
            mCrashFiles.push_back(readFile(mFolder.path(name)));
            for (const std::string& line : splitLines(mCrashFiles.back())) {
                const size_t text = line.find(" I Test    : ");
                if (text != std::string::npos) {
                    texts.push_back(line.substr(text + 13));
                }
            }
            fs::remove(mFolder.path(name));
        }
        mLogText = mFolder.logText();
        fs::remove_all(mFolder.path());
        fs::create_directory(mFolder.path());
        return {ending, texts};
    }

    /// Runs `body` in a child with a logger whose hook is armed after `before` was run, and raises
    /// `sig`, unless that is 0.
    template <typename Logger = BufferingLogger, typename Body>
    Death die(
            int sig, Body body, void (*before)() = [] {}) {
        return run([&] {
            before();
            Logger logger;
            logger.onInit();
            logger.initHook();  // which does nothing where it is armed
            body(logger);
            raiseUnlessFailed(sig);
        });
    }

    std::vector<std::string> mNames;
    std::string mLogText;
    std::vector<std::string> mCrashFiles;
};

TEST_F(CrashHookTest, EveryCauseLeavesTheRecordsAndGoesToThePreviousAction) {
    struct Row {
        const char* name;
        bool isFault;           // otherwise the signal is sent with the value 4242
        void (*previous)(int);  // but for the last
        bool livesOn;
        int seenValue;
    };
    const Row rows[] = {
            {"fault, default", true, SIG_DFL, false, 0},
            {"sent, default", false, SIG_DFL, false, 0},
            {"sent, ignored", false, SIG_IGN, true, 0},
            {"sent, plain", false, keepSignal, true, 0},
            {"sent, info", false, {}, true, 4242},
    };
    const auto crash = [](const Row& row, int sig) {
        struct sigaction previous = {};
        previous.sa_handler = row.previous;
        previous.sa_flags = SA_RESTART | SA_NODEFER | SA_ONSTACK;
        sigaddset(&previous.sa_mask, SIGUSR2);
        if (row.seenValue != 0) {
            previous.sa_sigaction = keepInfo;
            previous.sa_flags |= SA_SIGINFO;
        }
        sigaction(sig, &previous, nullptr);
        RunningLogger logger;
        logger.onInit();
        logger.onFlush(60);
        const struct sigaction installed = actionOf(sig);
        constexpr int kKernelsOwn = 0x04000000;  // SA_RESTORER, which libc adds
        EXPECT_EQ(installed.sa_flags & ~kKernelsOwn, SA_SIGINFO);
        EXPECT_EQ(sigismember(&installed.sa_mask, SIGUSR2), 1);
        logger.onLogEnter(4, "scope", 42);
        logger.log("before");
        errno = 77;
        if (row.isFault) {
            causeFault(sig);
        }
        sigval value = {};
        value.sival_int = 4242;
        // To this thread: the flush thread may take what is sent to the process.
        pthread_sigqueue(pthread_self(), sig, value);
        EXPECT_EQ(errno, 77);
        EXPECT_EQ(sSeenSignal, row.previous == SIG_IGN ? 0 : sig);
        EXPECT_EQ(sSeenValue, row.seenValue);
        for (const int other : kSignals) {
            EXPECT_EQ(actionOf(other).sa_sigaction,
                      other == sig ? previous.sa_sigaction : RunningLogger::sigHandler);
        }
        logger.log("after");
    };
    for (const int sig : kSignals) {
        for (const Row& row : rows) {
            SCOPED_TRACE(std::string(strsignal(sig)) + ": " + row.name);
            EXPECT_EQ(run([&] { crash(row, sig); }),
                      row.livesOn ? exited({"before"}) : killed(sig, {"before"}));
            EXPECT_EQ(mLogText.ends_with("after\n"), row.livesOn);
            const char* address =
                    row.isFault && sig != SIGABRT ? "0x(10|[0-9a-f]+000)" : "0x[0-9a-f]+";
            const char* name = "cam_jlog_[0-9]+_NE_[0-9]{4}_[0-9]{4}_[0-9]{6}_01.txt";
            EXPECT_THAT(mNames, Contains(MatchesRegex(name)));
            ASSERT_THAT(mCrashFiles, SizeIs(1));
            EXPECT_THAT(splitLines(mCrashFiles[0]),
                        ElementsAre(MatchesRegex(std::string("SIG") + sigabbrev_np(sig) +
                                                 " : addr = " + address),
                                    EndsWith("JLog    : R AppRequest:42 M[Preview:4] +  :scope #1"),
                                    EndsWith("I Test    : before")));
        }
    }
}

TEST_F(CrashHookTest, ModeDecidesWhatIsDumped) {
    struct Row {
        const char* mode;
        size_t currentBytes;
        std::vector<std::string> texts;
    };
    const std::vector<std::string> all = {"queued", "current"};
    for (const Row& row : {Row{"1", 12792, all}, Row{"1", 12800, {"current"}}, Row{"2", 20000, all},
                           Row{"", 20000, all}, Row{"junk", 20000, all}, Row{"7", 20000, all},
                           Row{"0", 20000, {}}, Row{"-1", 20000, {}}}) {
        SCOPED_TRACE(row.mode + std::string(" ") + std::to_string(row.currentBytes));
        mProperties.set("vendor.debug.camera.jlog.hookne", row.mode);
        const auto fillBuffers = [&](auto& logger) {
            EXPECT_EQ(BufferingLogger::sActiveLogger, &logger);
            EXPECT_EQ(actionOf(SIGSEGV).sa_handler == SIG_DFL, row.texts.empty());
            logToBuffers(logger, {"queued", "current"});
            // A record that is not completed brings the buffer to its size.
            const Buffer& current = logger.current();
            logger.reserve(row.currentBytes - static_cast<size_t>(current.end() - current.data));
        };
        EXPECT_EQ(die(SIGSEGV, fillBuffers), killed(SIGSEGV, row.texts));
        EXPECT_EQ(mCrashFiles.size(), row.texts.empty() ? 0U : 1U);
    }
}

TEST_F(CrashHookTest, DisarmedHookLeavesSignalsAloneAndCanBeArmedAgain) {
    const auto armAgain = [&](auto& logger) {
        logger.onUninit();
        logger.log("first");
        raise(SIGABRT);
        EXPECT_EQ(sSeenSignal, SIGABRT);
        EXPECT_THAT(mFolder.names(), SizeIs(1)) << "the log file";
        // A thread that was in the handler before.
        RunningLogger::sigHandler(SIGABRT, nullptr, nullptr);
        EXPECT_THAT(mFolder.names(), SizeIs(2));
        logger.onInit();
        logger.log("second");
    };
    EXPECT_EQ(die<RunningLogger>(SIGSEGV, armAgain, [] { signal(SIGABRT, keepSignal); }),
              killed(SIGSEGV, {"first", "first", "second"}));
}

/// The action that a host's own has found, and to which it hands the signal on.
struct sigaction sFoundByHost;

void installHostOnTop(int hostSignal) {
    struct sigaction host = {};
    host.sa_flags = SA_SIGINFO;
    host.sa_sigaction = [](int sig, siginfo_t* info, void* context) {
        if (++sSeenValue >= 50) {
            _exit(1);
        }
        const struct sigaction self = actionOf(sig);
        sFoundByHost.sa_sigaction(sig, info, context);
        sigaction(sig, &self, nullptr);  // as some do, for the next time
    };
    sigaction(hostSignal, &host, &sFoundByHost);
}

TEST_F(CrashHookTest, SignalWithoutAnActionToGoBackToEndsTheProcess) {
    enum Step { HOOK, HOOK_GONE, HOST, THREADS };
    struct Row {
        std::vector<Step> steps;
        std::vector<std::string> texts;
    };
    const Row rows[] = {
            {{HOOK, HOOK}, {"text"}},
            {{HOOK, HOOK_GONE}, {}},
            {{HOOK, HOST, HOOK_GONE, THREADS}, {}},
            {{HOOK, HOOK, HOST}, {"text"}},
    };
    const auto crash = [](const Row& row, int sig) {
        std::vector<std::unique_ptr<BufferingLogger>> loggers;
        for (const Step step : row.steps) {
            if (step == HOOK) {
                loggers.push_back(std::make_unique<BufferingLogger>());
                loggers.back()->initHook();
                loggers.back()->log("text");
            } else if (step == HOOK_GONE) {
                loggers.clear();
                EXPECT_EQ(BufferingLogger::sActiveLogger, nullptr);
            } else if (step == HOST) {
                installHostOnTop(sig);
            } else {
                std::thread([sig] { raise(sig); }).detach();
                std::thread([sig] { raise(sig); }).detach();
            }
        }
        raiseUnlessFailed(sig);
    };
    for (const Row& row : rows) {
        for (const int sig : kSignals) {
            SCOPED_TRACE(PrintToString(row.steps) + ", " + strsignal(sig));
            EXPECT_EQ(run([&] { crash(row, sig); }), killed(sig, row.texts));
        }
    }
    // An emulator of a processor hands faults on in a way of its own.
    const Row hostsAround = {{HOST, HOOK, HOST}, {"text"}};
    EXPECT_EQ(run([&] { crash(hostsAround, SIGABRT); }), killed(SIGABRT, hostsAround.texts));
    const auto hookAnotherSignal = [](auto& logger) {
        struct sigaction installed = {};
        struct sigaction found = {};
        BufferingLogger::registerSigAction(SIGILL, nullptr, &found);
        BufferingLogger::registerSigAction(SIGILL, &installed, nullptr);
        EXPECT_EQ(actionOf(SIGILL).sa_handler, SIG_DFL);
        BufferingLogger::registerSigAction(SIGILL, &installed, &found);
        logger.log("text");
    };
    EXPECT_EQ(die(SIGILL, hookAnotherSignal), killed(SIGILL, {"text"}));
    EXPECT_TRUE(mCrashFiles.at(0).starts_with("NE : addr = 0x"));
    const auto comeBack = [] {
        signal(SIGBUS, keepSignal);
        for (int i = 0; i < 5; ++i) {
            sSeenSignal = 0;
            BufferingLogger::sigHandler(SIGBUS, nullptr, nullptr);
            EXPECT_EQ(sSeenSignal, SIGBUS);
        }
    };
    EXPECT_EQ(run(comeBack), exited({})) << "an action that does not lead back has it each time";
}

TEST_F(CrashHookTest, DumpStepsOverInterruptedRecordsAndDamagedMemory) {
    if (process_vm_readv(getpid(), nullptr, 0, nullptr, 0, 0) != 0) {
        GTEST_SKIP() << "probing memory is not allowed here";
    }
    const auto damageRecords = [](auto& logger) {
        logger.log("one");
        logger.reserve(48);  // its writer was interrupted
        BufferState before;  // ... and that one before it had a size
        EXPECT_TRUE(logger.current().reserve(BufferState::request(200, false), before));
        logger.log("two");
        LogHeader* record = logger.reserve(64).header;
        reinterpret_cast<LogDetails*>(record)->message = nullptr;
        record->publish(RECORD_DETAILS);
        logger.log("three");
        logger.reserve(24).header->reserve(0);  // a size that leads nowhere
        logger.log("beyond reach");
        logger.retire();
        logger.log("four");
        // A page that is gone takes the rest of its buffer with it.
        char* end = logger.current().data + logger.current().usedBytes();
        char* page = end + 4096 - reinterpret_cast<uintptr_t>(end) % 4096;
        logger.reserve(static_cast<size_t>(page - end));
        logger.log("on the lost page");
        logger.retire();
        logToBuffers(logger, {"five", "six"});
        // A link leads out of the world: what is behind it is found from the end.
        logger.queued()[1]->next = reinterpret_cast<Buffer*>(0x1000);  // NOLINT
        mprotect(page, 4096, PROT_NONE);
    };
    EXPECT_EQ(die(SIGSEGV, damageRecords),
              killed(SIGSEGV, {"one", "two", "three", "four", "five", "six"}));
    const auto closeCircle = [](auto& logger) {
        logToBuffers(logger, {"round", "end"});
        logger.queued()[0]->next = logger.queued()[0];
    };
    EXPECT_EQ(die(SIGSEGV, closeCircle), killed(SIGSEGV, {"round", "end"}));
    const auto leadAstray = [](auto& logger) {
        static Buffer stray;  // which is empty, and leads nowhere
        logToBuffers(logger, {"one", "two", "three", "four"});
        logger.queued()[0]->next = &stray;
    };
    EXPECT_EQ(die(SIGSEGV, leadAstray), killed(SIGSEGV, {"one", "two", "three", "four"}));
}

TEST_F(CrashHookTest, LinesAreThoseOfTheNormalFilesInBothClocks) {
    const auto before = [] {
        // Half an hour off, and for most of the year another offset than in 1970.
        setenv("TZ", "<+0530>-5:30<+0730>-7:30,M1.2.0,M12.5.0", 1);
        tzset();
        signal(SIGBUS, SIG_IGN);
    };
    const auto log = [](auto& logger) {
        logger.onLogEnter(1, "name", 1);
        logger.log("text");
        logger.onLogExit(0x6, std::string(200, 'n').c_str(), 0xFFFFFFFF);
    };
    for (const char* monotonic : {"0", "1"}) {
        mProperties.set("vendor.debug.camera.jlog.monoclock", monotonic);
        EXPECT_EQ(die<RunningLogger>(SIGBUS, log, before), exited({"text"}));
        const std::string& dump = mCrashFiles.at(0);
        EXPECT_EQ(dump.substr(dump.find('\n') + 1), mLogText);
        EXPECT_THAT(splitLines(dump), SizeIs(4));
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

TEST_F(CrashHookTest, DumpDoesNotAllocate) {
    const auto crash = [](auto& logger) {
        logger.log("in malloc");
        abortInsideMalloc();
    };
    // With the flush thread the heap takes its lock.
    EXPECT_EQ(die<RunningLogger>(0, crash), killed(SIGABRT, {"in malloc"}));
}
#endif

TEST_F(CrashHookTest, DumpNeedsNeitherTheLoggersMutexNorTheTimeZoneCode) {
    const auto crashWithMutex = [](auto& logger) {
        logger.log("in the logger");
        const JLogLock lock(logger.mMutex);
        raise(SIGSEGV);
    };
    EXPECT_EQ(die<RunningLogger>(0, crashWithMutex), killed(SIGSEGV, {"in the logger"}));
    // A zone that never finishes loading: whoever asks for it waits with the lock in hand.
    const std::string zone = mFolder.path("zone");
    ASSERT_EQ(mkfifo(zone.c_str(), 0600), 0);
    const auto crashInTimeZoneCode = [&zone](auto& logger) {
        logger.onFlush(60);
        std::atomic<pid_t> asker{0};
        setenv("TZ", (":" + zone).c_str(), 1);
        std::thread([&asker] {
            asker = gettid();
            tzset();
        }).detach();
        // Nobody can open it for writing before somebody has it open for reading; from then on the
        // reader waits for a first byte.
        ASSERT_TRUE(await([&] { return open(zone.c_str(), O_WRONLY | O_NONBLOCK) >= 0; }));
        logger.log("in tzset");
        syscall(SYS_tgkill, getpid(), asker.load(), SIGSEGV);
        pause();
    };
    EXPECT_EQ(die<RunningLogger>(0, crashInTimeZoneCode), killed(SIGSEGV, {"in tzset"}));
}

TEST_F(CrashHookTest, SecondThreadWaitsForTheDumpAndLeavesItAlone) {
    const auto raiseTwice = [](auto& logger) {
        logger.onFlush(60);
        for (int i = 0; i < 100; ++i) {
            logger.log("record " + std::to_string(i));
        }
        atWrite(1, [] {
            std::thread([] { raise(SIGBUS); }).detach();
            // Once it is in the handler, its action is back.
            static_cast<void>(await([] { return actionOf(SIGBUS).sa_handler == SIG_DFL; }));
        });
    };
    const auto [ending, texts] = die<RunningLogger>(SIGSEGV, raiseTwice);
    EXPECT_EQ(ending.kind, Ending::KILLED);  // by either signal
    ASSERT_THAT(texts, SizeIs(100));
    EXPECT_EQ(texts.back(), "record 99");
}

TEST_F(CrashHookTest, ActionThatJumpsOutOfTheHandlerHoldsLoggingUpOnce) {
    static sigjmp_buf place;
    const auto jumpOut = [] { signal(SIGSEGV, [](int) { siglongjmp(place, 1); }); };
    const auto crashAndLogOn = [](auto& logger) {
        logger.log("before");
        if (sigsetjmp(place, 1) == 0) {
            raise(SIGSEGV);
        }
        logger.log("after");
        logger.onFlush(60);
        logger.log("at last");
    };
    EXPECT_EQ(die<RunningLogger>(SIGBUS, crashAndLogOn, jumpOut),
              killed(SIGBUS, {"before", "at last"}));
    EXPECT_THAT(mCrashFiles, SizeIs(2));
    EXPECT_THAT(mLogText, EndsWith("after\n"));
}

TEST_F(CrashHookTest, SignalSentToTheDumpingThreadWaits) {
    for (const int second : {SIGBUS, SIGABRT}) {
        const auto log = [second](auto& logger) {
            logger.log("text");
            atWrite(1, [second] { raise(second); });
        };
        EXPECT_EQ(die(SIGSEGV, log, [] { signal(SIGSEGV, SIG_IGN); }).first,
                  (Ending{Ending::KILLED, second}));
        // ThreadSanitizer holds a signal back until the dump is over, and it has one of its own.
        EXPECT_THAT(mCrashFiles.at(0), EndsWith("I Test    : text\n"));
    }
}

TEST_F(CrashHookTest, BuffersAreNeitherReusedNorGivenUpWhileADumpRuns) {
    for (const bool hasConsumer : {true, false}) {
        const auto useBuffers = [hasConsumer](BufferingLogger& logger) {
            const std::vector<Buffer*> queued = logger.queued();
            for (size_t i = 0; hasConsumer && i < queued.size(); ++i) {
                logger.recycleFront();  // more than the pool takes
            }
            for (int i = 0; i < 10; ++i) {
                logger.retire();
                logger.log("later");
                if (std::count(queued.begin(), queued.end(), &logger.current()) > 0) {
                    _exit(1);
                }
            }
        };
        const auto fillBuffers = [&](auto& logger) {
            logToBuffers(logger, {"one", "two", "three", "four", "five", "six"});
            logger.setQueueBounded(!hasConsumer);
            // Others come by: a consumer when the dump has the first buffer in hand.
            atWrite(hasConsumer ? 2 : 1, [&] { std::thread(useBuffers, std::ref(logger)).join(); });
        };
        auto [ending, texts] = die(SIGSEGV, fillBuffers);
        texts.resize(6);  // what came later may be there, too
        EXPECT_EQ(Death(ending, texts),
                  killed(SIGSEGV, {"one", "two", "three", "four", "five", "six"}));
    }
}

TEST_F(CrashHookTest, DumpHoldsWhatHasNoFile) {
    Interpose::redirect("/data/vendor", mFolder.path("absent"));
    fs::remove(mFolder.path());
    writeFile(mFolder.path(), "in the way of the log file");
    const auto crash = [&](auto& logger) {
        logger.log("text");
        fs::remove(mFolder.path());
        fs::create_directory(mFolder.path());
        atWrite(1, [&] { std::thread([&] { logger.onFlush(1); }).join(); });  // in vain
    };
    EXPECT_EQ(die<RunningLogger>(SIGSEGV, crash), killed(SIGSEGV, {"text"}));
}

TEST_F(CrashHookTest, FaultInTheDumpKeepsWhatWasRenderedAndGoesToThePreviousAction) {
    const auto faultInDump = [](auto& logger) {
        logToBuffers(logger, {"first buffer", "second buffer", "third buffer"});
        atWrite(3, [] { touch(0x10); });
    };
    EXPECT_EQ(die(SIGABRT, faultInDump), killed(SIGSEGV, {"first buffer", "second buffer"}));
    const auto exitAtFault = [] { signal(SIGSEGV, [](int) { _exit(0); }); };
    EXPECT_EQ(die(SIGSEGV, faultInDump, exitAtFault), exited({"first buffer"}));
    const auto damageLogger = [](auto& logger) {
        logger.setLogWriter(reinterpret_cast<FileJLogWriter*>(0x4000));  // NOLINT
    };
    EXPECT_EQ(die(SIGSEGV, damageLogger, exitAtFault), exited({}));
}

TEST_F(CrashHookTest, CrashFileFindsAnotherPlaceOrTheSignalGoesOnWithout) {
    mProperties.set(kFolderProperty, mFolder.path("logs"));
    const auto crash = [&](auto& logger) {
        logger.log("text");
        fs::remove_all(mFolder.path("logs"));
        // Called here, since a sanitizer may set errno before it calls a handler.
        siginfo_t info = {};
        errno = 77;
        RunningLogger::sigHandler(SIGSEGV, &info, nullptr);
        EXPECT_EQ(errno, 77);
        EXPECT_EQ(sSeenValue, 77);
    };
    Interpose::redirect("/data/vendor", mFolder.path());
    EXPECT_EQ(die<RunningLogger>(0, crash), killed(SIGSEGV, {"text"}));

    Interpose::redirect("/data/vendor", mFolder.path("absent"));
    const auto keepErrno = [] {
        signal(SIGSEGV, [](int) { sSeenValue = std::exchange(errno, 0); });
    };
    EXPECT_EQ(die<RunningLogger>(0, crash, keepErrno), exited({}));
}

TEST_F(CrashHookTest, CrashFileTakesTheSpaceOfOldFilesAndKeepsWithinItsLimit) {
    const auto crashOnAFullDisk = [&](auto& logger) {
        writeFile(mFolder.path("old"), "old");
        for (int i = 0; i < 1000; ++i) {
            logger.log("text");  // several writes, one of them at the limit
        }
        // Whatever its name.
        fs::rename(mFolder.path(mFolder.names().at(0)), mFolder.path("a log"));
        Interpose::setFreeBytes(0);
        const rlimit limit = {4096, 4096};
        setrlimit(RLIMIT_FSIZE, &limit);
        while (dup(STDERR_FILENO) >= 0) {
        }
    };
    EXPECT_EQ(die<RunningLogger>(SIGBUS, crashOnAFullDisk).first, (Ending{Ending::KILLED, SIGBUS}))
            << "not by SIGXFSZ";
    EXPECT_THAT(mNames, ElementsAre("a log", HasSubstr("_NE_")))
            << "old files are gone, and the open one is spared";
    ASSERT_THAT(mCrashFiles, SizeIs(1));
    EXPECT_EQ(mCrashFiles[0].size(), 4096U);
}

}  // namespace
}  // namespace JCam::Utils::JLog::File
