#pragma once

#include <iostream>
#include <set>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/Faults.h"
#include "support/Interpose.h"

namespace JCam::Support::Faults {

/// Lets `live` have every fault that the calls so far can have, one at a time.
template <typename Live>
void tryEachFault(Live live) {
    EXPECT_THAT(Interpose::unknownFunctions(), ::testing::IsEmpty());
    const std::vector<Site> all = sites();
    std::set<std::pair<Call, uintptr_t>> struckSites;
    int lives = 0;
    for (const Rule& rule : rulesFor(all)) {
        SCOPED_TRACE(nameOf(rule));
        live(rule);
        ASSERT_FALSE(::testing::Test::HasFailure());
        if (struck() > 0) {
            ++lives;
            struckSites.insert({rule.call, rule.site});
        }
    }
    EXPECT_EQ(struckSites.size(), all.size()) << "a fault at each site";
    std::cout << lives << " lives with a fault, at " << all.size() << " call sites\n";
}

}  // namespace JCam::Support::Faults
