#include "tools/jlog/analysis/Selection.h"

#include <algorithm>
#include <string_view>

namespace JCam::Tool {

namespace {

bool isModule(const ScopeName& name, const std::string& wanted) {
    if (name.module == wanted) {
        return true;
    }
    try {
        size_t used = 0;
        return std::stoul(wanted, &used, 16) == name.moduleId && used == wanted.size();
    } catch (const std::exception&) {
        return false;  // it is not a number
    }
}

}  // namespace

bool isAsImportant(char level, char wanted) {
    constexpr std::string_view kLevels = "VDIWEF";
    return kLevels.find(level) >= kLevels.find(wanted);
}

bool Selection::takesSeries(const Analysis& log) const {
    return !pid || *pid == log.files.pid;
}

bool Selection::takesScope(const Analysis& log, const Scope& scope) const {
    if (takesAllScopes()) {
        return true;
    }
    const auto isTid = [&](uint32_t thread) {
        return thread != kNone && log.threads[thread].tid == *tid;
    };
    if ((tid && !isTid(scope.thread) && !isTid(scope.exitThread)) ||
        (module && !isModule(log.names[scope.name], *module))) {
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
    return name != kNone && isModule(log.names[name], *module);
}

}  // namespace JCam::Tool
