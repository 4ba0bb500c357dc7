#pragma once

#include <iostream>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <android/log.h>

#include "support/ChildProcess.h"
#include "support/Faults.h"
#include "support/Interpose.h"
#include "support/LogCapture.h"
#include "support/TempFolder.h"

namespace JCam::Support {

/// What tests of faults share: most have something lived through again and again, with another
/// fault each time.
class FaultTest : public ::testing::Test {
  protected:
    FaultTest() { __android_log_set_minimum_priority(ANDROID_LOG_INFO); }
    ~FaultTest() override { __android_log_set_minimum_priority(ANDROID_LOG_DEFAULT); }

    /// Calls `live` for every fault that the calls counted so far can have, one at a time.
    template <typename Live>
    void tryEachFault(Live live) {
        std::set<std::pair<Faults::Call, uintptr_t>> sites;
        std::set<std::pair<Faults::Call, uintptr_t>> struckSites;
        int lives = 0;
        for (const Faults::Rule& rule : Faults::everyFault()) {
            SCOPED_TRACE(Faults::nameOf(rule));
            live(rule);
            ASSERT_FALSE(HasFailure());
            sites.insert({rule.call, rule.site});
            if (Faults::struck() > 0) {
                ++lives;
                struckSites.insert({rule.call, rule.site});
            }
        }
        EXPECT_GT(lives, 0);
        EXPECT_EQ(struckSites.size(), sites.size()) << "a fault at each site";
        std::cout << lives << " lives with a fault, at " << sites.size() << " call sites\n";
    }

    /// Calls `live` with a seed and with how rare a fault is to be, `lives` times.
    template <typename Live>
    void tryAtRandom(uint64_t lives, const std::vector<uint32_t>& oneIn, Live live) {
        uint64_t faults = 0;
        for (uint64_t seed = 0; seed < lives; ++seed) {
            SCOPED_TRACE("seed " + std::to_string(seed));
            live(seed, oneIn[seed % oneIn.size()]);
            ASSERT_FALSE(HasFailure());
            faults += Faults::struck();
        }
        std::cout << lives << " lives, " << faults << " faults\n";
    }

    /// How often each line was given to the kernel, from its level on if it has one.
    std::unordered_map<std::string, int> linesOnTape() {
        EXPECT_EQ(mTape->torn, 0U) << "writes that do not end with a line";
        EXPECT_LE(mTape->used, Faults::Tape::kBytes);
        std::unordered_map<std::string, int> lines;
        for (const std::string& line : splitLines(mTape->content())) {
            const size_t level = std::min(line.find(" I "), line.find(" D "));
            ++lines[level != std::string::npos ? line.substr(level) : line];
        }
        return lines;
    }

    LogCapture mLog;
    Interpose::Scope mInterpose;
    Shared<Faults::Tape> mTape;
};

}  // namespace JCam::Support
