/*
 * How records get from the callers to the flush thread: the protocol of FileJLoggerBase and
 * FileAloneJLogger for the model checker spin, with the names of the C++ code.
 * scripts/check_model.sh searches every order in which the threads can take their steps.
 *
 * A step is atomic for the other threads. It has at most one access to a word that others may read
 * or change meanwhile: a buffer's `state`, the slot, or mCond's epoch. A thread that holds the mutex
 * has such steps, too, because exchanges and decrements need no mutex. An access that no other
 * thread can notice in between, such as one to what the mutex guards, joins the step before or
 * behind it.
 *
 * Weak memory, with KNOWLEDGE: a non-atomic write is an event, and each thread has the set of the
 * events that happen before its next step. A release adds the thread's set to that of the word, or
 * replaces it if it is a plain store; an acquire adds the word's set to the thread's. A
 * read-modify-write without a release leaves the word's set alone (a release sequence). The mutex
 * does both. Each non-atomic access asserts that the thread knows of the writes that it depends on.
 * A load that returns an old value is the same as an early load: other threads may take any number
 * of steps before the value is used.
 *
 * Assumed: nothing else is reordered; in particular, the load of a ticket is an acquire and stays
 * before the store of kAwaited. A wait ends by itself once the epoch is no longer the one of its
 * ticket. A timed wait may end at any moment, also without a reason.
 *
 * Left out: sizes (all records are alike, and CAPACITY of them fill a buffer), records without a
 * serial number, text, files and their errors, who makes the pages, the buffer that the writer of a
 * first record makes in advance (it is new, and joins the pool under the mutex), the crash dump and
 * its gate, the fences for it, the black box, the logger without a flush thread and its bounded
 * queue. The pool keeps one buffer instead of three, so that it also overflows. A compare-exchange
 * does not fail without a reason.
 *
 * Properties:
 *   P1  A rendered record is complete.
 *   P2  When the flush thread has ended, every record reserved before its last look at the current
 *       buffer is rendered, once.
 *   P3  When onFlush() returns because mFlushPending is false, every record reserved before its
 *       call is rendered and synced, but for those reserved after the thread's last look, which
 *       stay in memory.
 *   P4  When the logger is to stop, the flush thread does not pause, and it ends only when slot and
 *       queue hold no records.
 *   P5  There is no deadlock, and all threads end. Without a stop the callers and every onFlush()
 *       end, and each record gets into the file. (The second by LTL, under weak fairness.)
 *   P6  A buffer is in one of slot, queue and pool. Only threads that are waited for touch it.
 *   P7  Records get the serial numbers 1, 2, 3 ... in the order of their reservation, and are
 *       rendered in this order.
 *   P8  Every access that is not atomic happens after the writes that it depends on.
 *   P9  A record is reserved only in the buffer in the slot, while that is open and has room.
 *   P10 The records of a buffer are zero when it is opened.
 *   P11 A record is dropped only without memory, or in a signal handler whose thread holds the
 *       mutex. Such a handler never waits.
 *
 * Parameters, by -D:
 *   CALLERS, RECORDS   threads that log, and how many records each
 *   FLUSHERS, SECONDS  threads that call onFlush(), once each, and its argument
 *   CAPACITY, BUFFERS  records in a buffer, and heads in the store. If they are few, a retirement
 *                      finds no memory.
 *   HANDLER            a signal handler logs one record, on the first caller's thread, at any step
 *   KNOWLEDGE          checks P8
 *   NO_STOP            onUninit() is not called
 *   YIELD              the flush interval is below 1
 *   UNTIMED_PAUSE      only a notification ends the idle pause
 *   UNTIMED_FLUSH      ... the wait of onFlush(), which then never gives up
 *   UNTIMED_WRITERS    ... the wait for pending writers
 *   STRICT_FLUSH       P3 covers every record
 *   LIVENESS           has the LTL formula of P5
 *   FULL_ONLY          ... which then, without a stop, asks only for the buffers that are full
 *   MUTANT             a fault, at the place of its number; check_model.sh has the list
 */

