#include "tools/jlog/analysis/Analysis.h"

#include <algorithm>
#include <fstream>
#include <utility>

#include <fmt/format.h>

#include "tools/jlog/analysis/EntryMaker.h"
#include "tools/jlog/analysis/FirstPass.h"
#include "tools/jlog/analysis/Pairing.h"
#include "tools/jlog/analysis/RecordScan.h"
#include "tools/jlog/analysis/Translation.h"
#include "tools/jlog/analysis/WallClock.h"

namespace JCam::Tool {

namespace {

/// The open scopes of each thread, when it is known already what closes what.
class Stacks {
  public:
    explicit Stacks(const Analysis& log) : mLog(log), mStacks(log.threads.size()) {}

    void enter(uint32_t scope) {
        if (!mLog.names[mLog.scopes[scope].name].crossesThreads) {
            std::vector<uint32_t>& stack = mStacks[mLog.scopes[scope].thread];
            if (stack.size() == Pairing::kMaxDepth) {
                stack.erase(stack.begin(), stack.begin() + Pairing::kMaxDepth / 2);
            }
            stack.push_back(scope);
        }
    }
    void exit(uint32_t scope) {
        const Scope& closed = mLog.scopes[scope];
        std::vector<uint32_t>& stack = mStacks[closed.thread];
        const auto found = std::find(stack.rbegin(), stack.rend(), scope);
        if (closed.enter != kNone && found != stack.rend()) {
            // What was entered after it stays open, but encloses nothing any more.
            const auto from = found.base() - 1;
            stack.erase(from, closed.crossedThreads() ? from + 1 : stack.end());
        }
    }
    [[nodiscard]] uint32_t innermost(uint32_t thread) const {
        return mStacks[thread].empty() ? kNone : mStacks[thread].back();
    }

  private:
    const Analysis& mLog;
    std::vector<std::vector<uint32_t>> mStacks;
};

}  // namespace

std::string moduleOf(const ScopeName& name) {
    return name.module == "(null)" ? fmt::format("(null):{:x}", name.moduleId) : name.module;
}

Analysis::Analysis(SeriesFiles seriesFiles, std::optional<int64_t> knownBootTime)
        : files(std::move(seriesFiles)), start(parseStart(files.start)), bootTime(knownBootTime) {}

Analysis::Analysis(SeriesFiles seriesFiles, const Progress& progress,
                   std::optional<int64_t> knownBootTime)
        : Analysis(std::move(seriesFiles), knownBootTime) {
    // At full load. What is not used costs address space alone.
    constexpr uint64_t kBytesPerScope = 400;
    scopes.reserve(files.bytes() / kBytesPerScope);
    readRecords(*this, nullptr, progress);
    if (std::any_of(names.begin(), names.end(),
                    [](const ScopeName& name) { return name.crossesThreads; })) {
        pairAgain();
    }
}

void Analysis::stream(SeriesFiles seriesFiles, const Stream& visitor, const Progress& progress) {
    Analysis log(std::move(seriesFiles), std::nullopt);
    readRecords(log, &visitor, progress);
}

std::vector<uint32_t> Analysis::scopesByOrdinal() const {
    std::vector<uint32_t> owners(events, kNone);
    for (uint32_t i = 0; i < scopes.size(); i++) {
        if (scopes[i].enter != kNone) {
            owners[scopes[i].enter] = i;
        }
        if (scopes[i].exit != kNone) {
            owners[scopes[i].exit] = i;
        }
    }
    return owners;
}

void Analysis::pairAgain() {
    const std::vector<uint32_t> owners = scopesByOrdinal();
    const std::vector<Scope> before = std::exchange(scopes, {});
    scopes.reserve(before.size());
    Pairing pairing(scopes, names);
    for (uint32_t ordinal = 0; ordinal < events; ordinal++) {
        const Scope& scope = before[owners[ordinal]];
        if (scope.enter == ordinal) {
            pairing.enter({scope.thread, scope.name, scope.request, ordinal, scope.begin});
        } else {
            pairing.exit({scope.exitThread, scope.name, scope.request, ordinal, scope.end});
        }
    }
    unclosed = pairing.listUnclosed();
}

uint32_t Analysis::serialOf(uint32_t ordinal) const {
    const auto behind = std::upper_bound(
            runs.begin(), runs.end(), ordinal,
            [](uint32_t wanted, const SerialRun& run) { return wanted < run.ordinal; });
    return behind == runs.begin() ? kNone : behind[-1].serial + (ordinal - behind[-1].ordinal);
}

int64_t Analysis::wallOf(int64_t time, uint32_t ordinal) const {
    const auto behind = std::upper_bound(
            steps.begin(), steps.end(), ordinal,
            [](uint32_t wanted, const ClockStep& step) { return wanted < step.ordinal; });
    return behind == steps.begin() ? time : time + behind[-1].offset;
}

Fate Analysis::fateOf(const Scope& scope) const {
    if (scope.isClosed()) {
        return Fate::CLOSED;
    }
    if (scope.isOpen()) {
        return lastLoss > scope.enter ? Fate::EXIT_LOST : Fate::IN_FLIGHT;
    }
    return firstLoss <= scope.exit   ? Fate::ENTER_LOST
           : runs.front().serial > 1 ? Fate::BEFORE_LOG
                                     : Fate::NO_ENTER;
}

std::string Analysis::read(const Place& place) const {
    std::string bytes(place.size, '\0');
    if (place.file >= files.files.size()) {
        return {};
    }
    std::ifstream file(files.files[place.file].path, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(place.offset));
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<size_t>(file.gcount()));
    return bytes;
}

