// What the demo reads back: logs that are to be played again, and the lines of our own files. Any
// bytes are a file here.

#include <regex.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Check.h"
#include "ExactCopy.h"
#include "RecordLine.h"
#include "Replay.h"
#include "ThreadtimeLine.h"

namespace CameraHost {

namespace {

using JCam::Fuzz::check;
using JCam::Fuzz::checkEqual;
using JCam::Fuzz::ExactCopy;

/// A POSIX regular expression, which says the same as the parsers in another language.
class Pattern {
  public:
    explicit Pattern(const char* expression) {
        check(regcomp(&mPattern, expression, REG_EXTENDED) == 0, "the pattern compiles");
    }
    ~Pattern() { regfree(&mPattern); }
    Pattern(const Pattern&) = delete;
    Pattern& operator=(const Pattern&) = delete;

    /// The groups of `text`, which has no NUL; empty if it does not match.
    [[nodiscard]] std::vector<std::string> groupsOf(const std::string& text) const {
        constexpr size_t kMaxGroups = 8;
        regmatch_t matches[kMaxGroups] = {};
        std::vector<std::string> groups;
        if (regexec(&mPattern, text.c_str(), kMaxGroups, matches, 0) == 0) {
            for (size_t i = 1; i <= mPattern.re_nsub; ++i) {
                groups.push_back(
                        text.substr(static_cast<size_t>(matches[i].rm_so),
                                    static_cast<size_t>(matches[i].rm_eo - matches[i].rm_so)));
            }
        }
        return groups;
    }

