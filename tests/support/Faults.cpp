#include "support/Faults.h"

#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>

namespace JCam::Support::Faults {

namespace {

struct Kind {
    const char* name;
    std::vector<int> errors;
};

const Kind& kindOf(Call call) {
    // In the order of Call.
    static const std::array<Kind, static_cast<size_t>(Call::COUNT)> sKinds = {{
            {"madvise", {EINVAL}},
            {"malloc", {ENOMEM}},
            {"clock_gettime", {EINVAL}},
            {"close", {EINTR, EIO}},
            {"getdents64", {ENOENT}},
            {"fopen", {EACCES, ENOMEM}},
            {"fsync", {EIO, EINTR}},
            {"localtime_r", {EOVERFLOW}},
            {"flock", {EINTR, ENOLCK}},
            {"mkdir", {EACCES, EROFS, EEXIST}},
            {"mmap", {ENOMEM}},
            {"open", {EACCES, EMFILE, ENOSPC, EINTR}},
            {"process_vm_readv", {ENOSYS, EPERM}},
            {"read", {EINTR, EIO}},
            {"remove", {EACCES}},
            {"stat", {ENOENT, EACCES}},
            {"statvfs", {EIO}},
            {"pthread_create", {EAGAIN}},
            {"unlink", {EACCES, EBUSY}},
            {"munmap", {ENOMEM}},
            {"gettimeofday", {EINVAL}},
            {"write", {ENOSPC, EIO, EINTR, kShortWrite}},
    }};
    return sKinds[static_cast<size_t>(call)];
}

enum class Mode : uint8_t { OFF, COUNTING, ONE, RANDOM };

/// A site and its calls. The key has the address above the number of the call, so that one store
/// makes both known; 0 is free.
struct Slot {
    std::atomic<uint64_t> key{0};
    std::atomic<uint32_t> calls{0};
};

uint64_t keyOf(Call call, uintptr_t address) {
    return uint64_t{address} << 8 | static_cast<uint8_t>(call);
}

/// Orders and counters. Sequentially consistent: nothing here has to be fast.
struct State {
    std::atomic<Mode> mode{Mode::OFF};
    std::atomic<uint64_t> key{0};
    std::atomic<uint32_t> nth{0};
    std::atomic<int> error{0};
    std::atomic<uint64_t> seed{0};
    std::atomic<uint32_t> oneIn{0};
    std::atomic<pid_t> tid{0};  // 0: all threads
    std::array<std::atomic<uint32_t>, static_cast<size_t>(Call::COUNT)> struck{};
    std::array<Slot, 256> slots;
    std::atomic<Tape*> tape{nullptr};
};

/// Made before main(), and so before any child.
State& state() {
    static auto* const sState = new (mmap(nullptr, sizeof(State), PROT_READ | PROT_WRITE,
                                          MAP_SHARED | MAP_ANONYMOUS, -1, 0)) State;
    return *sState;
}

/// The code of the library.
struct CodeRange {
    uintptr_t begin{0};
    uintptr_t end{0};

