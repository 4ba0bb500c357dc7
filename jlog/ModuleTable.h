#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "jlog/JLogger.h"

namespace JCam::Utils::JLog {

/// One row of the module name table. The name is NUL-terminated.
struct ModuleRow {
    uint64_t id;
    std::string_view name;
};

/// Every module that has a name, by ascending id. Log files contain these spellings.
inline constexpr ModuleRow gModuleTable[] = {
        {MODULE_INVALID, "MODULE_INVALID"}, {MODULE_DEFAULT, "DEFAULT"}, {MODULE_COMMON, "Common"},
        {MODULE_PREVIEW, "Preview"},        {MODULE_CAPTURE, "Capture"}, {MODULE_VIDEO, "Video"},
        {MODULE_FEATURE_SAT, "FeatureSAT"}, {MODULE_MAX, "MODULE_MAX"},
};

inline constexpr int kModuleRows = sizeof(gModuleTable) / sizeof(gModuleTable[0]);

/// The row whose id is exactly `moduleId`, or null. So an id with several bits has no name.
/// Allocates nothing; signal-safe.
constexpr const ModuleRow* findModule(uint64_t moduleId) {
    int low = 0;
    int high = kModuleRows - 1;
    while (low < high) {
        const int middle = (low + high) / 2;
        if (gModuleTable[middle].id == moduleId) {
            return &gModuleTable[middle];
        }
        if (gModuleTable[middle].id < moduleId) {
            low = middle + 1;
        } else {
            high = middle - 1;
        }
    }
    return low == high && gModuleTable[low].id == moduleId ? &gModuleTable[low] : nullptr;
}

/// Null for a module without a name.
constexpr const char* getModuleName(uint64_t moduleId) {
    const ModuleRow* row = findModule(moduleId);
    return row != nullptr ? row->name.data() : nullptr;
}

constexpr bool isModuleTableSorted() {
    for (int i = 1; i < kModuleRows; ++i) {
        if (gModuleTable[i - 1].id >= gModuleTable[i].id) {
            return false;
        }
    }
    return true;
}
static_assert(isModuleTableSorted(), "findModule searches by halves");

constexpr size_t longestModuleName() {
    size_t longest = 0;
    for (const ModuleRow& row : gModuleTable) {
        longest = row.name.size() > longest ? row.name.size() : longest;
    }
    return longest;
}

inline constexpr size_t kMaxModuleNameChars = longestModuleName();

}  // namespace JCam::Utils::JLog
