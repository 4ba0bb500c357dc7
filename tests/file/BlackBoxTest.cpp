// What a process leaves in its black box, and what the next start makes of it.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "jlog/file/BoxLayout.h"
#include "support/Await.h"
#include "support/ChildProcess.h"
#include "support/Faults.h"
#include "support/FileLoggerTest.h"

namespace JCam::Utils::JLog::File {
namespace {

using namespace ::testing;
using namespace Support;
using Faults::Call;
namespace fs = std::filesystem;

constexpr char kBoxProperty[] = "vendor.debug.camera.jlog.blackbox";
constexpr char kLeftAlone[] = "Black box left alone: ";

class BlackBoxTest : public FileLoggerTest {
  protected:
    BlackBoxTest() {
        mProperties.set(kBoxProperty, mBoxes.path());
        mProperties.set(kIntervalProperty, "20");
    }

    /// Runs `body` in a process, with a logger without a consumer, and lets the process end.
    void leaveBox(const std::function<void(BufferingLogger&)>& body) {
        mEnding = runChild([&] {
            body(*new BufferingLogger);
            _exit(9);
        });
    }
    [[nodiscard]] std::string box() const { return mBoxes.path(mBoxes.names().front()); }

    /// Lets a logger start, which recovers until `living` boxes are left beside its own, and stop.
    void restart(size_t living = 0) {
        const size_t left = mLog.count(kLeftAlone);
        RunningLogger logger;
        logger.onInit();
        EXPECT_TRUE(await([&] {
            return mBoxes.names().size() == 1 + living || mLog.count(kLeftAlone) > left;
        }));
        logger.onUninit();
    }
    /// The lines of the recovered files, each up to its text; the first line whole.
    std::vector<std::string> recovered() {
        std::vector<std::string> result;
        for (const std::string& name : mFolder.names()) {
            if (name.find("_BB_") == std::string::npos) {
                continue;
            }
            for (const std::string& line : splitLines(readFile(mFolder.path(name)))) {
                const size_t text = line.find(" I Test    : ");
                result.push_back(text == std::string::npos ? line : line.substr(text + 13));
            }
        }
        return result;
    }
    /// Writes over `bytes` bytes of the box.
    void damage(size_t offset, const void* from, size_t bytes) const {
        const int fd = open(box().c_str(), O_RDWR);
        ASSERT_EQ(pwrite(fd, from, bytes, static_cast<off_t>(offset)), static_cast<ssize_t>(bytes));
        close(fd);
    }
    template <typename T>
    void damage(size_t offset, T value) const {
        damage(offset, &value, sizeof(value));
    }