#ifndef CALLERS
#define CALLERS 2
#endif
#ifndef RECORDS
#define RECORDS 2
#endif
#ifndef FLUSHERS
#define FLUSHERS 1
#endif
#ifndef SECONDS
#define SECONDS 1
#endif
#ifndef CAPACITY
#define CAPACITY 2
#endif
#ifndef BUFFERS
#define BUFFERS 4
#endif
#ifndef MUTANT
#define MUTANT 0
#endif

#ifdef UNTIMED_PAUSE
#define kPauseEnds false
#else
#define kPauseEnds true
#endif
#ifdef UNTIMED_FLUSH
#define kSecondEnds false
#else
#define kSecondEnds true
#endif
#ifdef UNTIMED_WRITERS
#define kWritersWaitEnds false
#else
#define kWritersWaitEnds true
#endif

#define NONE 15

/* Always 0: in the message of a failed assertion they name the property. */
hidden byte P1_COMPLETE, P2_ONCE, P3_FLUSHED, P4_STOP, P6_OWNED, P7_ORDER, P8_KNOWN, P9_OPEN,
        P10_ZERO, P11_KEPT;

/* The word `state`. The serials of a buffer are as many as its units. */
#define kPendingMask 7
#define kUnit 8
#define kAwaited 64
#define kClosed 128
#define kRequest (kUnit | 1)
#define pending(word) ((word) & kPendingMask)
#define units(word) (((word) & (kAwaited - 1)) / kUnit)
#if MUTANT == 34
#define fits(word) (word < kClosed)
#else
#define fits(word) (word < kClosed && units(word) < CAPACITY)
#endif

/* KERNEL: the head is in the store's free list, and has no records. SLOT: it is open, too. */
mtype:place = { KERNEL, HAND, SLOT, QUEUE, POOL };

typedef Buffer {
    mtype:place place;
    byte state;
    byte serialBase; /* the last one before this buffer */
    byte record[CAPACITY]
}

Buffer buffers[BUFFERS];

/* The members of the logger, from the start of the thread on. */
byte mMutex = NONE; /* the thread that holds it */
byte mCurrent;
chan mFullBuffers = [BUFFERS] of { byte };
byte mEmptyBuffers = NONE; /* the only one */
byte mSerial;
bool mRunning = true;
bool mThread = true;
bool mFlushPending;

/* The condition variables, one per waiter: mCond of the flush thread, mFlushDone of onFlush(). The
   epoch is compared with the one ticket that its waiter has. */
mtype:epoch = { NO_TICKET, SAME, MOVED };
mtype:epoch mCond = NO_TICKET;
mtype:epoch mFlushDone[FLUSHERS + 1] = NO_TICKET; /* one more, as an array cannot be empty */

/* Threads. A handler has the number of the caller whose thread it runs on. */
#define kFlushThread CALLERS
#define kFirstFlusher (CALLERS + 1)
#define kStopper (CALLERS + FLUSHERS + 1)
#define THREADS (CALLERS + FLUSHERS + 2)
#define kFirstCallerPid 1
bool interrupted; /* the first caller, by the handler */

/* Sets of records, for the properties. */
unsigned reserved : 8; /* before the flush thread's last look */
unsigned late : 8;     /* reserved after it */
unsigned filled : 8;
unsigned complete : 8; /* their type is stored */
unsigned rendered : 8;
unsigned synced : 8;
#define with(records, r) (records | (1 << r))

byte lastReserved; /* serial numbers */
byte lastRendered;
bool threadEnded;
byte callersEnded;

/* Scratch, within a step. */
hidden byte i;
hidden byte one;

#ifdef KNOWLEDGE
/* One event for each buffer, the last write to its head or memory outside of records, and one for
   each record. */
#define buffersEvent(b) (1 << (b))
#define recordsEvent(r) (1 << (BUFFERS + (r)))
short threadKnows[THREADS];
short stateKnows[BUFFERS];
short slotKnows;
short mutexKnows;

