// Every call that the file logger makes of libc fails, one at a time and at random, in a life with
// two starts, clean-ups and full buffers. What was given to the kernel is held against what was
// logged: whole lines, each record once, and none missing but where the fault explains it.

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include <gtest/gtest.h>

#include "faults/FaultTest.h"
#include "jlog/JLogger.h"
#include "jlog/JLogInitializer.h"
#include "support/Properties.h"
#include "support/Threads.h"

namespace JCam::Utils::JLog::File {
namespace {

namespace fs = std::filesystem;
namespace Faults = Support::Faults;
using Faults::Call;

constexpr int kGenerations = 2;
constexpr int kThreads = 3;
constexpr int kRecords = 200;  // of a thread: together more than two buffers
constexpr int64_t kMiB = 0x100000;
constexpr int kCallersErrno = EXDEV;

/// Records of each generation.
using Counts = std::array<int, kGenerations>;

/// The message of a record, which tells it from all others.
std::string textOf(int generation, int thread, int number) {
    return "g" + std::to_string(generation) + "t" + std::to_string(thread) + "n" +
           std::to_string(number) + std::string(static_cast<size_t>(number * 37 % 900), '.');
}

/// The lines of a generation, from their levels on.
std::vector<std::string> linesOf(int generation) {
    std::vector<std::string> lines;
    for (int thread = 0; thread < kThreads; ++thread) {
        for (int number = 0; number < kRecords; ++number) {
            const int serial = thread * kRecords + number + 1;
            lines.push_back(" D JLog    : R AppRequest:" + std::to_string(generation) +
                            " M[Preview:4] +  :scope #" + std::to_string(serial));
            lines.push_back(" I Tag     : " + textOf(generation, thread, number));
        }
    }
    return lines;
}

class FileFaultsTest : public Support::FaultTest {
  protected:
    FileFaultsTest() {
        for (const int sig : {SIGABRT, SIGSEGV, SIGBUS}) {
            signal(sig, SIG_DFL);  // a sanitizer's otherwise
        }
    }

    /// 80 old files, of which all but a few must go before 280 MiB are free.
    static void fillFolder(const Support::TempFolder& folder) {
        for (int i = 0; i < 80; ++i) {
            const std::string path = folder.path("old_" + std::to_string(i));
            Support::writeFile(path, "");
            fs::resize_file(path, static_cast<uintmax_t>(5 * kMiB / 2));
            fs::last_write_time(path,
                                fs::file_time_type::clock::now() - std::chrono::hours(1000 - i));
        }
    }

    /// One initializer from its start to its end, with threads that log.
    void runGeneration(int generation) {
        std::optional<JLogInitializer> initializer(0);
        mElsewhere += JLogger::isModeEnabled(MODE_FILE_ALONE) ? 0 : 1;
        Support::runThreads(kThreads, [this, generation](int thread) {
            for (int number = 0; number < kRecords; ++number) {
                const std::string text = textOf(generation, thread, number);
                errno = kCallersErrno;
                JLogger::logEnter(4, "scope", static_cast<unsigned int>(generation));
                JLogger::logNormalDetails(1, "Tag", LEVEL_INFO, text.c_str(), text.size());
                mErrnoChanges += errno != kCallersErrno ? 1 : 0;
            }
            JLogger::flush(thread);
        });
        JLogger::flush(60);
        initializer.reset();
        JLogger::setMode(0);
    }

