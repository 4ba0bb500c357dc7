#include "tools/jlog/analysis/Statistics.h"

#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <span>
#include <unordered_map>
#include <utility>

namespace JCam::Tool {

namespace {

constexpr int64_t kMillisecond = 1000;
constexpr int64_t kSecond = 1000 * kMillisecond;

/// The value that `percent` of the values do not exceed. Reorders them; there is one at least.
int64_t percentile(std::vector<int64_t>& values, size_t percent) {
    const size_t rank = (values.size() * percent + 99) / 100;
    const auto nth = values.begin() + static_cast<std::ptrdiff_t>(rank > 0 ? rank - 1 : 0);
    std::nth_element(values.begin(), nth, values.end());
    return *nth;
}

/// The last requests that a module has worked on. A request is new if it is none of them.
class RecentRequests {
  public:
    bool insert(uint32_t request) {
        const std::span known = std::span(mRequests).first(mCount);
        if (std::find(known.begin(), known.end(), request) != known.end()) {
            return false;
        }
        mRequests[mNext] = request;
        mNext = (mNext + 1) % mRequests.size();
        mCount = std::max(mCount, mNext == 0 ? mRequests.size() : mNext);
        return true;
    }

  private:
    std::array<uint32_t, 64> mRequests{};  // more than a camera has in flight
    size_t mNext = 0;
    size_t mCount = 0;
};

/// The numbers that are missing between the least and the greatest. Far jumps are another session's
/// numbers.
std::vector<NumberRange> findAbsent(std::vector<uint32_t>& numbers) {
    constexpr uint32_t kMaxAbsent = 1000;
    std::sort(numbers.begin(), numbers.end());
    std::vector<NumberRange> absent;
    for (size_t i = 1; i < numbers.size(); i++) {
        const uint32_t distance = numbers[i] - numbers[i - 1];
        if (distance > 1 && distance <= kMaxAbsent) {
            absent.push_back({numbers[i - 1] + 1, numbers[i] - 1});
        }
    }
    return absent;
}

/// Whether nearly all numbers in their range are there.
bool isDense(const std::vector<uint32_t>& sorted) {
    return !sorted.empty() &&
           (uint64_t{sorted.back()} - sorted.front() + 1) * 9 <= sorted.size() * uint64_t{10};
}

void findGapsOf(Cadence& cadence, const std::vector<Gap>& intervals) {
    if (intervals.empty()) {
        return;
    }
    std::vector<int64_t> values;
    values.reserve(intervals.size());
    for (const Gap& interval : intervals) {
        values.push_back(interval.interval);
    }
    cadence.median = percentile(values, 50);
    const auto limitOf = [](int64_t rhythm) {
        // No camera is faster than 200 frames a second.
        return std::max(rhythm * 3 / 2, 5 * kMillisecond);
    };
    cadence.limit = limitOf(cadence.median);
    const auto above = static_cast<size_t>(std::count_if(
            values.begin(), values.end(), [&](int64_t value) { return value > cadence.limit; }));
    if (above * 10 > values.size()) {
        // Bursts, or several streams: long intervals are part of the rhythm.
        cadence.limit = limitOf(percentile(values, 90));
    }
    std::copy_if(intervals.begin(), intervals.end(), std::back_inserter(cadence.gaps),
                 [&](const Gap& gap) { return gap.interval > cadence.limit; });
}

}  // namespace

std::vector<ScopeStatistics> summariseScopes(const Analysis& log, const Selection& selection) {
    std::vector<std::vector<int64_t>> durations(log.names.size());
    std::vector<ScopeStatistics> all(log.names.size());
    for (uint32_t i = 0; i < log.scopes.size(); i++) {
        const Scope& scope = log.scopes[i];
        if (!scope.isClosed() || !selection.takesScope(log, scope)) {
            continue;
        }
        const int64_t duration = scope.end - scope.begin;
        durations[scope.name].push_back(duration);
        ScopeStatistics& statistics = all[scope.name];
        if (statistics.slowest == kNone || duration > statistics.max) {
            statistics.max = duration;
            statistics.slowest = i;
        }
    }
    for (uint32_t name = 0; name < all.size(); name++) {
        all[name].name = name;
        all[name].count = durations[name].size();
        if (!durations[name].empty()) {
            all[name].p50 = percentile(durations[name], 50);
            all[name].p99 = percentile(durations[name], 99);
        }
    }
    std::erase_if(all, [](const ScopeStatistics& statistics) { return statistics.count == 0; });
    std::stable_sort(all.begin(), all.end(), [](const auto& a, const auto& b) {
        return std::pair(a.p99, a.max) > std::pair(b.p99, b.max);
    });
    return all;
}

std::vector<Request> listRequests(const Analysis& log, const Selection& selection) {
    std::vector<Request> requests;
    std::unordered_map<uint32_t, size_t> byNumber;
    for (uint32_t i = 0; i < log.scopes.size(); i++) {
        const Scope& scope = log.scopes[i];
        if (!selection.takesScope(log, scope)) {
            continue;
        }
        const int64_t begin = scope.begin == kNoTime ? scope.end : scope.begin;
        const auto [found, isNew] = byNumber.try_emplace(scope.request, requests.size());
        if (isNew ||
            (!requests[found->second].isOpen && begin > requests[found->second].end + kSecond)) {
            found->second = requests.size();
            Request& request = requests.emplace_back();
            request.number = scope.request;
            request.begin = begin;
            request.first = i;
        }
        Request& request = requests[found->second];
        request.end = std::max(request.end, std::max(begin, scope.end));
        request.isOpen = request.isOpen || scope.isOpen();
        request.scopes++;
        for (const uint32_t thread : {scope.thread, scope.exitThread}) {
            if (thread != kNone && std::find(request.threads.begin(), request.threads.end(),
                                             thread) == request.threads.end()) {
                request.threads.push_back(thread);
            }
        }
        const auto durationOf = [&](uint32_t index) {
            const Scope& measured = log.scopes[index];
            return measured.isClosed() ? measured.end - measured.begin : -1;
        };
        if (request.slowest == kNone || request.slowest == request.first ||
            durationOf(i) > durationOf(request.slowest)) {
            request.slowest = i;
        }
        if (std::none_of(request.names.begin(), request.names.end(), [&](uint32_t name) {
                return log.names[name].moduleId == log.names[scope.name].moduleId &&
                       log.names[name].module == log.names[scope.name].module;
            })) {
            request.names.push_back(scope.name);
        }
    }
    return requests;
}

std::vector<Cadence> findGaps(const Analysis& log, const Selection& selection) {
    struct Module {
        RecentRequests recent;
        std::vector<uint32_t> numbers;
        std::vector<Gap> intervals;
        int64_t last = kNoTime;
    };
    std::map<std::string, size_t> numbers;
    std::vector<Cadence> cadences(1);
    std::vector<size_t> moduleOfName;
    for (const ScopeName& name : log.names) {
        const auto [found, isNew] = numbers.try_emplace(moduleOf(name), cadences.size());
        if (isNew) {
            cadences.emplace_back().module = found->first;
        }
        moduleOfName.push_back(found->second);
    }
    std::vector<Module> modules(cadences.size());
    for (uint32_t i = 0; i < log.scopes.size(); i++) {
        const Scope& scope = log.scopes[i];
        Module& module = modules[moduleOfName[scope.name]];
        if (scope.begin == kNoTime || !selection.takesScope(log, scope) ||
            !module.recent.insert(scope.request)) {
            continue;
        }
        modules[0].numbers.push_back(scope.request);
        module.numbers.push_back(scope.request);
        if (module.last != kNoTime) {
            module.intervals.push_back({scope.begin - module.last, i});
        }
        module.last = scope.begin;
    }
    for (size_t i = 0; i < cadences.size(); i++) {
        std::vector<NumberRange> absent = findAbsent(modules[i].numbers);
        cadences[i].requests = modules[i].numbers.size();
        // What others have worked on is not absent from the series.
        if (i == 0 ? !selection.tid && !selection.module : isDense(modules[i].numbers)) {
            cadences[i].absent = std::move(absent);
        }
        findGapsOf(cadences[i], modules[i].intervals);
    }
    std::erase_if(cadences, [](const Cadence& cadence) { return cadence.requests == 0; });
    return cadences;
}

std::vector<InFlight> findInFlight(const Analysis& log, uint32_t ordinal) {
    std::map<uint32_t, InFlight> byThread;
    const auto add = [&](uint32_t index) {
        const Scope& scope = log.scopes[index];
        if (scope.enter < ordinal && (scope.exit == kNone || scope.exit >= ordinal)) {
            InFlight& thread = byThread[scope.thread];
            thread.thread = scope.thread;
            thread.scopes.push_back(index);
        }
    };
    if (ordinal >= log.events) {
        std::for_each(log.unclosed.begin(), log.unclosed.end(), add);
    } else {
        for (uint32_t i = 0; i < log.scopes.size(); i++) {
            add(i);
        }
    }
    std::vector<InFlight> result;
    result.reserve(byThread.size());
    for (auto& [thread, inFlight] : byThread) {
        result.push_back(std::move(inFlight));
    }
    return result;
}

}  // namespace JCam::Tool