inline acquire(word) { threadKnows[thread] = threadKnows[thread] | word }
inline release(word) { word = word | threadKnows[thread] }
inline storeRelease(word) { word = threadKnows[thread] }
inline storeRelaxed(word) { word = 0 }
inline mustKnow(event) { assert(P8_KNOWN || (threadKnows[thread] & (event)) != 0) }

/* The writer must know of the last write. No other thread knows of the new one yet. */
inline write(b) {
    mustKnow(buffersEvent(b));
    forget(buffersEvent(b));
    threadKnows[thread] = threadKnows[thread] | buffersEvent(b)
}

inline writeRecord(r) { threadKnows[thread] = threadKnows[thread] | recordsEvent(r) }

#define forgetAll() threadKnows[thread] = 0

inline forget(event) {
    for (i : 0 .. THREADS - 1) {
        threadKnows[i] = threadKnows[i] & ~(event)
    }
    for (i : 0 .. BUFFERS - 1) {
        stateKnows[i] = stateKnows[i] & ~(event)
    }
    slotKnows = slotKnows & ~(event);
    mutexKnows = mutexKnows & ~(event)
}
#else
#define acquire(word) skip
#define release(word) skip
#define storeRelease(word) skip
#define storeRelaxed(word) skip
#define mustKnow(event) skip
#define write(b) skip
#define writeRecord(r) skip
#define forgetAll() skip
#define forget(event) skip
#endif

inline lock() {
    mMutex == NONE;
    mMutex = thread;
    acquire(mutexKnows)
}

inline unlock() {
    storeRelease(mutexKnows);
    mMutex = NONE
}

inline ticket(condition) {
    condition = SAME
}

inline endWait(condition, timed) {
    mMutex == NONE && (condition == MOVED || timed);
    lock()
}

inline notify(condition) {
    if
    :: condition == SAME -> condition = MOVED
    :: else
    fi
}

inline move(b, from, to) {
    assert(P6_OWNED || buffers[b].place == from);
    buffers[b].place = to
}

inline clear(b) {
    write(b);
    for (i : 0 .. CAPACITY - 1) {
        buffers[b].record[i] = NONE
    }
}

/* Takes the lowest free head, so that it is soon used again. */
inline newBuffer(b) {
    b = 0;
    do
    :: b < BUFFERS && buffers[b].place != KERNEL -> b++
    :: else -> break
    od;
    if
    :: b < BUFFERS ->
        move(b, KERNEL, HAND);
        write(b); /* data */
        buffers[b].state = kClosed;
        storeRelaxed(stateKnows[b])
    :: else -> b = NONE
    fi
}

inline allocEmptyBuffer(b) {
    if
    :: mEmptyBuffers != NONE ->
        b = mEmptyBuffers;
        mEmptyBuffers = NONE;
        move(b, POOL, HAND)
    :: else -> newBuffer(b)
    fi;
    if
    :: b != NONE ->
        write(b);
        buffers[b].serialBase = mSerial
    :: else
    fi
}

#define currentHoldsRecordsLocked() (mCurrent != NONE && units(buffers[mCurrent].state) > 0)

inline takeSerials() {
    mSerial = buffers[mCurrent].serialBase + units(buffers[mCurrent].state)
}

/* A retirement has three steps. The first closes the current buffer and puts it into the queue,
   and takes a successor by allocEmptyBuffer(buffer). It leaves the last state of the open buffer in
   `before`. */
inline closeCurrent() {
    assert(P6_OWNED || mMutex == thread);
    before = buffers[mCurrent].state;
#if MUTANT != 21 && MUTANT != 22
    buffers[mCurrent].state = before | kClosed;
#endif
#if MUTANT != 31
    acquire(stateKnows[mCurrent]);
#endif
    mustKnow(buffersEvent(mCurrent));
#if MUTANT == 26
    if
    :: thread < CALLERS -> takeSerials()
    :: else
    fi;
#else
    takeSerials();
#endif
    move(mCurrent, SLOT, QUEUE);
    mFullBuffers!mCurrent
}

