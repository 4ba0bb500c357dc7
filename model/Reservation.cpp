/*
 * The reservation without a lock, the hand-over to the flush thread and the walk of a crash dump
 * under the C++ memory model, for the verifier Relacy, with the names of the C++ code.
 * BufferHandOver.pml has more of the protocol and every order of its steps, but no loads of stale
 * values. This model has the memory orders. scripts/check_model.sh runs it.
 *
 * Relacy runs the threads as fibers. At each atomic operation it chooses who runs next, and which
 * of the values that the memory model allows a load returns. It reports a data race on any rl::var.
 *
 * Modelled: reserve, fill, publish and decrement; the path with the mutex; retirement; the wait for
 * writers, with epoch, count of waiters and futex; render, clear, pool, and the records that go
 * back to the kernel, while their head stays; the gate of a dump, and the dump as a thread that
 * only reads. A head is used again at once, so a caller that is held up meets a later life of the
 * same word.
 *
 * A unit of a record is two things here: an rl::var for callers and flush thread, whose accesses
 * must not race, and a relaxed atomic for the dump, which reads while callers write. So the flush
 * thread may rely on the count alone, not on the type of a record.
 *
 * Assumed:
 *   - The flush thread retires empty buffers, too, which the code does not: a second life then
 *     takes fewer steps.
 *   - The futex compares and blocks in one step, behind a full barrier, as the kernel's does.
 *   - A record is due in a dump if its call happens before the dump (mReturned).
 *   - The heads exist from the start. So nothing here needs the acquire of the load of mCurrent.
 *     A caller needs it for a head that is made while it runs.
 *
 * Left out: the idle pause, flush requests and stop; the way of a dump from the queue's other end;
 * the full fence of publish(), because Relacy takes such a fence for more than it is; timed waits.
 *
 * What Relacy does not find:
 *   - A load that takes effect after a later store of its thread. So the load of the ticket passes
 *     also without acquire, which it needs.
 *   - What goes wrong only because a plain store ends a release sequence of its own thread, as it
 *     does since C++20.
 *   - A load of a value older than the newest two, or than the newest three with RANDOM.
 *
 * Properties:
 *   SERIAL_ORDER   Serials are 1, 2, 3... in the order of reservation, across buffers.
 *   ZERO_MEMORY    The place of a record is zero before it is filled.
 *   COMPLETE       A record that is rendered or dumped as complete is whole.
 *   RENDERED_ONCE  Every record is rendered once, in the order of reservation.
 *   DUMPED         A dump finds every record that is due, or the file has it before.
 *   DUMPED_ONCE    A dump finds no record twice.
 *   NO_INSIDE      A dump takes only the first word of a record for a first word.
 * Relacy adds: no data race, no use of freed memory, no deadlock, no leak.
 *
 * Parameters, as NAME=VALUE:
 *   CALLERS, RECORDS   threads that log, and how many records each
 *   RETIREMENTS        how often the flush thread retires the current buffer; with 0, there is no
 *                      such thread
 *   DUMP               1: a thread dumps
 *   BUFFERS, CAPACITY  heads, and records in a buffer
 *   KERNEL             1: no pool, the kernel takes the records of each recycled buffer
 *   BOUND              search all executions with at most so many preemptions
 *   FULL               1: search all executions
 *   RANDOM             try so many executions, the same ones each time
 *   MUTANT             a fault, by its place in enum Fault
 */

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include <relacy/relacy.hpp>

// Relacy's name for the place of an access in the source.
#ifdef __clang__
#pragma clang diagnostic ignored "-Wdollar-in-identifier-extension"
#endif