    TempFolder mBoxes{TempFolder::inMemory()};
    Ending mEnding{};
};

TEST_F(BlackBoxTest, WhateverEndsTheProcessTheNextStartHasItsRecords) {
    using Action = void (*)();
    const std::pair<Ending, Action> ends[] = {
            {{Ending::KILLED, SIGKILL}, [] { raise(SIGKILL); }},
            {{Ending::KILLED, SIGTERM}, [] { raise(SIGTERM); }},
            {{Ending::KILLED, SIGILL}, [] { raise(SIGILL); }},
            {{Ending::EXITED, 7}, [] { _exit(7); }},
            {{Ending::EXITED, 8}, [] { quick_exit(8); }},
    };
    for (const auto& [ending, end] : ends) {
        SCOPED_TRACE(PrintToString(ending));
        mProperties.set(kIntervalProperty, "1000000");
        mEnding = runChild([action = end] {
            auto* logger = new RunningLogger;
            logger->onInit();
            logger->log("in the log file");
            logger->onFlush(60);
            logger->log("first");
            logger->onLogEnter(1, "scope", 7);
            logger->log("last");
            action();
        });
        EXPECT_EQ(mEnding, ending);
        EXPECT_EQ(fs::status(box()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
        mProperties.set(kIntervalProperty, "20");
        Faults::arm({});
        restart();
        EXPECT_EQ(Faults::calls(Call::FSYNC), 1U);
        EXPECT_THAT(
                recovered(),
                ElementsAre(
                        AllOf(StartsWith("BLACK BOX : pid = "), EndsWith(", ended without a dump")),
                        "first", EndsWith(" R AppRequest:7 M[DEFAULT:1] +  :scope #1"), "last"));
        EXPECT_THAT(mBoxes.names(), IsEmpty());
        fs::remove_all(mFolder.path());
        fs::create_directory(mFolder.path());
    }
}

TEST_F(BlackBoxTest, WhatWasInterruptedCostsItselfAlone) {
    leaveBox([](BufferingLogger& logger) {
        logger.log("whole");
        static_cast<void>(logger.reserve(96));  // never completed
        logger.log("behind it");
        BufferState before;
        ASSERT_TRUE(logger.current().reserve(BufferState::request(128, false), before));
        logger.log("behind a reservation without a size");
        logger.retire();
        logger.log("in the next buffer");
    });
    restart();
    EXPECT_THAT(recovered(),
                ElementsAre(StartsWith("BLACK BOX"), "whole", "behind it",
                            "behind a reservation without a size", "in the next buffer"));
}

TEST_F(BlackBoxTest, OfACrashItHasWhatTheCrashFileHasNot) {
    enum Crash { WHOLE_DUMP, SMALL_DUMP, LOGGED_AFTER_THE_DUMP, SECOND_DUMP, NO_ROOM };
    static BufferingLogger* sLogger;  // of the child
    for (const auto crash : {WHOLE_DUMP, SMALL_DUMP, LOGGED_AFTER_THE_DUMP, SECOND_DUMP, NO_ROOM}) {
        SCOPED_TRACE(crash);
        mProperties.set("vendor.debug.camera.jlog.hookne", crash == SMALL_DUMP ? "1" : "2");
        leaveBox([&](BufferingLogger& logger) {
            sLogger = &logger;
            if (crash == LOGGED_AFTER_THE_DUMP || crash == SECOND_DUMP) {
                // The process outlives the first signal.
                signal(SIGBUS, [](int) { sLogger->log("after the dump"); });
            }
            logger.initHook();
            logger.log("queued");
            logger.retire();
            logger.log("current " + std::string(900, '.'));
            while (logger.current().usedBytes() < 12800) {
                logger.logBytes(1000);
            }
            if (crash == NO_ROOM) {
                Faults::arm({{Call::WRITE, ENOSPC, 2}});  // of all processes
            }
            raise(SIGBUS);
            if (crash == SECOND_DUMP) {
                raise(SIGABRT);
            }
        });
        restart();
        if (crash == NO_ROOM) {
            EXPECT_THAT(recovered(), IsEmpty());
            EXPECT_THAT(mBoxes.names(), SizeIs(1)) << "it waits for better times";
            EXPECT_EQ(mLog.count(kLeftAlone), 1U);
            Faults::disarm();
            restart();
        }
        const std::vector<std::string> lines = recovered();
        if (crash == WHOLE_DUMP || crash == SECOND_DUMP) {
            EXPECT_THAT(lines, IsEmpty()) << "all of it is in the crash file";
        } else {
            ASSERT_THAT(lines, Not(IsEmpty()));
            EXPECT_THAT(lines[0],
                        EndsWith(crash == NO_ROOM
                                         ? ", ended without a dump"
                                         : ", ended behind a crash dump, which lacks records"));
            const std::vector<std::string> rest(lines.begin() + 1, lines.end());
            const auto current = StartsWith("current ");
            if (crash == SMALL_DUMP) {
                EXPECT_THAT(rest, ElementsAre("queued"));
            } else if (crash == NO_ROOM) {
                EXPECT_THAT(rest, ElementsAre("queued", current));
            } else {
                EXPECT_THAT(rest, ElementsAre(current, "after the dump"));
            }
        }
        EXPECT_THAT(mBoxes.names(), IsEmpty());
        fs::remove_all(mFolder.path());
        fs::create_directory(mFolder.path());
    }
    mProperties.set("vendor.debug.camera.jlog.hookne", "");
}

TEST_F(BlackBoxTest, WhatHasNoPlaceIsCountedAndTold) {
    constexpr size_t kOutside = 3;
    const std::string told = "; up to 3 buffers were outside the box, and are lost";
    for (const size_t rendered : {size_t{0}, kBoxSlots, kBoxSlots + kOutside - 1}) {
        SCOPED_TRACE(rendered);
        leaveBox([=](BufferingLogger& logger) {
            for (size_t i = 0; i + 1 < kBoxSlots + kOutside; ++i) {
                logger.log("of buffer " + std::to_string(i));
                logger.retire();
            }
            for (size_t i = 0; i < rendered; ++i) {
                logger.recycleFront();
            }
            if (rendered > kBoxSlots) {
                logger.retire();  // the last one outside
                logger.recycleFront();
                logger.log("in the box again");
            }
        });
        restart();
        std::vector<std::string> lines = recovered();
        ASSERT_THAT(lines, Not(IsEmpty()));
        EXPECT_EQ(lines[0].ends_with(told), rendered <= kBoxSlots) << lines[0];
        EXPECT_THAT(lines, SizeIs(rendered == 0 ? 1 + kBoxSlots : rendered == kBoxSlots ? 1 : 2));
        fs::remove_all(mFolder.path());
        fs::create_directory(mFolder.path());
    }
}

TEST_F(BlackBoxTest, ABlockIsClearWhenItIsUsedAgain) {
    leaveBox([](BufferingLogger& logger) {
        for (size_t i = 0; i + 1 < kBoxSlots; ++i) {
            logger.log("old");
            logger.log("old");
            logger.retire();
        }
        while (!logger.queued().empty()) {
            logger.recycleFront();
        }
        for (size_t i = 0; i + 1 < kBoxSlots; ++i) {
            logger.log("new");
            logger.retire();
        }
    });
    restart();
    std::vector<std::string> lines = recovered();
    ASSERT_THAT(lines, SizeIs(kBoxSlots));
    lines.erase(lines.begin());
    EXPECT_THAT(lines, Each("new"));
}

TEST_F(BlackBoxTest, WithRoomInTheBoxNothingIsOutside) {
    mProperties.set(kIntervalProperty, "1000000");
    RunningLogger logger;
    for (size_t i = 0; i < 2 * kBoxSlots; ++i) {
        logger.log("text");
        logger.retire();
    }
    logger.onInit();
    logger.onFlush(60);
    EXPECT_EQ(mLog.count("Black box: "), 1U);
    mLog.clear();
    for (size_t i = 0; i <= BufferPool::kMaxBuffers; ++i) {
        EXPECT_NE(logger.current().slot, nullptr);
        logger.log("text");
        logger.retire();
    }
    logger.onUninit();
    EXPECT_THAT(mLog.texts("Black box: "), IsEmpty());
}

TEST_F(BlackBoxTest, ABufferOfThePoolThatIsOutsideIsNotUsedWhenTheBoxHasRoom) {
    BufferingLogger logger;
    const auto fill = [&](size_t buffers) {
        for (size_t i = 0; i < buffers; ++i) {
            logger.log("text");
            logger.retire();
        }
    };
    const auto recycle = [&](size_t buffers) {
        for (size_t i = 0; i < buffers; ++i) {
            logger.recycleFront();
        }
    };
    fill(kBoxSlots + 3);
    recycle(kBoxSlots);
    fill(kBoxSlots);  // the box is used up, and three buffers outside are the oldest
    recycle(3);
    EXPECT_EQ(logger.oldestPooled()->slot, nullptr);
    recycle(2);
    fill(1);
    EXPECT_NE(logger.current().slot, nullptr);
    recycle(4);
    EXPECT_NE(logger.oldestPooled()->slot, nullptr);
}

TEST_F(BlackBoxTest, WhatIsNoBoxOfADeadProcessIsLeftAlone) {
    const std::string text(kBoxBytes, 'x');
    const TempFolder elsewhere(TempFolder::inMemory());
    const std::string outside = elsewhere.path("outside");
    writeFile(outside, text);
    const std::pair<const char*, std::function<void(const std::string&)>> faults[] = {
            {"a link", [&](const std::string& path) { fs::create_symlink(outside, path); }},
            {"a second name",
             [&](const std::string& path) { fs::create_hard_link(outside, path); }},
            {"a folder", [](const std::string& path) { fs::create_directory(path); }},
            {"a pipe", [](const std::string& path) { mkfifo(path.c_str(), 0600); }},
            {"another file", [&](const std::string& path) { writeFile(path, text); }},
            {"a short one", [](const std::string& path) { writeFile(path, "x"); }},
            {"zeros", [](const std::string& path) { writeFile(path, std::string(1000, '\0')); }},
            {"another user's",
             [&](const std::string& path) {
                 writeFile(path, geteuid() == 0 ? "" : "x");
                 static_cast<void>(chown(path.c_str(), 12345, 12345));
             }},
    };
    for (const auto& [name, plant] : faults) {
        SCOPED_TRACE(name);
        plant(mBoxes.path("cam_jlog_4321_01.box"));
        restart();
        EXPECT_EQ(mLog.count(kLeftAlone), 1U);
        EXPECT_THAT(mBoxes.names(), ElementsAre("cam_jlog_4321_01.box"));
        EXPECT_EQ(readFile(outside), text);
        EXPECT_THAT(recovered(), IsEmpty());
        fs::remove_all(box());
        mLog.clear();
    }
    writeFile(mBoxes.path("cam_jlog_4321_01.box"), "");
    restart();
    EXPECT_THAT(mBoxes.names(), IsEmpty()) << "of a process that ended while it made the box";
}

TEST_F(BlackBoxTest, OfADamagedBoxTheRestIsRead) {
    constexpr size_t kFirstBlock = kBoxHeadBytes;
    constexpr size_t kMessage = kFirstBlock + offsetof(LogDetails, message);
    const auto slot = [](size_t i) { return offsetof(BoxHead, slots) + i * sizeof(BoxSlot); };
    const std::string garbage(kBufferBytes, '\xA5');
    const std::vector<std::string> all{"one", "two", "three"};
    const std::vector<std::string> none;
    const std::vector<std::string> withoutFirst{"two", "three"};
    const std::tuple<const char*, std::function<void()>, std::vector<std::string>> faults[] = {
            {"nothing", [] {}, all},
            {"the version", [&] { damage(offsetof(BoxHead, version), 2U); }, none},
            {"the size of blocks", [&] { damage(offsetof(BoxHead, slotBytes), 0x7FFFFFF8U); },
             none},
            {"the count", [&] { damage(offsetof(BoxHead, slotCount), 1000000U); }, none},
            {"the address", [&] { damage(offsetof(BoxHead, address), UINT64_MAX - 5); }, none},
            {"the process", [&] { damage(offsetof(BoxHead, pid), -1); }, none},
            {"the address is another's", [&] { damage(offsetof(BoxHead, address), 4096UL); }, none},
            {"a time", [&] { damage(offsetof(BoxHead, boxStart), INT64_MAX); }, none},
            {"a message's address", [&] { damage(kMessage, 4096UL); }, withoutFirst},
            {"a block", [&] { damage(kFirstBlock, garbage.data(), garbage.size()); }, withoutFirst},
            {"a size", [&] { damage(kFirstBlock, 0x7FFFFF07U); }, withoutFirst},
            {"a sequence", [&] { damage(slot(0), UINT64_MAX); }, {"two", "three", "one"}},
            {"two sequences",
             [&] {
                 damage(slot(5), UINT64_MAX);
                 damage(slot(0), 0UL);
             },
             withoutFirst},
            {"a name",
             [&] { damage(offsetof(BoxHead, recoveredTo), "cam_jlog_1_BB_/../x.txt", 24); }, all},
            {"the end", [&] { fs::resize_file(box(), kFirstBlock + kBufferBytes); }, {"one"}},
            {"the half", [&] { fs::resize_file(box(), kFirstBlock + 40); }, none},
            {"the head", [&] { fs::resize_file(box(), 100); }, none},
    };
    for (const auto& [name, apply, expected] : faults) {
        SCOPED_TRACE(name);
        leaveBox([&](BufferingLogger& logger) {
            for (const std::string& text : all) {
                logger.log(text);
                logger.retire();
            }
        });
        apply();
        restart();
        std::vector<std::string> lines = recovered();
        if (!lines.empty()) {
            EXPECT_THAT(lines.front(), StartsWith("BLACK BOX"));
            lines.erase(lines.begin());
        }
        EXPECT_EQ(lines, expected);
        const bool isTold = mLog.count(kLeftAlone) + mLog.count("Black box damaged: ") > 0;
        EXPECT_TRUE(isTold || lines.size() > 1);
        for (const std::string& left : mBoxes.names()) {
            fs::remove(mBoxes.path(left));
        }
        fs::remove_all(mFolder.path());
        fs::create_directory(mFolder.path());
        mLog.clear();
    }
}

TEST_F(BlackBoxTest, ABoxInUseIsNotTouched) {
    // Of another process, ...
    const Shared<std::atomic<int>> stage;
    const pid_t living = fork();
    if (living == 0) {
        auto* logger = new BufferingLogger;
        logger->log("of a living process");
        *stage = 1;
        static_cast<void>(await([&] { return *stage == 2; }));
        raise(SIGKILL);
    }
    ASSERT_TRUE(await([&] { return *stage == 1; }));
    leaveBox([](BufferingLogger& logger) { logger.log("of a dead one"); });
    restart(1);
    EXPECT_THAT(recovered(), ElementsAre(StartsWith("BLACK BOX"), "of a dead one"));
    // ... and the own one, which must not lose its lock: recovery has looked at it.
    const std::string own = "cam_jlog_" + std::to_string(getpid()) + "_01.box";
    RunningLogger logger;
    logger.onInit();
    logger.onFlush(60);
    EXPECT_EQ(runChild([&] {
                  struct flock lock = {};
                  lock.l_type = F_WRLCK;
                  const int fd = open(mBoxes.path(own).c_str(), O_RDWR);
                  _exit(fd >= 0 && fcntl(fd, F_GETLK, &lock) == 0 ? lock.l_type : -1);
              }),
              (Ending{Ending::EXITED, F_WRLCK}));
    // A process has one: the next logger says so, takes none, and leaves that one alone.
    leaveBox([](BufferingLogger& child) { child.log("of a second dead one"); });
    RunningLogger second;
    EXPECT_EQ(second.current().slot, nullptr);
    EXPECT_EQ(mLog.count("No black box in " + mBoxes.path() + ": another logger"), 1U);
    second.onInit();
    EXPECT_TRUE(await([&] { return mBoxes.names().size() == 2; }));
    second.onUninit();
    EXPECT_THAT(mBoxes.names(), Contains(own));
    logger.onUninit();
    *stage = 2;
    waitpid(living, nullptr, 0);
}

TEST_F(BlackBoxTest, AProcessMayHaveThePidOfADeadOne) {
    leaveBox([](BufferingLogger& logger) { logger.log("of the dead one"); });
    const std::string own = "cam_jlog_" + std::to_string(getpid());
    fs::rename(box(), mBoxes.path(own + "_01.box"));
    restart();
    EXPECT_EQ(mLog.count("Black box " + mBoxes.path(own + "_02.box")), 1U);
    EXPECT_THAT(recovered(), ElementsAre(StartsWith("BLACK BOX"), "of the dead one"));
}

TEST_F(BlackBoxTest, AForkedChildLogsBesideTheBox) {
    const Shared<std::atomic<pid_t>> orphan;
    leaveBox([&](BufferingLogger& logger) {
        logger.log("before the fork");
        const pid_t child = fork();
        if (child == 0) {
            logger.log("of the child");
            logger.retire();
            logger.log("of the child");
            delete &logger;
            _exit(0);
        }
        waitpid(child, nullptr, 0);
        // One that libc does not know of.
        const auto stranger = static_cast<pid_t>(syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0));
        if (stranger == 0) {
            signal(SIGSEGV, SIG_DFL);
            logger.log("of the stranger");
            _exit(0);
        }
        waitpid(stranger, nullptr, 0);
        logger.log("behind it");
        const pid_t second = fork();
        if (second == 0) {
            for (;;) {
                pause();  // outlives its parent, and has no lock
            }
        }
        *orphan = second;
    });
    restart();
    kill(*orphan, SIGKILL);
    EXPECT_THAT(recovered(), ElementsAre(StartsWith("BLACK BOX"), "before the fork", "behind it"));
}

TEST_F(BlackBoxTest, ARecoveryThatWasCutShortIsMadeAnew) {
    leaveBox([](BufferingLogger& logger) {
        logger.log("first");
        logger.retire();
        logger.log("second");
    });
    EXPECT_EQ(runChild([] {
                  Interpose::onWrite([](int /*fd*/) {
                      static int writes = 0;
                      if (++writes == 3) {  // behind the first line and the first block
                          raise(SIGKILL);
                      }
                  });
                  RunningLogger logger;
                  logger.onInit();
                  pause();
              }),
              (Ending{Ending::KILLED, SIGKILL}));
    EXPECT_THAT(recovered(), ElementsAre(StartsWith("BLACK BOX : pid = "), "first"));
    restart();
    EXPECT_THAT(recovered(), ElementsAre(StartsWith("BLACK BOX : pid = "), "first", "second"));
}

TEST_F(BlackBoxTest, AFileThatIsDeletedMeanwhileIsMadeAnew) {
    leaveBox([](BufferingLogger& logger) { logger.log("text"); });
    static std::string sFolder;
    sFolder = mFolder.path();
    Interpose::onWrite([](int /*fd*/) {
        for (const std::string& name : namesIn(sFolder)) {
            if (name.find("_BB_") != std::string::npos) {
                fs::remove(fs::path(sFolder) / name);
            }
        }
    });
    restart();
    EXPECT_EQ(mLog.count(kLeftAlone), 1U);
    Interpose::onWrite(nullptr);
    restart();
    EXPECT_THAT(recovered(), ElementsAre(StartsWith("BLACK BOX"), "text"));
}

TEST_F(BlackBoxTest, ABoxNamesNoFileButItsOwn) {
    leaveBox([](BufferingLogger& logger) { logger.log("text"); });
    const std::string name = mBoxes.names().front();
    const std::string begin = "cam_jlog_" + name.substr(9, name.find('_', 9) - 9) + "_BB_";
    fs::create_directory(mFolder.path(begin));
    writeFile(mFolder.path("1.txt"), "somebody's");
    const std::string planted = begin + "/../1.txt";
    damage(offsetof(BoxHead, recoveredTo), planted.c_str(), planted.size() + 1);
    restart();
    EXPECT_EQ(readFile(mFolder.path("1.txt")), "somebody's");
}

TEST_F(BlackBoxTest, WithoutABoxLoggingGoesOnAndSaysWhy) {
    rlimit unlimited = {};
    getrlimit(RLIMIT_FSIZE, &unlimited);
    const std::pair<const char*, std::function<void()>> faults[] = {
            {"fallocate failed (No space left on device)",
             [] {
                 Faults::arm({{Call::RESERVE, ENOSPC}});
             }},
            {"mmap failed (Cannot allocate memory)",
             [] {
                 Faults::arm({{Call::MAP, ENOMEM, 1, 1}});
             }},
            {"lock failed (No locks available)",
             [] {
                 Faults::arm({{Call::LOCK, ENOLCK}});
             }},
            {"no free name",
             [] {
                 Faults::arm({{Call::LOCK, EAGAIN}});
             }},
            {"open failed (Permission denied)",
             [] {
                 Faults::arm({{Call::OPEN, EACCES, 1, 1}});
             }},
            {"mkdir failed (No such file or directory)",
             [this] { mProperties.set(kBoxProperty, mBoxes.path("no/folder")); }},
            {"the process may make no such file (File too large)",
             [&] {
                 const rlimit limit = {1000000, unlimited.rlim_max};
                 setrlimit(RLIMIT_FSIZE, &limit);
             }},
            {"madvise failed (Invalid argument)",
             [] {
                 Faults::arm({{Call::ADVISE, EINVAL, 1, 1}});
             }},
            {"it is the log folder",
             [this] { mProperties.set(kBoxProperty, mFolder.path() + "/."); }},
    };
    for (const auto& [text, apply] : faults) {
        SCOPED_TRACE(text);
        const size_t descriptors = openDescriptors();
        apply();
        {
            RunningLogger logger;
            Faults::disarm();
            logger.onInit();
            logger.log("text");
            logger.onUninit();
        }
        EXPECT_THAT(mLog.lines(), Contains(AllOf(Field(&LogLine::priority, ANDROID_LOG_ERROR),
                                                 Field(&LogLine::text, StartsWith("No black box")),
                                                 Field(&LogLine::text, HasSubstr(text)))));
        EXPECT_THAT(mFolder.logText(), EndsWith(" text\n"));
        EXPECT_EQ(openDescriptors(), descriptors);
        setrlimit(RLIMIT_FSIZE, &unlimited);
        // Others that had a lock would delete these; the recovery may have deleted some.
        EXPECT_LE(mBoxes.names().size(), std::string_view(text) == "no free name" ? 99U : 0U);
        for (const std::string& name : mBoxes.names()) {
            EXPECT_EQ(fs::file_size(mBoxes.path(name)), 0U);
            fs::remove(mBoxes.path(name));
        }
        mProperties.set(kBoxProperty, mBoxes.path());
        fs::remove_all(mFolder.path());
        fs::create_directory(mFolder.path());
        mLog.clear();
    }
}

TEST_F(BlackBoxTest, WhatIsDoneToABoxInUseIsTold) {
    mProperties.set(kIntervalProperty, "1000000");
    {
        RunningLogger logger;
        logger.onInit();
        logger.onFlush(60);
        fs::remove_all(mBoxes.path());
        for (const char* text : {"first", "second"}) {
            logger.log(text);
            logger.onFlush(60);
        }
    }
    EXPECT_THAT(mFolder.logText(), AllOf(HasSubstr(" first\n"), EndsWith(" second\n")));
    EXPECT_EQ(mLog.count("Black box " + mBoxes.path()), 2U) << "made, and deleted";
    // Shortened, its pages are gone: the next access is a fault, of which the crash file tells.
    fs::create_directory(mBoxes.path());
    leaveBox([this](BufferingLogger& logger) {
        logger.initHook();
        logger.log("text");
        fs::resize_file(box(), 100);
        logger.log("text");
    });
    EXPECT_EQ(mEnding, (Ending{Ending::KILLED, SIGBUS}));
    EXPECT_THAT(mFolder.logText(), HasSubstr("SIGBUS : addr = 0x"));
    restart();
    EXPECT_EQ(mLog.count(kLeftAlone), 1U);
}

}  // namespace
}  // namespace JCam::Utils::JLog::File