/* The second step. */
inline putIntoSlot() {
    atomic {
#if MUTANT == 22
        buffers[mCurrent].state = buffers[mCurrent].state | kClosed;
#endif
        mCurrent = buffer;
        release(slotKnows)
    }
}

/* The third step, if there is a successor. A caller opens it with its own request in it. */
inline open(request) {
    for (i : 0 .. CAPACITY - 1) {
        assert(P10_ZERO || buffers[buffer].record[i] == NONE)
    }
    move(buffer, HAND, SLOT);
    buffers[buffer].state = request;
#if MUTANT == 28
    storeRelaxed(stateKnows[buffer])
#else
    storeRelease(stateKnows[buffer])
#endif
}

/* The first two steps. */
inline retireCurrentLocked() {
#if MUTANT == 26
    atomic { takeSerials() }
#endif
    atomic {
        closeCurrent();
        allocEmptyBuffer(buffer)
    }
#if MUTANT == 23
    atomic { openEmpty() }
#endif
    putIntoSlot()
}

inline openEmpty() {
    if
    :: buffer != NONE -> open(0)
    :: else
    fi
}

inline finishFlushLocked() {
    if
    :: mFlushPending ->
        mFlushPending = false;
        for (i : 0 .. FLUSHERS - 1) {
            notify(mFlushDone[i])
        }
    :: else
    fi
}

/* Loads the state. All states without room are alike to the caller. */
inline look() {
    if
    :: buffer != NONE ->
        seen = buffers[buffer].state;
#if MUTANT == 25
        first = buffers[buffer].serialBase
#endif
    :: else -> seen = kClosed
    fi;
    if
    :: fits(seen)
    :: else ->
        buffer = NONE;
        seen = kClosed
    fi
}

/* Part of the step that makes the reservation. */
inline countReserved() {
    assert(P9_OPEN || (mCurrent == buffer && buffers[buffer].place == SLOT && at < CAPACITY));
    lastReserved++;
    serial = lastReserved;
    if
    :: threadEnded -> late = with(late, record)
    :: else -> reserved = with(reserved, record)
    fi
}

inline mayTouch() {
    assert(P6_OWNED || buffers[buffer].place == SLOT || buffers[buffer].place == QUEUE)
}

#if MUTANT == 25
#define serialBaseOfRecord first
#else
#define serialBaseOfRecord buffers[buffer].serialBase
#endif

inline fill() {
    mayTouch();
    mustKnow(buffersEvent(buffer));
    assert(P7_ORDER || serialBaseOfRecord + at + 1 == serial);
    buffers[buffer].record[at] = record;
    writeRecord(record)
}

inline publishType() {
    atomic {
        mayTouch();
        assert(P6_OWNED || buffers[buffer].record[at] == record);
        complete = with(complete, record)
    }
}

inline finishWriter() {
    before = buffers[buffer].state;
    assert(P6_OWNED || pending(before) > 0);
    buffers[buffer].state--;
#if MUTANT != 29
    release(stateKnows[buffer])
#endif
}

/* A thread that logs the records from `record` on; or, nested, a signal handler on the first one.
   Here and below, a jump into an atomic block stays within the step; one to a label in front of a
   block ends it. */
