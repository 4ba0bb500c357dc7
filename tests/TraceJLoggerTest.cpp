#include "jlog/TraceJLogger.h"

#include <atomic>
#include <string>

#include <gtest/gtest.h>

#include <cutils/trace.h>

#include "jlog/TraceSection.h"

namespace {
std::atomic<int> sTagCalls{0};  // other tests of this binary log from many threads
}  // namespace

/// Stands in front of the platform's: every category is enabled, and calls are counted.
extern "C" __attribute__((visibility("default"))) uint64_t atrace_get_enabled_tags() {
    ++sTagCalls;
    return ~ATRACE_TAG_NOT_READY;
}

namespace JCam::Utils::JLog {
namespace {

std::string sectionOf(unsigned int moduleId, const std::string& name) {
    char section[kTraceSectionBytes];
    memset(section, 'x', sizeof(section));
    formatTraceSection(section, moduleId, name.c_str());
    return section;
}

TEST(TraceJLogger, SectionIsModuleAndNameCutTo127Characters) {
    EXPECT_EQ(sectionOf(MODULE_PREVIEW, "processFrame"), "Preview processFrame");
    EXPECT_EQ(sectionOf(0x6, "processFrame"), "  processFrame");
    EXPECT_EQ(sectionOf(MODULE_CAPTURE, ""), "Capture ");
    EXPECT_EQ(sectionOf(MODULE_VIDEO, std::string(300, 'n')), "Video " + std::string(121, 'n'));
    EXPECT_EQ(sectionOf(MODULE_VIDEO, std::string(121, 'n')), "Video " + std::string(121, 'n'));
}

TEST(TraceJLogger, OnlyEnterAndExitAskForTheCategories) {
    TraceJLogger logger;
    sTagCalls = 0;
    logger.onInit();
    logger.onLogDetails(MODULE_VIDEO, "Tag", LEVEL_ERROR, "text", 4);
    logger.onFlush(1);
    logger.onUninit();
    EXPECT_EQ(sTagCalls, 0);
    logger.onLogEnter(MODULE_VIDEO, "scope", 1);
    EXPECT_EQ(sTagCalls, 1);
    logger.onLogExit(MODULE_VIDEO, "scope", 1);
    EXPECT_EQ(sTagCalls, 2);
}

}  // namespace
}  // namespace JCam::Utils::JLog