    /// A life, in which what is armed strikes, and what holds whatever has failed. Returns how many
    /// records are missing.
    Counts live() {
        const Support::TempFolder folder(Support::TempFolder::inMemory());
        const Support::TempFolder fallback(Support::TempFolder::inMemory());
        fillFolder(folder);
        Support::Interpose::redirect("/data/vendor", fallback.path());
        Support::Interpose::setFreeBytes(100 * kMiB);
        const Support::Properties properties{{"vendor.debug.camera.ulog.folder", folder.path()},
                                             {"vendor.debug.camera.jlog.mode", "20"},
                                             {"vendor.debug.camera.jlog.flushms", "500"}};
        const size_t descriptors = Support::openDescriptors();
        mElsewhere = mErrnoChanges = 0;
        mLog.clear();
        mTape->clear();
        Faults::record(&*mTape);
        for (int generation = 0; generation < kGenerations; ++generation) {
            runGeneration(generation);
        }
        Faults::disarm();
        Faults::record(nullptr);

        EXPECT_EQ(Support::openDescriptors(), descriptors);
        EXPECT_EQ(Faults::calls(Call::MAP) - Faults::struck(Call::MAP), Faults::calls(Call::UNMAP));
        EXPECT_LE(mLog.count("Out of memory: no buffer"), Faults::struck(Call::MAP));
        // A clock that fails costs more than its errno is worth: no call would be without that.
        EXPECT_TRUE(mErrnoChanges == 0 || Faults::struck(Call::CLOCK) > 0);
        for (const int sig : {SIGABRT, SIGSEGV, SIGBUS}) {
            struct sigaction action = {};
            sigaction(sig, nullptr, &action);
            EXPECT_EQ(action.sa_handler, SIG_DFL);
        }
        sigset_t mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        EXPECT_EQ(sigismember(&mask, SIGTERM), 0);
        // The clean-up of the second start may have found the first one's file.
        const std::string unlinked = "Storage full. Unlinked: ";
        EXPECT_TRUE(folder.logText().size() + fallback.logText().size() == mTape->accepted ||
                    mLog.count(unlinked + folder.path("cam_jlog_")) > 0 ||
                    mLog.count(unlinked + "/data/vendor/cam_jlog_") > 0);
        return missingRecords();
    }

    Counts missingRecords() {
        std::unordered_map<std::string, int> found = linesOnTape();
        Counts missing{};
        for (int generation = 0; generation < kGenerations; ++generation) {
            for (const std::string& line : linesOf(generation)) {
                const int count = found[line];
                EXPECT_LE(count, 1) << line.substr(0, 80) << " twice";
                missing[static_cast<size_t>(generation)] += count == 0 ? 1 : 0;
                found.erase(line);
            }
        }
        EXPECT_TRUE(found.empty()) << "never logged: " << found.begin()->first;
        return missing;
    }

    /// A life with one fault.
    void strike(const Faults::Rule& rule) {
        Faults::arm({rule});
        const Counts missing = live();
        if (rule.call == Call::MAP) {
            // Of several callers that find no room, the first has no memory, and its record goes.
            EXPECT_LE(missing[0] + missing[1], 1);
        } else if (rule.call == Call::THREAD || rule.call == Call::ALLOCATE) {
            // A start without a thread keeps its records in memory; one without a file logger logs
            // to the Android log. The other start is not touched.
            EXPECT_EQ((missing[0] > 0) + (missing[1] > 0), startsWithoutFile());
        } else {
            EXPECT_EQ(missing, Counts{});
        }
        EXPECT_EQ(mLog.count("Unable to open file."), 0U) << "one failed open is made up for";
    }

    [[nodiscard]] int startsWithoutFile() const {
        return mElsewhere + static_cast<int>(mLog.count("Unable to start the flush thread"));
    }

    int mElsewhere{0};  // starts without a file logger
    std::atomic<int> mErrnoChanges{0};
};

TEST_F(FileFaultsTest, OneFaultCostsNoMoreThanItMust) {
    Faults::arm({});
    EXPECT_EQ(live(), Counts{});
    EXPECT_EQ(mTape->accepted, mTape->used);
    tryEachFault([this](const Faults::Rule& rule) { strike(rule); });
}

TEST_F(FileFaultsTest, FaultsAtRandomCostOnlyWhatIsReported) {
    tryAtRandom(200, {2, 5, 20, 100}, [this](uint64_t seed, uint32_t oneIn) {
        Faults::armAtRandom(seed, oneIn);
        const Counts missing = live();
        if (startsWithoutFile() == 0 && mLog.count("Unable to open file.") == 0) {
            EXPECT_LE(missing[0] + missing[1], static_cast<int>(Faults::struck(Call::MAP)));
        }
    });
}

}  // namespace
}  // namespace JCam::Utils::JLog::File