proctype Caller(byte thread; byte record; byte end; bool nested)
        provided(!interrupted || _pid != kFirstCallerPid) {
    byte buffer = NONE;
    byte seen;
    byte at; /* index of its record; not `place`, which spin would take for the field */
    byte serial;
#if MUTANT == 25
    byte first;
#endif
    byte before;
    bool locked;
    bool retired;

reserve:
    atomic {
        assert(nested || thread != 0 || _pid == kFirstCallerPid);
        if
        :: nested -> interrupted = true
        :: else
        fi;
        buffer = mCurrent;
        acquire(slotKnows)
    }
load:
    atomic { look() }
    if
    :: atomic {
            fits(seen) && buffers[buffer].state == seen ->
            buffers[buffer].state = seen + kRequest;
#if MUTANT != 27
            acquire(stateKnows[buffer]);
#endif
            at = units(seen);
            countReserved();
            if
            :: locked -> unlock()
            :: else
            fi;
            seen = 0;
            locked = false;
            goto reservedSpace
        }
    :: atomic {
            fits(seen) && buffers[buffer].state != seen ->
            seen = 0;
            goto load
        }
    :: atomic { /* reserveWithMutex */
            !fits(seen) && !locked && mMutex == NONE ->
            lock();
            locked = true;
            buffer = mCurrent;
            goto load
        }
    :: atomic { /* ... in a handler whose thread holds the mutex */
            !fits(seen) && !locked && (mMutex == thread || MUTANT == 33) && MUTANT != 32 ->
            goto drop
        }
    :: atomic {
            !fits(seen) && locked ->
            if
            :: mCurrent != NONE ->
                closeCurrent();
                retired = true
            :: else
            fi;
            allocEmptyBuffer(buffer)
        }
    fi;
    putIntoSlot();
    atomic {
        if
        :: buffer == NONE ->
            unlock();
            goto drop
        :: else
        fi;
#if MUTANT == 20
        open(kUnit);
#else
        open(kRequest);
#endif
        at = 0;
        countReserved();
#if MUTANT == 25
        first = buffers[buffer].serialBase;
#endif
        seen = 0;
        before = 0;
        locked = false;
        unlock()
    }
reservedSpace:
    atomic {
        if
        :: retired && MUTANT != 16 -> notify(mCond)
        :: else
        fi;
        retired = false;
        fill();
#if MUTANT != 3
        filled = with(filled, record)
#endif
    }
#if MUTANT != 2
    publishType();
#endif
    atomic {
        finishWriter();
        if
        :: (before & (kAwaited | kPendingMask)) == (kAwaited | 1) || MUTANT == 2 || MUTANT == 3
        :: else -> goto next
        fi
    }
#if MUTANT == 2
    publishType();
#elif MUTANT == 3
    filled = with(filled, record);
#endif
    atomic {
#if MUTANT != 17
        notify(mCond);
#endif
        goto next;
drop:
        if
        :: retired -> notify(mCond)
        :: else
        fi;
        for (i : 0 .. BUFFERS - 1) {
            assert(P11_KEPT || mMutex == thread ||
                   (buffers[i].place != KERNEL && buffers[i].place != POOL))
        }
next:
        buffer = NONE;
        seen = 0;
        at = 0;
        serial = 0;
        before = 0;
        locked = false;
        retired = false;
        record++;
        if
        :: record < end -> goto reserve
        :: else
        fi;
        callersEnded++;
        if
        :: nested -> interrupted = false
        :: else -> forgetAll()
        fi
    }
}

/* A thread that calls onFlush(SECONDS). */
proctype Flusher(byte thread; byte id) {
    unsigned due : 8; /* reserved before the call */
    byte buffer = NONE;
    byte before;
    byte second;

    atomic {
        lock();
        mFlushPending = true;
#ifdef STRICT_FLUSH
        due = reserved | late;
#else
        due = reserved;
#endif
        if
        :: currentHoldsRecordsLocked() && MUTANT != 4
        :: else -> goto wake
        fi
    }
    retireCurrentLocked();
    atomic {
#if MUTANT == 23
        skip;
#else
        openEmpty();
#endif
wake:
        buffer = NONE;
        before = 0;
        notify(mCond);
        if
        :: mThread ->
            ticket(mFlushDone[id]);
            unlock()
        :: else ->
            unlock();
            goto end
        fi
    }
    do
    :: atomic {
            endWait(mFlushDone[id], kSecondEnds);
            if
            :: mFlushDone[id] == MOVED || kSecondEnds
            :: kSecondEnds -> second++
            fi;
            if
            :: mFlushPending && second < SECONDS ->
                ticket(mFlushDone[id]);
                unlock()
            :: else ->
                assert(P3_FLUSHED || mFlushPending || (due & ~synced) == 0);
                mFlushDone[id] = NO_TICKET;
                unlock();
                break
            fi
        }
    od;
end:
    atomic {
        due = 0;
        second = 0;
        callersEnded++;
        forgetAll()
    }
}