  private:
    regex_t mPattern{};
};

/// A ThreadtimeLine that owns its texts.
struct Expected {
    int pid;
    int tid;
    char level;
    std::string tag;
    std::string text;
};

/// The number of `digits` if it is not above `max`.
std::optional<uint32_t> numberOf(const std::string& digits, uint32_t max, int base = 10) {
    const unsigned long long number = strtoull(digits.c_str(), nullptr, base);  // saturates
    return number <= max ? std::optional(static_cast<uint32_t>(number)) : std::nullopt;
}

std::optional<Expected> expectedOf(const std::string& line) {
    static const Pattern kPattern(
            "^(0[0-9]|1[0-2])-([0-2][0-9]|3[01]) +"
            "([01][0-9]|2[0-3]):[0-5][0-9]:([0-5][0-9]|60)\\.(([0-9]{3}){1,3}) +"
            "([0-9]+ +[0-9]+ +[VDIWEF] .*)$");
    static const Pattern kBehindTime("^([0-9]+) +([0-9]+) +(.) (.*)$");
    if (line.find('\0') != std::string::npos) {
        return std::nullopt;
    }
    const std::vector<std::string> groups = kPattern.groupsOf(line);
    if (groups.empty()) {
        return std::nullopt;
    }
    const std::vector<std::string> fields = kBehindTime.groupsOf(groups.back());
    const auto pid = numberOf(fields.at(0), INT_MAX);
    const auto tid = numberOf(fields.at(1), INT_MAX);
    // With the blank that an editor may have stripped.
    const std::string rest = fields.at(3) + ' ';
    const size_t colon = rest.find(": ", 8);
    if (!pid || !tid || colon == std::string::npos) {
        return std::nullopt;
    }
    const std::string text = rest.substr(colon + 2);
    return Expected{static_cast<int>(*pid), static_cast<int>(*tid), fields.at(2).front(),
                    rest.substr(0, rest.substr(0, colon).find_last_not_of(' ') + 1),
                    text.substr(0, text.empty() ? 0 : text.size() - 1)};
}

void checkLiesIn(std::string_view part, std::string_view whole) {
    check(part.empty() || (part.data() >= whole.data() &&
                           part.data() + part.size() <= whole.data() + whole.size()),
          "a part lies in its line");
}

void checkFields(const ThreadtimeLine& line, const Expected& expected) {
    check(line.pid == expected.pid && line.tid == expected.tid, "the ids are those of the line");
    check(line.level == expected.level, "the level is that of the line");
    checkEqual(line.tag, expected.tag, "the tag is that of the line");
    checkEqual(line.text, expected.text, "the text is that of the line");
}

/// The line in the form that our own files have.
std::string printed(const Expected& line) {
    char head[80];
    snprintf(head, sizeof(head), "12-31 23:59:60.000000 %5d %5d %c ", line.pid, line.tid,
             line.level);
    std::string tag = line.tag;
    tag.resize(std::max<size_t>(tag.size(), 8), ' ');
    return head + tag + ": " + line.text;
}

/// A RecordLine::Scope that owns its name.
struct ExpectedScope {
    uint32_t requestNo;
    uint32_t moduleId;
    char sign;
    std::string name;
    uint32_t serial;
};

std::optional<ExpectedScope> expectedScopeOf(const Expected& line) {
    static const Pattern kPattern(
            "^R AppRequest:([0-9]+) M\\[[^:]*:([0-9a-fA-F]+)\\] ([+-])  :(.*) #([0-9]+)$");
    const std::vector<std::string> groups = kPattern.groupsOf(line.text);
    if (groups.empty() || line.level != 'D') {
        return std::nullopt;
    }
    const auto requestNo = numberOf(groups[0], UINT32_MAX);
    const auto moduleId = numberOf(groups[1], UINT32_MAX, 16);
    const auto serial = numberOf(groups[4], UINT32_MAX);
    if (!requestNo || !moduleId || !serial) {
        return std::nullopt;
    }
    return ExpectedScope{*requestNo, *moduleId, groups[2].front(), groups[3], *serial};
}

void checkScope(const RecordLine::Scope& scope, const ExpectedScope& expected) {
    check(scope.requestNo == expected.requestNo && scope.moduleId == expected.moduleId &&
                  scope.sign == expected.sign && scope.serial == expected.serial,
          "the numbers are those of the line");
    checkEqual(scope.name, expected.name, "the name is that of the line");
}

/// `complete` and `pid` are those of the line's file.
void checkRecordLine(std::string_view text, bool complete, int pid,
                     const std::optional<Expected>& expected) {
    const LogFile file{};
    std::string_view reason;
    const auto record = parseRecordLine(pid, FileLine{file, 1, text, complete}, reason);
    check(record.has_value() == reason.empty(), "a line that is no record's has a reason");
    // Our own files always have microseconds.
    const bool ours = complete && expected && expected->pid == pid && text[21] == ' ';
    const bool isScope = ours && expected->tag == "JLog";
    const auto scope = isScope ? expectedScopeOf(*expected) : std::nullopt;
    check(record.has_value() == (isScope ? scope.has_value() : ours),
          "a line is a record's if and only if it fits");
    if (!record) {
        return;
    }
    checkFields({pid, record->tid, record->level, record->tag, record->text}, *expected);
    check(record->scope.has_value() == isScope, "the tag tells a scope from details");
    if (isScope) {
        checkLiesIn(record->scope->name, text);
        checkScope(*record->scope, *scope);
    }
}

std::optional<Expected> checkLine(const std::string& line) {
    std::optional<Expected> expected = expectedOf(line);
    const ExactCopy copy(line);
    std::string_view reason;
    const std::optional<ThreadtimeLine> parsed = parseThreadtimeLine(copy.view(), reason);
    check(parsed.has_value() == expected.has_value(), "a line is taken if and only if it fits");
    check(parsed.has_value() == reason.empty(), "a line that is not taken has a reason");
    if (parsed) {
        checkLiesIn(parsed->tag, copy.view());
        checkLiesIn(parsed->text, copy.view());
        checkFields(*parsed, *expected);
        const ExactCopy again(printed(*expected));
        const std::optional<ThreadtimeLine> fields = parseThreadtimeLine(again.view(), reason);
        check(fields.has_value(), "a line that was printed is taken");
        checkFields(*fields, *expected);
        checkRecordLine(again.view(), true, expected->pid, expected);
    }
    for (const int pid : {expected ? expected->pid : 0, INT_MAX}) {
        checkRecordLine(copy.view(), true, pid, expected);
        checkRecordLine(copy.view(), false, pid, expected);
    }
    uint32_t thread = 0;
    uint64_t number = 0;
    static_cast<void>(parseSeq(copy.view(), thread, number));
    return expected;
}

std::vector<std::string> linesOf(std::string_view bytes) {
    std::vector<std::string> lines;
    while (!bytes.empty()) {
        const size_t end = std::min(bytes.find('\n'), bytes.size());
        lines.emplace_back(bytes.substr(0, end));
        bytes.remove_prefix(std::min(end + 1, bytes.size()));
    }
    return lines;
}

/// What loadReplay() makes of a file of these bytes.
ReplayScript loadBytes(std::string_view bytes) {
    static const int kFd = memfd_create("replay", MFD_CLOEXEC);
    check(ftruncate(kFd, 0) == 0 &&
                  pwrite(kFd, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
          "the file is written");
    return loadReplay("/proc/self/fd/" + std::to_string(kFd));
}

void checkMessage(const ReplayScript::Message& message, const Expected& expected) {
    static const std::map<char, unsigned int> kLevels = {{'V', 6}, {'D', 5}, {'I', 3},
                                                         {'W', 2}, {'E', 1}, {'F', 1}};
    check(message.level == kLevels.at(expected.level), "the level is that of the letter");
    checkEqual(message.tag, expected.tag, "the script has the tag");
    checkEqual(message.text, expected.text, "the script has the text");
}

void checkFile(std::string_view bytes) {
    const ReplayScript script = loadBytes(bytes);
    const std::vector<std::string> lines = linesOf(bytes);
    std::map<int, size_t> messages;  // by thread
    std::vector<size_t> unreadable;
    size_t fatal = 0;
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::optional<Expected> expected = checkLine(lines[i]);
        if (!expected) {
            unreadable.push_back(i + 1);
            continue;
        }
        const auto thread = script.threads.find(expected->tid);
        const size_t place = messages[expected->tid]++;
        check(thread != script.threads.end() && place < thread->second.size(),
              "the script has every message");
        checkMessage(thread->second[place], *expected);
        fatal += expected->level == 'F' ? 1 : 0;
    }
    for (const auto& [tid, ofThread] : script.threads) {
        check(ofThread.size() == messages[tid], "the script has no other message");
    }
    check(script.messages + script.unreadable == lines.size(), "every line is counted");
    check(script.unreadable == unreadable.size(), "unreadable lines are counted");
    check(script.fatal == fatal, "fatal messages are counted");
    check(script.firstUnreadable.size() == std::min<size_t>(unreadable.size(), 5),
          "the first unreadable lines are named");
    for (size_t i = 0; i < script.firstUnreadable.size(); ++i) {
        check(script.firstUnreadable[i].number == unreadable[i] &&
                      !script.firstUnreadable[i].reason.empty(),
              "an unreadable line is named with its reason");
    }
}

}  // namespace

}  // namespace CameraHost

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CameraHost::checkFile({reinterpret_cast<const char*>(data), size});
    return 0;
}