void Analysis::forEachEvent(const std::function<void(uint32_t, bool)>& visit) const {
    const std::vector<uint32_t> owners = scopesByOrdinal();
    for (uint32_t ordinal = 0; ordinal < events; ordinal++) {
        visit(owners[ordinal], scopes[owners[ordinal]].enter == ordinal);
    }
}

void Analysis::forEachRecord(const Visit& visit) const {
    const std::vector<uint32_t> owners = scopesByOrdinal();
    Stacks stacks(*this);
    WallClock clock = makeClock(*this);
    std::vector<Thread> knownThreads = threads;
    std::vector<ScopeName> knownNames = names;
    std::vector<std::string> knownTags = tags;
    Translation translation(knownThreads, knownNames, knownTags);
    EntryMaker entries(files.files.size());
    uint32_t ordinal = 0;
    uint64_t records = 0;
    auto step = steps.begin();
    int64_t offset = 0;
    scanRecords(files, [&](Block& block) {
        const Translation::Tables& tables = translation.of(block);
        entries.begin(block);
        for (const RawRecord& raw : block.records) {
            Entry entry = entries.entryOf(block, raw);
            uint32_t scope = kNone;
            if (raw.thread != kNone) {
                if (step != steps.end() && step->record == records) {
                    offset = step->offset;
                    step++;
                }
                records++;
                entry.thread = tables.threads[raw.thread];
                entry.wall = clock.wallOf(raw.date, raw.microseconds);
                entry.time = entry.wall - offset;
                const bool isDetails = raw.kind == Kind::DETAILS;
                entry.name = isDetails ? tables.tags[raw.name] : tables.scopes[raw.name];
                if (entry.thread >= threads.size() ||
                    entry.name >= (isDetails ? tags.size() : names.size())) {
                    continue;  // somebody has written into the file since the first pass
                }
                if (isDetails) {
                    scope = stacks.innermost(entry.thread);
                } else {
                    const bool isEnter = raw.kind == Kind::ENTER;
                    scope = ordinal < owners.size() ? owners[ordinal] : kNone;
                    if (scope != kNone && (scopes[scope].name != entry.name ||
                                           (scopes[scope].enter == ordinal) != isEnter)) {
                        scope = kNone;  // the same
                    }
                    if (scope != kNone) {
                        isEnter ? stacks.enter(scope) : stacks.exit(scope);
                    }
                    ordinal++;
                }
            }
            visit(entry, scope);
        }
        if (onRead) {
            onRead(block.bytes.size());
        }
    });
}

}  // namespace JCam::Tool