/* The thread that calls onUninit(). */
proctype Stopper(byte thread) {
    atomic {
        lock();
        mRunning = false;
#if MUTANT != 6
        notify(mCond);
#endif
        unlock()
    }
    threadEnded; /* pthread_join */
    atomic {
        lock();
        mThread = false;
#if MUTANT != 7
        finishFlushLocked();
#endif
        assert(P2_ONCE || rendered == reserved);
        unlock();
        forgetAll()
    }
}

#define stopDueLocked() (!mRunning && (!currentHoldsRecordsLocked() || MUTANT == 8))

inline addToPool() {
    atomic {
        lock();
        if
        :: mEmptyBuffers == NONE -> newBuffer(buffer)
        :: else
        fi;
        unlock()
    }
    atomic {
        lock();
        if
        :: buffer != NONE ->
            assert(P6_OWNED || mEmptyBuffers == NONE); /* No other thread fills the pool. */
            move(buffer, HAND, POOL);
            mEmptyBuffers = buffer;
            buffer = NONE
        :: else
        fi;
        unlock()
    }
}

inline renderBuffer() {
    atomic {
        assert(P6_OWNED || buffers[buffer].place == QUEUE);
        mustKnow(buffersEvent(buffer));
        for (at : 0 .. units(buffers[buffer].state) - 1) {
            record = buffers[buffer].record[at];
            assert(P1_COMPLETE || record != NONE && (complete & filled & (1 << record)) != 0);
            mustKnow(recordsEvent(record));
            assert(P2_ONCE || (rendered & (1 << record)) == 0);
            lastRendered++;
            assert(P7_ORDER || buffers[buffer].serialBase + at + 1 == lastRendered);
            rendered = with(rendered, record);
            forget(recordsEvent(record))
        }
        if
        :: remaining == 0 && (mFlushPending || MUTANT != 9) -> synced = rendered
        :: else
        fi
    }
}

inline recycleFront() {
    atomic {
        lock();
        mFullBuffers?buffer;
        move(buffer, QUEUE, HAND);
        isWanted = mEmptyBuffers == NONE;
        unlock()
    }
    if
    :: atomic {
            !isWanted ->
            lock(); /* stands for the order of the free list */
            clear(buffer); /* the kernel's pages are zero */
            move(buffer, HAND, KERNEL);
            unlock()
        }
    :: else ->
        atomic {
#if MUTANT != 1
            clear(buffer);
#endif
#if MUTANT == 24
            buffers[buffer].state = 0;
#else
            buffers[buffer].state = kClosed;
#endif
            storeRelaxed(stateKnows[buffer])
        }
        atomic {
            lock();
            assert(P6_OWNED || mEmptyBuffers == NONE); /* No other thread fills the pool. */
            move(buffer, HAND, POOL);
            mEmptyBuffers = buffer;
            unlock()
        }
    fi
}

inline stopLocked() {
    assert(P4_STOP || (len(mFullBuffers) == 0 && !currentHoldsRecordsLocked()));
    finishFlushLocked();
    threadEnded = true;
    unlock()
}

/* flushThreadEntry(). Labels are the functions of one pass. A block that does not end in unlock()
   leaves the mutex held for the next. */
proctype FlushThread(byte thread) {
    byte buffer = NONE;
    byte remaining;
    byte before;
    byte at;
    byte record;
    bool isWanted;

    addToPool();
nextBuffer:
    atomic {
        lock();
        buffer = NONE;
        remaining = 0;
decideLocked:
        if
        :: len(mFullBuffers) > 0 -> goto raiseBoost
        :: len(mFullBuffers) == 0 && stopDueLocked() ->
            stopLocked();
            goto end
        :: else
        fi;
        unlock() /* changeBoostLocked */
    }
    atomic {
        lock();
        if
        :: len(mFullBuffers) > 0 && MUTANT != 5 -> goto raiseBoost
        :: else
        fi;
#if MUTANT != 10
        finishFlushLocked();
#endif
        if
        :: mRunning || MUTANT == 11
        :: else -> goto lookAtCurrent
        fi;
        assert(P4_STOP || mRunning);
#ifdef YIELD
        unlock()
    }
#else
        ticket(mCond); /* pauseLocked */
        unlock()
    }
    atomic {
        endWait(mCond, kPauseEnds);
        mCond = NO_TICKET;
        unlock() /* for refreshLocalTime */
    }
