#include "ExpectedLine.h"

#include <algorithm>
#include <iterator>

#include <fmt/format.h>

namespace JCam::Soak {

namespace {

// What docs/log-files.md promises, in this program's own words: with the library's constants, a
// change of theirs would go unseen.
constexpr size_t kKeptNameBytes = 128;
constexpr size_t kKeptTextBytes = 1023;
constexpr size_t kNameColumn = 8;

char levelLetter(uint32_t level) {
    constexpr std::string_view kLetters = "VEWIDDV";
    return level < kLetters.size() ? kLetters[level] : 'V';
}

std::string_view moduleName(uint32_t moduleId) {
    switch (moduleId) {
        case 0x0:
            return "MODULE_INVALID";
        case 0x1:
            return "DEFAULT";
        case 0x2:
            return "Common";
        case 0x4:
            return "Preview";
        case 0x8:
            return "Capture";
        case 0x10:
            return "Video";
        case 0x20:
            return "FeatureSAT";
        default:
            return "(null)";
    }
}

}  // namespace

void renderLine(std::string& line, std::string_view stamp, pid_t pid, int tid, const Call& call,
                uint32_t serial) {
    line.clear();
    fmt::format_to(std::back_inserter(line), "{} {:5} {:5} ", stamp, pid, tid);
    const std::string_view name = call.name.substr(0, kKeptNameBytes);
    if (call.kind != CallKind::DETAILS) {
        fmt::format_to(std::back_inserter(line),
                       "D JLog    : R AppRequest:{} M[{}:{:x}] {}  :", call.number,
                       moduleName(call.moduleId), call.moduleId,
                       call.kind == CallKind::ENTER ? '+' : '-');
        line += name;
        fmt::format_to(std::back_inserter(line), " #{}\n", serial);
        return;
    }
    std::string_view text = call.text.substr(0, kKeptTextBytes);
    text = text.substr(0, text.find('\0'));
    line += levelLetter(call.number);
    line += ' ';
    line += name;
    line.append(kNameColumn - std::min(kNameColumn, name.size()), ' ');
    line += ": ";
    line += text;
    line += '\n';
}

}  // namespace JCam::Soak
