#include "jlog/JLogMutex.h"

#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "support/Await.h"

namespace JCam::Utils::JLog {
namespace {

using Support::await;

TEST(JLogMutex, KnowsItsHolder) JLOG_NO_THREAD_SAFETY_ANALYSIS {
    JLogMutex mutex{JLogMutex::InheritPriority()};
    ASSERT_TRUE(mutex.lockUnlessHeld());
    EXPECT_FALSE(mutex.lockUnlessHeld());
    bool lockedByOther = false;
    std::thread other([&]() JLOG_NO_THREAD_SAFETY_ANALYSIS {
        lockedByOther = mutex.lockUnlessHeld();
        mutex.unlock();
    });
    mutex.unlock();
    other.join();
    EXPECT_TRUE(lockedByOther) << "it waits";
    EXPECT_TRUE(mutex.lockUnlessHeld());
    mutex.unlock();
}

/// The priority by which the kernel schedules a thread: negative for a real-time one.
int kernelPriority(pid_t tid) {
    std::ifstream file("/proc/self/task/" + std::to_string(tid) + "/stat");
    std::string word;
    while (file >> word && word.back() != ')') {
    }
    for (int i = 0; i < 16; ++i) {
        file >> word;
    }
    return std::stoi(word);
}

TEST(JLogMutex, ItsHolderHasThePriorityOfARealTimeWaiter) {
    const sched_param realTime = {.sched_priority = 10};
    JLogMutex mutex{JLogMutex::InheritPriority()};
    std::atomic<bool> isAllowed{true};
    std::thread waiter;
    {
        const JLogLock lock(mutex);
        EXPECT_GE(kernelPriority(gettid()), 0);
        waiter = std::thread([&] {
            isAllowed = pthread_setschedparam(pthread_self(), SCHED_FIFO, &realTime) == 0;
            if (isAllowed) {
                const JLogLock lockOfWaiter(mutex);
            }
        });
        const auto isBoosted = [&] { return kernelPriority(gettid()) == -11; };
        EXPECT_TRUE(await([&] { return isBoosted() || !isAllowed; }));
    }
    waiter.join();
    EXPECT_GE(kernelPriority(gettid()), 0);
    if (!isAllowed) {
        GTEST_SKIP() << "real-time threads are not allowed here";
    }
}

TEST(JLogCondition, AWaitMissesNoNotificationSinceItsTicket) {
    JLogMutex mutex;
    JLogCondition condition;
    const JLogCondition::Ticket ticket = condition.ticket();
    condition.notifyOne();
    const JLogLock lock(mutex);
    condition.waitFor(mutex, std::chrono::hours(1), ticket);
    EXPECT_FALSE(condition.waitUntil(mutex, std::chrono::steady_clock::now()));
    EXPECT_NE(condition.ticket(), ticket);
}

}  // namespace
}  // namespace JCam::Utils::JLog
