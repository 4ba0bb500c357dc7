#include <cutils/properties.h>

#include <unistd.h>
#include <cstdint>

#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

#include "PlatformTest.h"

namespace {

/// The returned length and the value.
std::pair<int, std::string> get(const char* key, const char* defaultValue) {
    std::string area(PROPERTY_VALUE_MAX, '#');
    const int length = property_get(key, area.data(), defaultValue);
    return {length, area.c_str()};
}

TEST(Properties, ValueOrDefaultIsCutToTheArea) {
    const std::string longest(91, 'x');
    const std::string tooLong(92, 'x');
    EXPECT_EQ(get("test.absent", nullptr), std::pair(0, std::string()));
    EXPECT_EQ(get(nullptr, tooLong.c_str()), std::pair(91, longest));
    EXPECT_EQ(property_set("test.empty", nullptr), 0);
    EXPECT_EQ(get("test.empty", "default"), std::pair(7, std::string("default")));
    EXPECT_EQ(property_set("test.value", longest.c_str()), 0);
    EXPECT_EQ(property_set("test.value", tooLong.c_str()), -1);
    EXPECT_EQ(get("test.value", "default"), std::pair(91, longest));
    EXPECT_EQ(property_set("ro.test.value", "first"), 0);
    EXPECT_EQ(property_set("ro.test.value", tooLong.c_str()), 0);
    EXPECT_EQ(get("ro.test.value", nullptr), std::pair(91, longest));
    EXPECT_EQ(property_set("", "x"), -1);
    EXPECT_EQ(property_set(nullptr, "x"), -1);
}

TEST(Properties, IntegersInferTheBaseAndIgnoreWhatFollows) {
    struct Case {
        const char* value;
        int32_t int32;
        int64_t int64;
    };
    for (const Case& each :
         {Case{" -0x1F\t", -31, -31}, Case{"010", 8, 8}, Case{"08", 0, 0},
          Case{"2147483648", 7, 2147483648}, Case{"-2147483648", INT32_MIN, INT32_MIN},
          Case{"9223372036854775807", 7, INT64_MAX}, Case{"9223372036854775808", 7, 7},
          Case{"", 7, 7}, Case{"  ", 7, 7}, Case{"4 2", 4, 4}, Case{"0x", 0, 0},
          Case{"-3dB", -3, -3}, Case{"true", 7, 7}}) {
        property_set("test.number", each.value);
        EXPECT_EQ(property_get_int32("test.number", 7), each.int32) << each.value;
        EXPECT_EQ(property_get_int64("test.number", 7), each.int64) << each.value;
    }
}

TEST(PropertyFile, IsLoadedWithTheLibraryAndReportsBadLines) {
    const std::string path = testing::TempDir() + "properties." + std::to_string(getpid());
    const std::string longValue(70000, 'x');
    std::ofstream(path, std::ios::binary)
            << "# comment\r\n\n  a.key\t= some=value \r\nno separator\n = value\ntwo words=1\n"
            << std::string("nul.key=1\0", 10) << "\nlong.key=" << longValue
            << "\nro.long.key=" << longValue << "\na.last=1\na.last=2";
    const auto ignored = [&path](int line, const char* fault) {
        return path + ":" + std::to_string(line) + ": line ignored: " + fault + "\n";
    };
    const std::string values = "[some=value]\n[]\n[]\n[" + longValue.substr(0, 91) + "]\n[2]\n";
    EXPECT_EQ(runProbe("JCAM_PROPERTIES='" + path + "'",
                       "get a.key get nul.key get long.key get ro.long.key get a.last"),
              ignored(4, "no '='") + ignored(5, "no key, or one with a blank in it") +
                      ignored(6, "no key, or one with a blank in it") + ignored(7, "a NUL byte") +
                      ignored(8, "value too long") + values);
    std::filesystem::remove(path);
}

TEST(PropertyFile, ThatCannotBeReadIsReportedOnce) {
    EXPECT_EQ(runProbe("JCAM_PROPERTIES=/nonexistent", "get a.key"),
              "JCAM_PROPERTIES: cannot read /nonexistent: No such file or directory\n[]\n");
    EXPECT_EQ(runProbe("JCAM_PROPERTIES=/", "get a.key"),
              "JCAM_PROPERTIES: cannot read /: Is a directory\n[]\n");
}

}  // namespace
