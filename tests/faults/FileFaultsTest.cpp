// Every call that the file logger makes of libc fails, one at a time and at random, in a life with
// two starts, clean-ups and full buffers. What was given to the kernel is held against what was
// logged: whole lines, each record once, and none missing but where the fault explains it.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <thread>

#include <gtest/gtest.h>

#include <android/log.h>

#include "faults/Campaign.h"
#include "jlog/JLogger.h"
#include "jlog/JLogInitializer.h"
#include "support/ChildProcess.h"
#include "support/Descriptors.h"
#include "support/Faults.h"
#include "support/Interpose.h"
#include "support/LogCapture.h"
#include "support/Properties.h"
#include "support/TempFolder.h"

namespace JCam::Utils::JLog::File {
namespace {

namespace Interpose = Support::Interpose;
namespace Faults = Support::Faults;
using Faults::Call;

constexpr int kGenerations = 2;
constexpr int kThreads = 3;
constexpr int kRecords = 200;  // of a thread: together more than two buffers
constexpr int64_t kMiB = 0x100000;
constexpr int kCallersErrno = EXDEV;

/// Whether no handler of ours is left behind.
bool crashActionsAreDefault() {
    for (const int sig : {SIGABRT, SIGSEGV, SIGBUS}) {
        struct sigaction action = {};
        if (sigaction(sig, nullptr, &action) != 0 || action.sa_handler != SIG_DFL) {
            return false;
        }
    }
    return true;
}

/// The message of a record, which tells it from all others.
std::string textOf(int generation, int thread, int number) {
    return "g" + std::to_string(generation) + "t" + std::to_string(thread) + "n" +
           std::to_string(number) + std::string(static_cast<size_t>(number * 37 % 900), '.');
}

/// Counts the lines of the Android log that tell of a loss. Memory that it takes is not the
/// library's.
struct LossLines {
    std::atomic<int> noFile{0};
    std::atomic<int> noMemory{0};
    std::atomic<int> noThread{0};
};
LossLines sLossLines;

void countLossLine(const __android_log_message* message) {
    const std::string_view text = message->message;
    sLossLines.noFile += text.starts_with("Unable to open file.") ? 1 : 0;
    sLossLines.noMemory += text.starts_with("Out of memory: no buffer") ? 1 : 0;
    sLossLines.noThread += text.starts_with("Unable to start the flush thread") ? 1 : 0;
}

/// What a life has left behind.
struct Outcome {
    std::string tape;
    size_t torn;
    size_t accepted;
    /// Of the log files that are left.
    size_t fileBytes;
    size_t files;
    /// Whether the events of a generation were to go to files.
    std::array<bool, kGenerations> toFiles{};
};

class FileFaultsTest : public ::testing::Test {
  protected:
    FileFaultsTest() {
        for (int generation = 0; generation < kGenerations; ++generation) {
            for (int thread = 0; thread < kThreads; ++thread) {
                mTexts[generation][thread].reserve(kRecords);
                for (int number = 0; number < kRecords; ++number) {
                    mTexts[generation][thread].push_back(textOf(generation, thread, number));
                }
            }
        }
        for (const int sig : {SIGABRT, SIGSEGV, SIGBUS}) {
            signal(sig, SIG_DFL);  // a sanitizer's otherwise
        }
        __android_log_set_logger(countLossLine);
        alarm(280);  // a hang ends here
    }
    ~FileFaultsTest() override {
        alarm(0);
        __android_log_set_logger(nullptr);
    }

    /// 80 old files, of which all but a few must go before 280 MiB are free.
    static void fillFolder(const Support::TempFolder& folder) {
        for (int i = 0; i < 80; ++i) {
            const std::string path = folder.path("old_" + std::to_string(i));
            Support::writeFile(path, "");
            std::filesystem::resize_file(path, static_cast<uintmax_t>(5 * kMiB / 2));
            const timespec times[] = {{1000 + i, 0}, {1000 + i, 0}};
            utimensat(AT_FDCWD, path.c_str(), times, 0);
        }
    }