namespace {

enum class Fault {
    NONE,
    EXCHANGE_WITHOUT_ACQUIRE,
    READ_BEFORE_EXCHANGE,
    OPEN_WITHOUT_RELEASE,
    OPEN_BEFORE_SLOT,
    NO_CLOSE,
    DECREMENT_WITHOUT_RELEASE,
    LOOK_WITHOUT_ACQUIRE,
    NO_WAIT_FOR_WRITERS,
    TICKET_AFTER_LOOK,
    WAITERS_WITHOUT_ORDER,
    NO_CLEAR,
    NO_RELEASE_FENCE,
    NO_ACQUIRE_FENCE,
    NO_SECOND_READ,
    TYPE_WITHOUT_ACQUIRE,
    GATE_WITHOUT_ORDER,
    SLOT_WITHOUT_ORDER,
    UNLINK_WITHOUT_ORDER,
};

struct Parameter {
    const char* name;
    unsigned value;
};

Parameter gCallers = {"CALLERS", 2};
Parameter gRecords = {"RECORDS", 1};
Parameter gRetirements = {"RETIREMENTS", 2};
Parameter gDump = {"DUMP", 0};
Parameter gBuffers = {"BUFFERS", 2};
Parameter gCapacity = {"CAPACITY", 2};
Parameter gKernel = {"KERNEL", 0};
Parameter gBound = {"BOUND", 0};
Parameter gFull = {"FULL", 0};
Parameter gRandom = {"RANDOM", 0};
Parameter gMutant = {"MUTANT", 0};

bool isMutant(Fault fault) {
    return gMutant.value == static_cast<unsigned>(fault);
}

rl::memory_order unlessMutant(Fault fault, rl::memory_order order,
                              rl::memory_order weaker = rl::mo_relaxed) {
    return isMutant(fault) ? weaker : order;
}

#define CHECK(property, condition) \
    RL_ASSERT_IMPL(condition, rl::test_result_user_assert_failed, #property, $)

// Buffer::state: writers pending, serials, units used, flags.
constexpr uint64_t kPendingMask = 0xFFFF;
constexpr uint64_t kOneSerial = uint64_t{1} << 16;
constexpr uint64_t kOneUnit = uint64_t{1} << 32;
constexpr uint64_t kAwaited = uint64_t{1} << 62;
constexpr uint64_t kClosed = uint64_t{1} << 63;

constexpr uint32_t serialsOf(uint64_t state) {
    return static_cast<uint32_t>(state / kOneSerial & 0xFFFF);
}

constexpr uint32_t unitsOf(uint64_t state) {
    return static_cast<uint32_t>(state / kOneUnit & 0xFFFF);
}

/// A record has two units: the first word, which is size << 8 | type, and kText | serial.
constexpr uint32_t kRecordUnits = 2;
constexpr uint32_t kSize = kRecordUnits << 8;
constexpr uint32_t kType = 1;
constexpr uint32_t kText = 0x10000;
constexpr uint64_t kRequest = 1 + kOneSerial + kRecordUnits * kOneUnit;

constexpr unsigned kMaxBuffers = 3;
constexpr unsigned kMaxUnits = 3 * kRecordUnits;

uint32_t capacity() {
    return gCapacity.value * kRecordUnits;
}

/// What is mapped and unmapped.
class Records {
  public:
    Records() {
        for (uint32_t place = 0; place < capacity(); ++place) {
            mUnits[place]($) = 0;
            mSeenByDump[place]($).store(0, rl::mo_relaxed);
        }
    }

    void store(uint32_t place, uint32_t value, rl::memory_order order = rl::mo_relaxed) {
        mUnits[place]($) = value;
        if (gDump.value != 0) {
            mSeenByDump[place]($).store(value, order);
        }
    }

    uint32_t load(uint32_t place) { return mUnits[place]($); }

    uint32_t loadForDump(uint32_t place, rl::memory_order order) {
        return mSeenByDump[place]($).load(order);
    }

  private:
    rl::var<uint32_t> mUnits[kMaxUnits];
    rl::atomic<uint32_t> mSeenByDump[kMaxUnits];
};

struct Buffer {
    rl::atomic<uint64_t> state;
    rl::atomic<Buffer*> next;
    rl::var<Records*> data;
    rl::var<uint32_t> serialBase;
};

struct Reservation {
    Buffer* buffer;  // null: dropped, without memory
    Records* data;
    uint32_t place;
    uint32_t serial;
};

template <int kThreads>
class Logger : public rl::test_suite<Logger<kThreads>, kThreads> {
  public:
    void before() {
        for (unsigned i = 0; i < gBuffers.value; ++i) {
            mBuffers[i].state($).store(kClosed, rl::mo_relaxed);
            mBuffers[i].next($).store(nullptr, rl::mo_relaxed);
            mBuffers[i].data($) = i == 0 || gKernel.value == 0 ? new Records : nullptr;
            mEmptyBuffers[i]($) = i == 0 ? nullptr : &mBuffers[i];
        }
        mBuffers[0].serialBase($) = 0;
        mBuffers[0].state($).store(0, rl::mo_relaxed);
        mCurrent($).store(&mBuffers[0], rl::mo_relaxed);
        mFront($).store(nullptr, rl::mo_relaxed);
        mBack($) = nullptr;
        mSerial($) = 0;
        mEpoch($).store(0, rl::mo_relaxed);
        mWaiters($).store(0, rl::mo_relaxed);
        mDumping($).store(0, rl::mo_relaxed);
        mReturned($).store(0, rl::mo_relaxed);
    }

    void thread(unsigned index) {
        if (index < gCallers.value) {
            for (unsigned i = 0; i < gRecords.value; ++i) {
                log();
            }
        } else if (index == gCallers.value && gRetirements.value > 0) {
            for (unsigned i = 0; i < gRetirements.value; ++i) {
                flush();
            }
        } else {
            dump();
        }
    }

    void after() {
        Buffer* buffer = mFront($).load(rl::mo_relaxed);
        for (; buffer != nullptr; buffer = buffer->next($).load(rl::mo_relaxed)) {
            render(*buffer, buffer->state($).load(rl::mo_relaxed));
        }
        buffer = mCurrent($).load(rl::mo_relaxed);
        if (buffer != nullptr) {
            render(*buffer, buffer->state($).load(rl::mo_relaxed));
        }
        CHECK(RENDERED_ONCE, mRendered == mReserved);
        for (unsigned i = 0; i < gBuffers.value; ++i) {
            Records* data = mBuffers[i].data($);
            delete data;
        }
    }

  private:
    // Callers.

    void log() {
        Reservation reserved = {};
        if (!reserve(&reserved) && !reserveWithMutex(&reserved)) {
            return;
        }
        Records& data = *reserved.data;
        const uint32_t place = reserved.place;
        CHECK(ZERO_MEMORY, data.load(place) == 0 && data.load(place + 1) == 0);
        data.store(place, kSize);
        if (gDump.value != 0 && !isMutant(Fault::NO_RELEASE_FENCE)) {
            rl::atomic_thread_fence(rl::mo_release, $);
        }
        data.store(place + 1, kText | reserved.serial);
        data.store(place, kSize | kType, rl::mo_release);
        finishWriter(*reserved.buffer);
        if (gDump.value != 0) {
            mReturned($).fetch_or(1U << reserved.serial, rl::mo_release);
        }
    }

    bool reserve(Reservation* out) {
        Buffer* buffer = mCurrent($).load(rl::mo_acquire);
        if (buffer == nullptr) {
            return false;
        }
        uint32_t serialBase = 0;
        if (isMutant(Fault::READ_BEFORE_EXCHANGE)) {
            serialBase = buffer->serialBase($);
        }
        uint64_t seen = buffer->state($).load(rl::mo_relaxed);
        do {
            if ((seen & kClosed) != 0 || unitsOf(seen) + kRecordUnits > capacity()) {
                return false;
            }
        } while (!buffer->state($).compare_exchange_weak(
                seen, seen + kRequest,
                unlessMutant(Fault::EXCHANGE_WITHOUT_ACQUIRE, rl::mo_acquire), rl::mo_relaxed));
        if (!isMutant(Fault::READ_BEFORE_EXCHANGE)) {
            serialBase = buffer->serialBase($);
        }
        *out = {buffer, buffer->data($), unitsOf(seen), serialBase + serialsOf(seen) + 1};
        CHECK(SERIAL_ORDER, out->serial == ++mReserved);
        return true;
    }

    bool reserveWithMutex(Reservation* out) {
        mMutex.lock($);
        if (!reserve(out)) {
            retireCurrentLocked(out);
        }
        mMutex.unlock($);
        return out->buffer != nullptr;
    }

    void finishWriter(Buffer& buffer) {
        const uint64_t before = buffer.state($).fetch_sub(
                1, unlessMutant(Fault::DECREMENT_WITHOUT_RELEASE, rl::mo_release));
        if ((before & (kAwaited | kPendingMask)) == (kAwaited | 1)) {
            notify();
        }
    }

    // Retirement.

    /// With `out`, opens the successor with the caller's own record in it.
    void retireCurrentLocked(Reservation* out) {
        Buffer* next = allocEmptyBuffer();
        Buffer* full = mCurrent($).load(rl::mo_relaxed);
        if (full != nullptr) {
            const uint64_t last = isMutant(Fault::NO_CLOSE)
                                          ? full->state($).load(rl::mo_acquire)
                                          : full->state($).fetch_or(kClosed, rl::mo_acquire);
            mSerial($) = full->serialBase($) + serialsOf(last);
        }
        if (isMutant(Fault::OPEN_BEFORE_SLOT)) {
            openLocked(next, out);
        }
        if (full != nullptr) {
            pushBack(*full);
        }
        mCurrent($).exchange(
                next, unlessMutant(Fault::SLOT_WITHOUT_ORDER, rl::mo_seq_cst, rl::mo_acq_rel));
        if (!isMutant(Fault::OPEN_BEFORE_SLOT)) {
            openLocked(next, out);
        }
    }

    void openLocked(Buffer* buffer, Reservation* out) {
        if (buffer == nullptr) {
            return;
        }
        buffer->serialBase($) = mSerial($);
        buffer->state($).store(out != nullptr ? kRequest : 0,
                               unlessMutant(Fault::OPEN_WITHOUT_RELEASE, rl::mo_release));
        if (out != nullptr) {
            *out = {buffer, buffer->data($), 0, mSerial($) + 1};
            CHECK(SERIAL_ORDER, out->serial == ++mReserved);
        }
    }

    /// From the pool; with KERNEL, a free head with fresh records.
    Buffer* allocEmptyBuffer() {
        for (unsigned i = 0; i < gBuffers.value; ++i) {
            Buffer* buffer = mEmptyBuffers[i]($);
            if (buffer != nullptr) {
                mEmptyBuffers[i]($) = nullptr;
                if (buffer->data($) == nullptr) {
                    buffer->data($) = new Records;
                }
                return buffer;
            }
        }
        return nullptr;
    }

    void pushBack(Buffer& buffer) {
        buffer.next($).store(nullptr, rl::mo_relaxed);
        Buffer* back = mBack($);
        (back != nullptr ? back->next : mFront)($).store(&buffer, rl::mo_release);
        mBack($) = &buffer;
    }

    // Flush thread.

    void flush() {
        mMutex.lock($);
        if (mCurrent($).load(rl::mo_relaxed) != nullptr) {
            retireCurrentLocked(nullptr);
        }
        Buffer* front = mFront($).load(rl::mo_relaxed);
        mMutex.unlock($);
        while (front != nullptr) {
            const uint64_t state = awaitWriters(*front);
            render(*front, state);
            front = recycleFront(*front, state);
        }
    }

    uint64_t awaitWriters(Buffer& buffer) {
        const rl::memory_order order = unlessMutant(Fault::LOOK_WITHOUT_ACQUIRE, rl::mo_acquire);
        uint64_t state = buffer.state($).load(order);
        while ((state & kPendingMask) > 0 && !isMutant(Fault::NO_WAIT_FOR_WRITERS)) {
            int ticket = mEpoch($).load(rl::mo_acquire);
            state = buffer.state($).fetch_or(kAwaited, order);
            if (isMutant(Fault::TICKET_AFTER_LOOK)) {
                ticket = mEpoch($).load(rl::mo_acquire);
            }
            if ((state & kPendingMask) > 0) {
                wait(ticket);
            }
        }
        return state;
    }

    void render(Buffer& buffer, uint64_t state) {
        for (uint32_t place = 0; place < unitsOf(state); place += kRecordUnits) {
            Records& data = *buffer.data($);
            CHECK(COMPLETE, data.load(place) == (kSize | kType));
            CHECK(RENDERED_ONCE, data.load(place + 1) == (kText | ++mRendered));
        }
    }

    /// Returns the next buffer of the queue.
    Buffer* recycleFront(Buffer& buffer, uint64_t state) {
        mMutex.lock($);
        Buffer* next = buffer.next($).load(rl::mo_relaxed);
        mFront($).store(next,
                        unlessMutant(Fault::UNLINK_WITHOUT_ORDER, rl::mo_seq_cst, rl::mo_release));
        if (next == nullptr) {
            mBack($) = nullptr;
        }
        mMutex.unlock($);
        if (gDump.value != 0 &&
            mDumping($).load(
                    unlessMutant(Fault::GATE_WITHOUT_ORDER, rl::mo_seq_cst, rl::mo_acquire)) != 0) {
            return next;  // the buffer is leaked
        }
        Records* data = buffer.data($);
        if (gKernel.value != 0) {
            buffer.data($) = nullptr;
            delete data;
        } else if (!isMutant(Fault::NO_CLEAR)) {
            for (uint32_t place = 0; place < unitsOf(state); ++place) {
                data->store(place, 0);
            }
        }
        buffer.state($).store(kClosed, rl::mo_relaxed);
        mMutex.lock($);
        mEmptyBuffers[&buffer - mBuffers]($) = &buffer;
        mMutex.unlock($);
        return next;
    }

    // Condition variable.

    void notify() {
        mEpoch($).fetch_add(1, rl::mo_seq_cst);
        if (mWaiters($).load(unlessMutant(Fault::WAITERS_WITHOUT_ORDER, rl::mo_seq_cst,
                                          rl::mo_acquire)) > 0) {
            futex(&mEpoch, FUTEX_WAKE, 1, nullptr, nullptr, 0);
        }
    }

    void wait(int ticket) {
        mWaiters($).fetch_add(1, rl::mo_seq_cst);
        futexWait(ticket);
        mWaiters($).fetch_sub(1, rl::mo_relaxed);
    }

    /// Not Relacy's, which has a fence and then compares with a load that may return a stale value.
    void futexWait(int ticket) {
        rl::context& context = rl::ctx();
        context.sched();
        const rl::preemption_disabler oneStep(context);
        if (mEpoch($).load(rl::mo_seq_cst) == ticket) {
            mEpoch.wait(context, false, false, $);
        }
    }

    // Crash dump.

    void dump() {
        const uint32_t due = mReturned($).load(rl::mo_acquire);
        mDumping($).store(1, rl::mo_seq_cst);
        Buffer* current = mCurrent($).load(rl::mo_seq_cst);
        Buffer* queued = mFront($).load(rl::mo_seq_cst);
        const uint32_t inFile = mRendered;
        uint32_t found = 0;
        for (; queued != nullptr && queued != current;
             queued = queued->next($).load(rl::mo_seq_cst)) {
            writeBuffer(*queued, &found);
        }
        if (current != nullptr) {
            writeBuffer(*current, &found);
        }
        for (uint32_t serial = 1; due >> serial != 0; ++serial) {
            CHECK(DUMPED, ((~due | found) >> serial & 1) != 0 || serial <= inFile);
        }
    }

    void writeBuffer(Buffer& buffer, uint32_t* found) {
        const uint32_t end = unitsOf(buffer.state($).load(rl::mo_acquire));
        if (end == 0) {
            return;
        }
        Records& data = *buffer.data($);
        uint32_t place = skipZeros(data, 0, end);
        for (; place < end; place = skipZeros(data, place + kRecordUnits, end)) {
            const uint32_t word = data.loadForDump(
                    place, unlessMutant(Fault::TYPE_WITHOUT_ACQUIRE, rl::mo_acquire));
            CHECK(NO_INSIDE, (word & ~kType) == kSize);
            if ((word & kType) != 0) {
                const uint32_t text = data.loadForDump(place + 1, rl::mo_relaxed);
                CHECK(COMPLETE, (text & kText) != 0);
                const uint32_t serial = text & ~kText;
                CHECK(DUMPED_ONCE, (*found >> serial & 1) == 0);
                *found |= 1U << serial;
            }
        }
    }

    /// The next record from `place` on whose first word is there.
    static uint32_t skipZeros(Records& data, uint32_t place, uint32_t end) {
        for (uint32_t found = end;;) {
            uint32_t unit = place;
            while (unit < found && data.loadForDump(unit, rl::mo_relaxed) == 0) {
                ++unit;
            }
            if (unit == found || isMutant(Fault::NO_SECOND_READ)) {
                return unit;
            }
            found = unit;
            if (!isMutant(Fault::NO_ACQUIRE_FENCE)) {
                rl::atomic_thread_fence(rl::mo_acquire, $);
            }
        }
    }

    Buffer mBuffers[kMaxBuffers];
    rl::atomic<Buffer*> mCurrent;
    rl::mutex mMutex;
    // The queue.
    rl::atomic<Buffer*> mFront;
    rl::var<Buffer*> mBack;
    // Each has its own place.
    rl::var<Buffer*> mEmptyBuffers[kMaxBuffers];
    rl::var<uint32_t> mSerial;
    // The condition variable.
    rl::atomic<int> mEpoch;
    rl::atomic<int> mWaiters;
    // The gate.
    rl::atomic<int> mDumping;

    // For the properties. The numbers are no part of the model: whoever changes one takes no step.
    rl::atomic<uint32_t> mReturned;  // 1 << serial, for each call that has returned
    uint32_t mReserved = 0;
    uint32_t mRendered = 0;
};

/// The one that `argument`, which is NAME=VALUE, names; null if none has that name.
Parameter* findParameter(const char* argument) {
    for (Parameter* parameter : {&gCallers, &gRecords, &gRetirements, &gDump, &gBuffers, &gCapacity,
                                 &gKernel, &gBound, &gFull, &gRandom, &gMutant}) {
        const size_t chars = strlen(parameter->name);
        if (strncmp(argument, parameter->name, chars) == 0 && argument[chars] == '=') {
            return parameter;
        }
    }
    return nullptr;
}

template <int kThreads>
bool search() {
    rl::test_params params;
    std::ostream nowhere(nullptr);
    params.progress_stream = &nowhere;
    params.search_type = gFull.value != 0     ? rl::sched_full
                         : gRandom.value != 0 ? rl::sched_random
                                              : rl::sched_bound;
    params.context_bound = gBound.value;
    params.iteration_count = gRandom.value;
    return rl::simulate<Logger<kThreads>>(params);
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        Parameter* parameter = findParameter(argv[i]);
        if (parameter == nullptr) {
            std::cerr << "unknown parameter " << argv[i] << '\n';
            return 2;
        }
        const char* value = strchr(argv[i], '=') + 1;
        parameter->value = static_cast<unsigned>(strtoul(value, nullptr, 10));
    }
    switch (gCallers.value + (gRetirements.value > 0 ? 1 : 0) + gDump.value) {
        case 2:
            return search<2>() ? 0 : 1;
        case 3:
            return search<3>() ? 0 : 1;
        case 4:
            return search<4>() ? 0 : 1;
        default:
            std::cerr << "2 to 4 threads\n";
            return 2;
    }
}
