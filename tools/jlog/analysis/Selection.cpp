#include "tools/jlog/analysis/Selection.h"

#include <algorithm>
#include <string_view>

#include "reader/Text.h"

namespace JCam::Tool {

namespace {

bool isHexadecimal(std::string_view digits, uint32_t wanted) {
    static_cast<void>(Reader::take(digits, "0x"));
    uint32_t number = 0;
    return Reader::takeNumber(digits, number, 16) && digits.empty() && number == wanted;
}

}  // namespace

bool isAsImportant(char level, char wanted) {
    constexpr std::string_view kLevels = "VDIWEF";
    return kLevels.find(level) >= kLevels.find(wanted);
}

bool Selection::takesSeries(const Analysis& log) const {
    return !pid || *pid == log.files.pid;
}

bool Selection::takesName(const ScopeName& name) const {
    return !module || name.module == *module || isHexadecimal(*module, name.moduleId);
}

bool Selection::takesScope(const Analysis& log, const Scope& scope) const {
    if (takesAllScopes()) {
        return true;
    }
    const auto isTid = [&](uint32_t thread) {
        return thread != kNone && log.threads[thread].tid == *tid;
    };
    if ((tid && !isTid(scope.thread) && !isTid(scope.exitThread)) ||
        !takesName(log.names[scope.name])) {
        return false;
    }
    return (scope.enter == kNone || log.wallOf(scope.begin, scope.enter) <= until) &&
           (scope.exit == kNone || log.wallOf(scope.end, scope.exit) >= since);
}

bool Selection::takes(const Analysis& log, const Entry& entry, const Scope* scope) const {
    if (entry.thread == kNone) {
        return takesAllScopes();
    }
    if (entry.wall < since || entry.wall > until ||
        (tid && log.threads[entry.thread].tid != *tid) || !isAsImportant(entry.level, level)) {
        return false;
    }
    if (!module) {
        return true;
    }
    const uint32_t name =
            entry.kind == Kind::DETAILS ? (scope == nullptr ? kNone : scope->name) : entry.name;
    return name != kNone && takesName(log.names[name]);
}

}  // namespace JCam::Tool