    CodeRange() {
        dl_iterate_phdr(
                [](dl_phdr_info* info, size_t /*size*/, void* result) {
                    if (strstr(info->dlpi_name, "libjcam_jlog.so") == nullptr) {
                        return 0;
                    }
                    for (int i = 0; i < info->dlpi_phnum; ++i) {
                        const auto& segment = info->dlpi_phdr[i];
                        if (segment.p_type == PT_LOAD && (segment.p_flags & PF_X) != 0) {
                            auto* range = static_cast<CodeRange*>(result);
                            range->begin = info->dlpi_addr + segment.p_vaddr;
                            range->end = range->begin + segment.p_memsz;
                        }
                    }
                    return 1;
                },
                this);
    }
};

const CodeRange& libraryCode() {
    static const CodeRange sRange;
    return sRange;
}

/// All of it before a signal handler may need it.
const bool sPrepared =
        libraryCode().begin != 0 && state().mode == Mode::OFF && !kindOf(Call::OPEN).errors.empty();

thread_local int sInside = 0;

bool isLibraryCall(Call call, uintptr_t caller) {
    return call == Call::ALLOCATE ? sInside > 0
                                  : caller >= libraryCode().begin && caller < libraryCode().end;
}

/// Counts a call, and returns its number; 0 when there is no slot left.
uint32_t countCall(uint64_t key) {
    for (Slot& slot : state().slots) {
        uint64_t free = 0;
        if (slot.key.load() == key || slot.key.compare_exchange_strong(free, key) || free == key) {
            return ++slot.calls;
        }
    }
    return 0;
}

/// The next of a sequence of random numbers, which several threads may draw from.
uint64_t draw() {
    uint64_t x = state().seed.fetch_add(0x9E3779B97F4A7C15) + 0x9E3779B97F4A7C15;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EB;
    return x ^ (x >> 31);
}

void start(Mode mode) {
    disarm();
    for (Slot& slot : state().slots) {
        slot.key = 0;
        slot.calls = 0;
    }
    std::fill(state().struck.begin(), state().struck.end(), 0);
    state().mode = mode;
}

}  // namespace

const std::vector<int>& errorsOf(Call call) {
    return kindOf(call).errors;
}

std::string nameOf(Call call) {
    return kindOf(call).name;
}

void arm(const Order& order) {
    start(Mode::OFF);
    state().key = keyOf(order.call, order.address);
    state().nth = order.nth;
    state().error = order.error;
    state().mode = Mode::ONE;
}

void armAtRandom(uint64_t seed, uint32_t oneIn) {
    start(Mode::OFF);
    state().seed = seed;
    state().oneIn = oneIn;
    state().mode = Mode::RANDOM;
}

void armWithoutFault() {
    start(Mode::COUNTING);
}

void limitToThisThread() {
    state().tid = gettid();
}

void disarm() {
    state().mode = Mode::OFF;
    state().tid = 0;
}

std::vector<Site> sites() {
    std::vector<Site> result;
    for (const Slot& slot : state().slots) {
        if (const uint64_t key = slot.key) {
            result.push_back({static_cast<Call>(key & 0xFF), key >> 8, slot.calls});
        }
    }
    return result;
}

uint32_t struck() {
    uint32_t all = 0;
    for (const auto& count : state().struck) {
        all += count;
    }
    return all;
}

uint32_t struck(Call call) {
    return state().struck[static_cast<size_t>(call)];
}

std::vector<Order> ordersFor(const std::vector<Site>& sites) {
    std::vector<Order> orders;
    for (const Site& site : sites) {
        for (const int error : errorsOf(site.call)) {
            for (uint32_t nth = 1; nth <= site.calls; nth += nth < 16 ? 1 : nth / 4) {
                orders.push_back({site.call, site.address, nth, error});
            }
        }
    }
    return orders;
}

Inside::Inside() {
    ++sInside;
}

Inside::~Inside() {
    --sInside;
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

bool strikes(Call call, const void* caller) {
    const Mode mode = sPrepared ? state().mode.load() : Mode::OFF;
    const auto address = reinterpret_cast<uintptr_t>(caller);
    if (mode == Mode::OFF || !isLibraryCall(call, address)) {
        return false;
    }
    if (const pid_t tid = state().tid; tid != 0 && tid != gettid()) {
        return false;
    }
    const uint64_t key = keyOf(call, address);
    const uint32_t nth = countCall(key);
    int error = 0;
    if (mode == Mode::ONE && key == state().key && nth == state().nth) {
        error = state().error;
    } else if (mode == Mode::RANDOM && draw() % state().oneIn == 0) {
        const std::vector<int>& errors = errorsOf(call);
        error = errors[draw() % errors.size()];
    }
    if (error == 0) {
        return false;
    }
    ++state().struck[static_cast<size_t>(call)];
    errno = error;
    return true;
}

void keepWrite(const void* caller, const void* bytes, size_t count, ssize_t accepted) {
    Tape* tape = sPrepared ? state().tape.load() : nullptr;
    if (tape == nullptr || !isLibraryCall(Call::WRITE, reinterpret_cast<uintptr_t>(caller))) {
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