#endif
    atomic {
        lock();
        if
        :: len(mFullBuffers) > 0 -> goto raiseBoost
        :: len(mFullBuffers) == 0 && stopDueLocked() ->
            stopLocked();
            goto end
        :: else
        fi;
lookAtCurrent:
        if
        :: !currentHoldsRecordsLocked() -> goto decideLocked
        :: else
        fi
    }
    retireCurrentLocked();
    atomic {
#if MUTANT == 23
        skip;
#else
        openEmpty();
#endif
        if
        :: pending(before) == 0 || MUTANT == 12 -> goto take
        :: else -> goto awaitWriters
        fi
    }

raiseBoost:
    atomic { unlock() } /* changeBoostLocked */
    atomic { lock() }
awaitWriters:
#if MUTANT != 19
    atomic { ticket(mCond) }
#endif
    atomic {
        mFullBuffers?<buffer>;
        before = buffers[buffer].state;
#if MUTANT != 18
        buffers[buffer].state = before | kAwaited;
#endif
#if MUTANT != 30
        acquire(stateKnows[buffer]);
#endif
        if
        :: pending(before) > 0 && MUTANT != 13 -> goto sleep
        :: else
        fi;
take:
        mFullBuffers?<buffer>;
        remaining = len(mFullBuffers) - 1;
        before = 0;
        mCond = NO_TICKET;
#if MUTANT == 14
        if
        :: remaining == 0 -> finishFlushLocked()
        :: else
        fi;
#endif
        unlock()
    }
#if MUTANT == 15
    recycleFront();
#endif
    renderBuffer();
#if MUTANT != 15
    recycleFront();
#endif
    goto nextBuffer;

sleep:
    atomic {
#if MUTANT == 19
        ticket(mCond);
#endif
        unlock()
    }
    atomic {
        endWait(mCond, kWritersWaitEnds);
        goto awaitWriters
    }

end:
    skip
}

init {
    atomic {
        for (one : 0 .. BUFFERS - 1) {
            buffers[one].place = KERNEL;
            buffers[one].state = kClosed;
            for (i : 0 .. CAPACITY - 1) {
                buffers[one].record[i] = NONE
            }
        }
        buffers[mCurrent].place = SLOT;
        buffers[mCurrent].state = 0;
#ifdef KNOWLEDGE
        /* All threads are created after the logger. */
        mutexKnows = (1 << BUFFERS) - 1;
        stateKnows[mCurrent] = mutexKnows;
        for (one : 0 .. THREADS - 1) {
            threadKnows[one] = mutexKnows
        }
#endif
        for (one : 0 .. CALLERS - 1) {
            run Caller(one, one * RECORDS, (one + 1) * RECORDS, false)
        }
        run FlushThread(kFlushThread);
#ifdef HANDLER
        run Caller(0, CALLERS * RECORDS, CALLERS * RECORDS + 1, true);
#endif
        for (one : 0 .. FLUSHERS - 1) {
            run Flusher(kFirstFlusher + one, one)
        }
#ifndef NO_STOP
        run Stopper(kStopper)
#endif
    }
}

#ifdef LIVENESS
#ifdef HANDLER
#define callersDone (callersEnded == CALLERS + FLUSHERS + 1)
#else
#define callersDone (callersEnded == CALLERS + FLUSHERS)
#endif
#if defined(FULL_ONLY)
ltl P5_ALL_END { <> (callersDone && len(mFullBuffers) == 0) }
#elif defined(NO_STOP)
ltl P5_ALL_END { <> (callersDone && synced == reserved) }
#else
ltl P5_ALL_END { <> (callersDone && !mThread) }
#endif
#endif
