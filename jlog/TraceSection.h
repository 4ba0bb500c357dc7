#pragma once

#include <cstddef>
#include <cstring>

#include "jlog/ModuleTable.h"

namespace JCam::Utils::JLog {

/// Including the NUL.
inline constexpr size_t kTraceSectionBytes = 128;

/// Writes "MODULE NAME" to `section`, cut to 127 characters. A module without a name becomes one
/// blank. Allocates nothing.
inline void formatTraceSection(char (&section)[kTraceSectionBytes], unsigned int moduleId,
                               const char* name) {
    constexpr size_t kMaxChars = kTraceSectionBytes - 1;
    const char* module = getModuleName(moduleId);
    if (module == nullptr) {
        module = " ";
    }
    size_t used = strnlen(module, kMaxChars);
    memcpy(section, module, used);
    if (used < kMaxChars) {
        section[used++] = ' ';
        const size_t count = strnlen(name, kMaxChars - used);
        memcpy(section + used, name, count);
        used += count;
    }
    section[used] = '\0';
}

}  // namespace JCam::Utils::JLog
