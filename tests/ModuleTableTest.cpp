#include "jlog/ModuleTable.h"

#include <gtest/gtest.h>

namespace JCam::Utils::JLog {
namespace {

TEST(ModuleTable, FindsExactlyTheIdsThatHaveARow) {
    EXPECT_STREQ(getModuleName(0), "MODULE_INVALID");
    EXPECT_STREQ(getModuleName(0x1), "DEFAULT");
    EXPECT_STREQ(getModuleName(0x2), "Common");
    EXPECT_STREQ(getModuleName(0x4), "Preview");
    EXPECT_STREQ(getModuleName(0x8), "Capture");
    EXPECT_STREQ(getModuleName(0x10), "Video");
    EXPECT_STREQ(getModuleName(0x20), "FeatureSAT");
    EXPECT_STREQ(getModuleName(0x8000000000000000), "MODULE_MAX");
    for (const uint64_t id : {0x3UL, 0x6UL, 0x21UL, 0x40UL, 0x80000000UL, 0xFFFFFFFFUL, ~0UL}) {
        EXPECT_EQ(getModuleName(id), nullptr) << id;
    }
}

}  // namespace
}  // namespace JCam::Utils::JLog