    /// One initializer from its start to its end, with threads that log. Whether to files.
    bool runGeneration(int generation) {
        std::optional<JLogInitializer> initializer(0);
        const bool toFiles = JLogger::isModeEnabled(MODE_FILE_ALONE);
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([this, generation, i] {
                for (const std::string& text : mTexts[generation][i]) {
                    errno = kCallersErrno;
                    JLogger::logEnter(4, "scope", static_cast<unsigned int>(generation));
                    JLogger::logNormalDetails(1, "Tag", LEVEL_INFO, text.c_str(), text.size());
                    mErrnoChanges += errno != kCallersErrno ? 1 : 0;
                }
                JLogger::flush(i);
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        JLogger::flush(60);
        initializer.reset();
        JLogger::setMode(0);
        return toFiles;
    }

    /// A life, in which the fault that is armed strikes or not.
    Outcome live() {
        const Support::TempFolder folder(Support::TempFolder::inMemory());
        const Support::TempFolder fallback(Support::TempFolder::inMemory());
        fillFolder(folder);
        Interpose::redirect("/data/vendor", fallback.path());
        Interpose::setFreeBytes(100 * kMiB);
        const Support::Properties properties{{"vendor.debug.camera.ulog.folder", folder.path()},
                                             {"vendor.debug.camera.jlog.mode", "20"},
                                             {"vendor.debug.camera.jlog.flushms", "500"}};
        const size_t descriptors = Support::openDescriptors();
        const int buffers = Interpose::liveBuffers();
        sLossLines.noFile = sLossLines.noMemory = sLossLines.noThread = 0;
        mTape->clear();
        mErrnoChanges = 0;
        Faults::record(&*mTape);
        Outcome outcome{};
        for (int generation = 0; generation < kGenerations; ++generation) {
            outcome.toFiles[static_cast<size_t>(generation)] = runGeneration(generation);
        }
        Faults::disarm();
        Faults::record(nullptr);

        EXPECT_EQ(Support::openDescriptors(), descriptors);
        EXPECT_EQ(Interpose::liveBuffers() - buffers,
                  static_cast<int>(Faults::struck(Call::UNMAP)));
        EXPECT_TRUE(crashActionsAreDefault());
        EXPECT_EQ(Interpose::staleCloses(), 0);
        // A clock that fails costs more than its errno is worth: no call would be without that.
        EXPECT_TRUE(mErrnoChanges == 0 || Faults::struck(Call::CLOCK) > 0);
        sigset_t mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        EXPECT_EQ(sigismember(&mask, SIGTERM), 0);
        outcome.tape = mTape->content();
        outcome.torn = mTape->torn;
        outcome.accepted = mTape->accepted;
        for (const Support::TempFolder* each : {&folder, &fallback}) {
            for (const std::string& name : each->names()) {
                if (name.starts_with("cam_jlog_")) {
                    outcome.fileBytes += std::filesystem::file_size(each->path(name));
                    ++outcome.files;
                }
            }
        }
        return outcome;
    }

    /// What holds whatever has failed. Returns how many records of each generation are missing.
    std::array<int, kGenerations> check(const Outcome& outcome) {
        EXPECT_LE(sLossLines.noMemory, static_cast<int>(Faults::struck(Call::MAP)));
        EXPECT_EQ(outcome.torn, 0U) << "writes that do not end with a line";
        EXPECT_LE(mTape->used, Faults::Tape::kBytes);
        // The clean-up of the second start may have found the first one's file.
        if (outcome.files == kGenerations) {
            EXPECT_EQ(outcome.fileBytes, outcome.accepted);
        }
        return missingRecords(outcome);
    }

    /// The lines of the tape against the ledger.
    std::array<int, kGenerations> missingRecords(const Outcome& outcome) {
        constexpr std::string_view kTag = " I Tag     : ";
        std::map<std::string_view, int> found;
        const std::string_view tape = outcome.tape;
        for (size_t begin = 0; begin < tape.size();) {
            const size_t end = tape.find('\n', begin);
            const std::string_view line = tape.substr(begin, end - begin);
            const size_t tag = line.find(kTag);
            if (tag != std::string_view::npos) {
                ++found[line.substr(tag + kTag.size())];
            } else {
                // The number behind it is its serial, of which a generation has each once.
                constexpr std::string_view kEnter = " D JLog    : R AppRequest:";
                const size_t enter = line.find(kEnter);
                EXPECT_NE(enter, std::string_view::npos) << line;
                ++found[line.substr(std::min(enter + kEnter.size(), line.size()))];
            }
            begin += line.size() + 1;
        }
        std::array<int, kGenerations> missing{};
        for (size_t generation = 0; generation < kGenerations; ++generation) {
            for (int serial = 1; serial <= kThreads * kRecords; ++serial) {
                const std::string text = std::to_string(generation) + " M[Preview:4] +  :scope #" +
                                         std::to_string(serial);
                const int count = found[text];
                EXPECT_LE(count, 1) << text << " twice";
                missing[generation] += count == 0 ? 1 : 0;
                found.erase(text);
            }
            for (const auto& texts : mTexts[generation]) {
                for (const std::string& text : texts) {
                    const int count = found[text];
                    EXPECT_LE(count, 1) << text.substr(0, 12) << " twice";
                    missing[generation] += count == 0 ? 1 : 0;
                    found.erase(text);
                }
            }
        }
        EXPECT_TRUE(found.empty()) << "never logged: " << found.begin()->first;
        return missing;
    }

    /// A life with one fault.
    void strike(const Faults::Rule& rule) {
        Faults::arm({rule});
        const Outcome outcome = live();
        const std::array<int, kGenerations> missing = check(outcome);
        if (rule.call == Call::MAP) {
            // Of several callers that find no room, the first has no memory, and its record goes.
            EXPECT_LE(missing[0] + missing[1], 1);
        } else if (rule.call == Call::THREAD || rule.call == Call::ALLOCATE) {
            // A start without a thread keeps its records in memory; one without a file logger logs
            // to the Android log. The other start is not touched.
            const bool elsewhere = !outcome.toFiles[0] || !outcome.toFiles[1];
            EXPECT_EQ((missing[0] > 0) + (missing[1] > 0),
                      sLossLines.noThread + (elsewhere ? 1 : 0));
        } else {
            EXPECT_EQ(missing, (std::array<int, kGenerations>{}));
        }
        EXPECT_EQ(sLossLines.noFile, 0) << "one failed open is made up for";
    }

    void liveWithoutFault() {
        Faults::arm({});
        const Outcome outcome = live();
        EXPECT_EQ(check(outcome), (std::array<int, kGenerations>{}));
        EXPECT_EQ(outcome.accepted, outcome.tape.size());
    }

    /// Does something in a process that has done nothing of the kind before.
    static void doAfresh(const std::function<void()>& body) {
        EXPECT_EQ(Support::runChild([&] {
                      body();
                      _exit(HasFailure() ? 1 : 0);
                  }),
                  (Support::Ending{Support::Ending::EXITED, 0}));
    }

    Interpose::Scope mInterpose;
    Support::Shared<Faults::Tape> mTape;
    std::atomic<int> mErrnoChanges{0};
    std::vector<std::string> mTexts[kGenerations][kThreads];
};

TEST_F(FileFaultsTest, OneFaultCostsNoMoreThanItMust) {
    doAfresh([this] { liveWithoutFault(); });
    // Some memory is allocated once in a process: this one does nothing of the kind before.
    Faults::tryEachFault([this](const Faults::Rule& rule) {
        if (rule.call == Call::ALLOCATE) {
            doAfresh([&] { strike(rule); });
        } else {
            strike(rule);
        }
    });
}

TEST_F(FileFaultsTest, FaultsAtRandomCostOnlyWhatIsReported) {
    uint32_t struck = 0;
    constexpr int kLives = 200;
    for (int i = 0; i < kLives; ++i) {
        SCOPED_TRACE("life " + std::to_string(i));
        constexpr uint32_t kOneIn[] = {2, 5, 20, 100};
        Faults::armAtRandom(static_cast<uint64_t>(i), kOneIn[i % 4]);
        const Outcome outcome = live();
        struck += Faults::struck();
        const std::array<int, kGenerations> missing = check(outcome);
        const bool elsewhere = !outcome.toFiles[0] || !outcome.toFiles[1];
        if (!elsewhere && sLossLines.noFile == 0 && sLossLines.noThread == 0) {
            EXPECT_LE(missing[0] + missing[1], static_cast<int>(Faults::struck(Call::MAP)));
        }
        ASSERT_FALSE(HasFailure());
    }
    std::cout << kLives << " lives, " << struck << " faults\n";
}

}  // namespace
}  // namespace JCam::Utils::JLog::File
