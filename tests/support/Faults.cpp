#include "support/Faults.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "support/ChildProcess.h"

namespace JCam::Support::Faults {

namespace {

constexpr auto kCalls = static_cast<size_t>(Call::COUNT);

/// The names of calls, and the errors that they may have.
struct Kind {
    const char* name;
    std::vector<int> errors;
};
Kind& kindOf(Call call) {
    static std::array<Kind, kCalls> sKinds;
    return sKinds[static_cast<size_t>(call)];
}

/// A site and its calls. The key has the address above the number of the call, so that one store
/// makes both known; 0 is free.
struct Slot {
    std::atomic<uint64_t> key{0};
    std::atomic<uint32_t> calls{0};

    [[nodiscard]] Call call() const { return static_cast<Call>(key & 0xFF); }
    [[nodiscard]] uintptr_t site() const { return key >> 8; }
};

struct ActiveRule {
    Rule rule;
    std::atomic<uint32_t> calls{0};  // that it was about
};

struct State {
    std::atomic<bool> isArmed{false};
    std::array<ActiveRule, 4> rules;
    std::atomic<size_t> ruleCount{0};
    std::atomic<uint32_t> oneIn{0};  // 0: none at random
    std::atomic<uint64_t> seed{0};
    std::atomic<pid_t> thread{0};  // 0: all
    std::array<std::atomic<uint32_t>, kCalls> struck{};
    std::array<Slot, 256> slots;
    std::atomic<Tape*> tape{nullptr};
};

/// Never unmapped: calls come until the process is gone.
State& state() {
    static const auto& sState = *new Shared<State>;
    return *sState;
}

/// Before any child is made, and before a signal handler needs it.
const bool sIsMade = !state().isArmed;

/// Adds to a counter. Relaxed: it must not put the threads that it counts in an order, which would
/// hide their races from ThreadSanitizer.
uint32_t count(std::atomic<uint32_t>& counter) {
    return counter.fetch_add(1, std::memory_order_relaxed) + 1;
}

void countAt(uint64_t key) {
    for (Slot& slot : state().slots) {
        uint64_t found = 0;
        if (slot.key.compare_exchange_strong(found, key, std::memory_order_relaxed) ||
            found == key) {
            count(slot.calls);
            return;
        }
    }
}

/// The next of a sequence of random numbers, which several threads may draw from.
uint64_t draw() {
    uint64_t x = state().seed.fetch_add(0x9E3779B97F4A7C15) + 0x9E3779B97F4A7C15;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EB;
    return x ^ (x >> 31);
}

int errorByRules(Call call, uintptr_t site, const char* path) {
    for (size_t i = 0; i < state().ruleCount; ++i) {
        const Rule& rule = state().rules[i].rule;
        if (rule.call == call && (rule.site == 0 || rule.site == site) &&
            (rule.path == nullptr || (path != nullptr && strcmp(rule.path, path) == 0))) {
            const uint32_t nth = count(state().rules[i].calls);
            if (nth >= rule.first && nth - rule.first < rule.times) {
                return rule.error;
            }
        }
    }
    return 0;
}

int errorAtRandom(Call call) {
    if (state().oneIn == 0 || draw() % state().oneIn != 0) {
        return 0;
    }
    const std::vector<int>& errors = kindOf(call).errors;
    return errors[draw() % errors.size()];
}

void startCounting() {
    for (Slot& slot : state().slots) {
        slot.key = 0;
        slot.calls = 0;
    }
    std::fill(state().struck.begin(), state().struck.end(), 0);
    state().isArmed = true;
}

}  // namespace

std::string nameOf(const Rule& rule) {
    return std::string(kindOf(rule.call).name) + " call " + std::to_string(rule.first) +
           ", error " + std::to_string(rule.error);
}

void arm(std::initializer_list<Rule> rules, pid_t thread) {
    disarm();
    for (const Rule& rule : rules) {
        ActiveRule& active = state().rules.at(state().ruleCount++);
        active.rule = rule;
        active.calls = 0;
    }
    state().thread = thread;
    startCounting();
}

void armAtRandom(uint64_t seed, uint32_t oneIn) {
    disarm();
    state().seed = seed;
    state().oneIn = oneIn;
    startCounting();
}

void disarm() {
    state().isArmed = false;
    state().ruleCount = 0;
    state().oneIn = 0;
    state().thread = 0;
}

uint32_t calls(Call call) {
    uint32_t all = 0;
    for (const Slot& slot : state().slots) {
        all += slot.call() == call ? slot.calls.load() : 0;
    }
    return all;
}

uint32_t struck(Call call) {
    return state().struck[static_cast<size_t>(call)];
}

uint32_t struck() {
    uint32_t all = 0;
    for (const auto& count : state().struck) {
        all += count;
    }
    return all;
}

std::vector<Rule> everyFault() {
    std::vector<Rule> rules;
    for (const Slot& slot : state().slots) {
        for (const int error : kindOf(slot.call()).errors) {
            for (uint32_t nth = 1; nth <= slot.calls; nth += nth < 16 ? 1 : nth / 4) {
                rules.push_back({slot.call(), error, nth, 1, slot.site()});
            }
        }
    }
    return rules;
}

void Tape::clear() {
    used = accepted = torn = 0;
    isBusy.clear();  // of a process that has ended
}

std::string Tape::content() const {
    return {text, std::min(used.load(), kBytes)};
}

void record(Tape* tape) {
    state().tape = tape;
}

void define(Call call, const char* name, std::initializer_list<int> errors) {
    kindOf(call) = {name, errors};
}

int strike(Call call, const char* path, const void* caller) {
    State& s = state();
    if (!s.isArmed || (s.thread != 0 && s.thread != gettid())) {
        return 0;
    }
    const auto site = reinterpret_cast<uintptr_t>(caller);
    countAt(uint64_t{site} << 8 | static_cast<uint8_t>(call));
    int error = errorByRules(call, site, path);
    if (error == 0) {
        error = errorAtRandom(call);
    }
    if (error != 0) {
        ++s.struck[static_cast<size_t>(call)];
    }
    return error;
}

void keepWrite(const void* bytes, size_t count, ssize_t accepted) {
    Tape* tape = state().tape;
    if (tape == nullptr) {
        return;
    }
    const auto* text = static_cast<const char*>(bytes);
    while (tape->isBusy.test_and_set()) {
    }
    tape->torn += count > 0 && text[count - 1] != '\n' ? 1 : 0;
    tape->accepted += accepted > 0 ? static_cast<size_t>(accepted) : 0;
    const size_t place = tape->used;
    if (place + count <= Tape::kBytes) {
        memcpy(tape->text + place, text, count);
    }
    tape->used = place + count;
    tape->isBusy.clear();
}

}  // namespace JCam::Support::Faults
