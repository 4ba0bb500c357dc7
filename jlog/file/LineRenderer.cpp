#include "jlog/file/LineRenderer.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "jlog/file/Digits.h"
#include "jlog/ModuleTable.h"

namespace JCam::Utils::JLog::File {

namespace {

/// Levels beyond the table, which are those without a name, print as verbose.
constexpr char kLevelLetters[] = {'V', 'E', 'W', 'I', 'D', 'D', 'V'};
constexpr size_t kNameColumn = 8;

char* put(char* out, std::string_view text) {
    memcpy(out, text.data(), text.size());
    return out + text.size();
}

/// A text of a record. The bound costs nothing and keeps a damaged record from running on.
std::string_view boundedText(const char* text, size_t maxChars) {
    return {text, strnlen(text, maxChars)};
}

/// ".uuuuuu PPPPP TTTTT ".
char* putOrigin(char* out, std::string_view pid, const LogHeader& header) {
    *out++ = '.';
    out = putMicroseconds(out, header.timestamp.tv_nsec);
    memcpy(out, pid.data(), kPidTextBytes);
    out = putPadded5(out + pid.size(), header.tid);
    *out++ = ' ';
    return out;
}

// No line outgrows its room, whatever the numbers; the copies of a fixed size stay below it as
// well.
constexpr size_t kMaxOriginBytes = 1 + 20 + kPidTextBytes + 21;
static_assert(kMaxOriginBytes + kMaxNameChars +
                      sizeof("D JLog    : R AppRequest:4294967295 M[MODULE_INVALID:ffffffff] +  : "
                             "#4294967295\n") <=
              kMaxLineBytes);
static_assert(kMaxOriginBytes + 2 + kMaxNameChars + 2 + kMaxMessageChars + 1 <= kMaxLineBytes);

}  // namespace

size_t renderPid(char (&out)[kPidTextBytes], int32_t pid) {
    char text[2 * kPidTextBytes] = {' '};
    char* end = putPadded5(text + 1, pid);
    *end++ = ' ';
    memcpy(out, text, kPidTextBytes);
    return static_cast<size_t>(end - text);
}

char* renderEnterExit(char* out, std::string_view pid, const LogEnterExit& record,
                      Direction direction) {
    const ModuleRow* module = findModule(record.moduleId);
    out = putOrigin(out, pid, record.header);
    out = put(out, "D JLog    : R AppRequest:");
    out = putNumber(out, record.requestNo);
    out = put(out, " M[");
    out = put(out, module != nullptr ? module->name : "(null)");
    *out++ = ':';
    out = putNumber(out, record.moduleId, 16);
    out = put(out, "] ");
    *out++ = static_cast<char>(direction);
    out = put(out, "  :");
    out = put(out, boundedText(record.name(), kMaxNameChars));
    out = put(out, " #");
    out = putNumber(out, record.serial);
    *out++ = '\n';
    return out;
}

char* renderDetails(char* out, std::string_view pid, const LogDetails& record) {
    const std::string_view name = boundedText(record.name(), kMaxNameChars);
    out = putOrigin(out, pid, record.header);
    *out++ = record.level < sizeof(kLevelLetters) ? kLevelLetters[record.level] : 'V';
    *out++ = ' ';
    memset(out, ' ', kNameColumn);
    put(out, name);
    out += std::max(name.size(), kNameColumn);
    out = put(out, ": ");
    out = put(out, boundedText(record.message, kMaxMessageChars));
    *out++ = '\n';
    return out;
}

}  // namespace JCam::Utils::JLog::File
