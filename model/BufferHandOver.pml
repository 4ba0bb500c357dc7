/*
 * How records get from the callers to the flush thread: the protocol of FileJLoggerBase and
 * FileAloneJLogger for the model checker spin, with the names of the C++ code.
 * scripts/check_model.sh searches every order in which the threads can take their steps.
 *
 * A step is atomic for the other threads: an atomic operation, or what a thread does while it holds
 * the mutex. A writer decrements pendingWriters without the mutex. So a section that loads that
 * word and then waits has two steps: the decrement may come between them.
 *
 * Assumed: sequential consistency; ThreadSanitizer and the comments in the code argue the memory
 * orders. A wait unlocks the mutex and begins in one step. A notification ends a wait that has
 * begun, and is lost if there is none. A timed wait may end at any moment, also without a reason.
 *
 * Left out: sizes (all records are alike, and CAPACITY of them fill a buffer), text, files and
 * their errors, boost, serial numbers, who maps the pages, the crash dump and its gate, the logger
 * without a flush thread and its bounded queue. The pool keeps one buffer instead of three, so that
 * it also overflows. Only the dump depends on a type being stored last: the flush thread waits for
 * the count, and nothing here fails if the fill comes between type and count.
 *
 * Properties:
 *   P1  A rendered record is complete.
 *   P2  When the flush thread has ended, every record reserved before is rendered, once.
 *   P3  When onFlush() returns because mFlushPending is false, every record reserved before its
 *       call is rendered and synced, but for those reserved after the thread's end, which stay in
 *       memory.
 *   P4  When the logger is to stop, the flush thread does not pause, and it ends only when slot and
 *       queue hold no records.
 *   P5  There is no deadlock, and all threads end. Without a stop the callers and every onFlush()
 *       end, and each record gets into the file. (The second by LTL, under weak fairness.)
 *   P6  A buffer is in one of slot, queue and pool. Only threads that are waited for touch it.
 *
 * Parameters, by -D:
 *   CALLERS, RECORDS   threads that log, and how many records each
 *   FLUSHERS, SECONDS  threads that call onFlush(), once each, and its argument
 *   CAPACITY, BUFFERS  records in a buffer, and buffers that the kernel has; if they are few, a
 *                      retirement finds none
 *   NO_STOP            onUninit() is not called
 *   YIELD              the flush interval is below 1
 *   UNTIMED_PAUSE      only a notification ends the idle pause
 *   UNTIMED_FLUSH      ... the wait of onFlush(), which then never gives up
 *   UNTIMED_WRITERS    ... the wait for pending writers
 *   NOTIFY_LOCKED      the last writer of a buffer notifies with the mutex
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
#define BUFFERS 5
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
#define kFull 8

/* Always 0: in the message of a failed assertion they name the property. */
hidden byte P1_COMPLETE, P2_ONCE, P3_FLUSHED, P4_STOP, P6_OWNED;

mtype:place = { KERNEL, HAND, SLOT, QUEUE, POOL };

typedef Buffer {
    mtype:place place;
    byte pendingWriters;
    byte end; /* writePtr */
    byte record[CAPACITY]
}

Buffer buffers[BUFFERS];

/* The members of the logger, from the start of the thread on. */
bool mMutex; /* is held */
byte mCurrent = NONE;
chan mFullBuffers = [BUFFERS] of { byte };
byte mEmptyBuffers = NONE; /* the only one */
bool mRunning = true;
bool mThread = true;
bool mFlushPending;

/* The condition variables, one per waiter: mCond of the flush thread, mFlushDone of onFlush(). */
mtype:waiter = { AWAKE, WAITING, NOTIFIED };
mtype:waiter mCond = AWAKE;
mtype:waiter mFlushDone[FLUSHERS] = AWAKE;

/* Sets of records, for the properties. */
unsigned reserved : 8; /* before the flush thread's end */
unsigned late : 8;     /* reserved after it */
unsigned filled : 8;
unsigned complete : 8; /* their type is stored */
unsigned rendered : 8;
unsigned synced : 8;
#define with(records, r) (records | (1 << r))

bool threadEnded;
byte callersEnded;

/* Scratch, within a step. */
hidden byte i;
hidden byte one;
hidden byte pending;

inline lock() {
    !mMutex;
    mMutex = true
}

inline unlock() {
    mMutex = false
}

inline beginWait(condition) {
    atomic {
        condition = WAITING;
        unlock()
    }
}

inline endWait(condition, timed) {
    !mMutex && (condition == NOTIFIED || timed);
    lock()
}

inline notify(condition) {
    if
    :: condition == WAITING -> condition = NOTIFIED
    :: else
    fi
}

inline reset(b) {
    buffers[b].pendingWriters = 0;
    buffers[b].end = 0;
    for (i : 0 .. CAPACITY - 1) {
        buffers[b].record[i] = NONE
    }
}

inline move(b, from, to) {
    assert(P6_OWNED || buffers[b].place == from);
    buffers[b].place = to
}

/* Takes the lowest free address, so that it is soon used again. */
inline newBuffer(b) {
    b = 0;
    do
    :: b < BUFFERS && buffers[b].place != KERNEL -> b++
    :: else -> break
    od;
    if
    :: b < BUFFERS -> move(b, KERNEL, HAND)
    :: else -> b = NONE
    fi
}

inline allocEmptyBuffer(b) {
    if
    :: mEmptyBuffers != NONE ->
        b = mEmptyBuffers;
        mEmptyBuffers = NONE;
        move(b, POOL, HAND);
#if MUTANT != 1
        reset(b)
#endif
    :: else -> newBuffer(b)
    fi
}

inline replaceCurrent() {
    allocEmptyBuffer(mCurrent);
    if
    :: mCurrent != NONE -> move(mCurrent, HAND, SLOT)
    :: else
    fi
}

#define currentHoldsRecordsLocked() (mCurrent != NONE && buffers[mCurrent].end > 0)

/* Returns its result in `pending`. */
inline retireCurrentLocked() {
    pending = buffers[mCurrent].pendingWriters;
    buffers[mCurrent].pendingWriters = pending | kFull;
    move(mCurrent, SLOT, QUEUE);
    mFullBuffers!mCurrent;
    replaceCurrent()
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

inline publishType() {
    atomic {
        mayTouch();
        complete = with(complete, record)
    }
}

inline finishWriter() {
    atomic {
        mayTouch();
        before = buffers[buffer].pendingWriters;
        buffers[buffer].pendingWriters--
    }
}

inline mayTouch() {
    assert(P6_OWNED || ((buffers[buffer].place == SLOT || buffers[buffer].place == QUEUE) &&
                        buffers[buffer].record[at] == record))
}

/* A thread that logs the records from `record` on. */
proctype Caller(byte record; byte end) {
    byte buffer = NONE;
    byte at; /* index of its record; not `place`, which spin would take for the field */
    byte before; /* pendingWriters, at the decrement */
    bool retired;

    do
    :: atomic { /* allocLogSpace */
            lock();
            if
            :: mCurrent == NONE -> replaceCurrent()
            :: mCurrent != NONE && buffers[mCurrent].end == CAPACITY ->
                retireCurrentLocked();
                retired = true
            :: else
            fi;
            buffer = mCurrent;
            if
            :: buffer != NONE ->
                at = buffers[buffer].end;
                buffers[buffer].record[at] = record;
                buffers[buffer].pendingWriters++;
                buffers[buffer].end++;
                if
                :: threadEnded -> late = with(late, record)
                :: else -> reserved = with(reserved, record)
                fi
            :: else /* no memory: the record is dropped */
            fi;
            unlock()
        }
        atomic {
            if
            :: retired && MUTANT != 17 -> notify(mCond)
            :: else
            fi;
            retired = false;
            if
            :: buffer == NONE -> goto next
            :: else
            fi;
#if MUTANT != 3
            filled = with(filled, record)
#endif
        }
#if MUTANT != 2
        publishType();
#endif
        finishWriter();
#if MUTANT == 2
        publishType();
#elif MUTANT == 3
        filled = with(filled, record);
#elif MUTANT == 4
        atomic {
            mayTouch();
            before = (buffers[buffer].pendingWriters == kFull -> (kFull | 1) : 0)
        }
#endif
        atomic {
            if
            :: before == (kFull | 1) ->
#ifdef NOTIFY_LOCKED
                !mMutex;
#endif
                notify(mCond)
            :: else
            fi;
next:
            buffer = NONE;
            at = 0;
            before = 0;
            record++;
            if
            :: record == end ->
                callersEnded++;
                break
            :: else
            fi
        }
    od
}

/* A thread that calls onFlush(SECONDS). */
proctype Flusher(byte id) {
    unsigned due : 8; /* reserved before the call */
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
        :: currentHoldsRecordsLocked() && MUTANT != 5 -> retireCurrentLocked()
        :: else
        fi;
        notify(mCond);
        if
        :: mThread -> beginWait(mFlushDone[id])
        :: else ->
            unlock();
            goto end
        fi
    }
    do
    :: atomic {
            endWait(mFlushDone[id], kSecondEnds);
            if
            :: mFlushDone[id] == NOTIFIED || kSecondEnds
            :: kSecondEnds -> second++
            fi;
            mFlushDone[id] = AWAKE;
            if
            :: mFlushPending && second < SECONDS -> beginWait(mFlushDone[id])
            :: else ->
                assert(P3_FLUSHED || mFlushPending || (due & ~synced) == 0);
                unlock();
                break
            fi
        }
    od;
end:
    atomic {
        due = 0;
        second = 0;
        callersEnded++
    }
}

/* The thread that calls onUninit(). */
proctype Stopper() {
#if MUTANT == 6
    mRunning = false;
    atomic { notify(mCond) }
#else
    atomic {
        lock();
        mRunning = false;
#if MUTANT != 7
        notify(mCond);
#endif
        unlock()
    }
#endif
    threadEnded; /* pthread_join */
    atomic {
        lock();
        mThread = false;
#if MUTANT != 8
        finishFlushLocked();
#endif
        assert(P2_ONCE || rendered == reserved);
        unlock()
    }
}

#define stopDueLocked() (!mRunning && (!currentHoldsRecordsLocked() || MUTANT == 9))
#define writersPending(b) (buffers[b].pendingWriters & (kFull - 1))

inline prepareBuffer() {
    atomic {
        !mMutex;
        if
        :: mEmptyBuffers == NONE -> newBuffer(buffer)
        :: else
        fi
    }
    atomic {
        !mMutex;
        if
        :: buffer != NONE ->
            assert(P6_OWNED || mEmptyBuffers == NONE); /* No other thread fills the pool. */
            move(buffer, HAND, POOL);
            mEmptyBuffers = buffer;
            buffer = NONE
        :: else
        fi
    }
}

inline renderBuffer() {
    atomic {
        assert(P6_OWNED || buffers[buffer].place == QUEUE);
        for (i : 0 .. buffers[buffer].end - 1) {
            one = 1 << buffers[buffer].record[i];
            assert(P1_COMPLETE || (complete & filled & one) != 0);
            assert(P2_ONCE || (rendered & one) == 0);
            rendered = rendered | one
        }
        if
        :: remaining == 0 && (mFlushPending || MUTANT != 10) -> synced = rendered
        :: else
        fi
    }
}

inline recycleFront() {
    atomic {
        lock();
        mFullBuffers?buffer;
        move(buffer, QUEUE, POOL);
        if
        :: mEmptyBuffers != NONE ->
            move(mEmptyBuffers, POOL, KERNEL);
            reset(mEmptyBuffers) /* The kernel gives it out empty. */
        :: else
        fi;
        mEmptyBuffers = buffer;
        unlock()
    }
}

/* flushThreadEntry(). Labels are the functions of one pass. A jump from one atomic block into
   another stays within the step. A block that does not end in unlock() or beginWait() leaves the
   mutex held for the next. */
proctype FlushThread() {
    byte buffer = NONE;
    byte remaining;

    prepareBuffer();
nextBuffer:
    atomic {
        lock();
        buffer = NONE;
        remaining = 0;
decideLocked:
        if
        :: len(mFullBuffers) > 0 -> goto awaitFrontWritersLocked
        :: len(mFullBuffers) == 0 && stopDueLocked() -> goto stop
        :: else
        fi;
#if MUTANT != 11
        finishFlushLocked(); /* idleStepLocked */
#endif
        if
        :: mRunning || MUTANT == 12
        :: else -> goto retire
        fi
#if MUTANT == 6 /* Only this one stores mRunning between the look at it and the pause. */
    }
    atomic {
#else
        ;
        assert(P4_STOP || mRunning);
#endif
#ifdef YIELD
        unlock()
    }
#else
        beginWait(mCond) /* pauseLocked */
    }
    atomic {
        endWait(mCond, kPauseEnds);
        mCond = AWAKE;
        unlock() /* for refreshLocalTime */
    }
#endif
    atomic {
        lock();
        if
        :: len(mFullBuffers) > 0 -> goto awaitFrontWritersLocked
        :: len(mFullBuffers) == 0 && stopDueLocked() -> goto stop
        :: else
        fi;
retire:
        if
        :: !currentHoldsRecordsLocked() -> goto decideLocked
        :: else
        fi;
        retireCurrentLocked();
        if
        :: pending == 0 || MUTANT == 13 -> goto take
        :: else
        fi
    }
    beginWait(mCond);
    atomic {
        endWait(mCond, kWritersWaitEnds);
        mCond = AWAKE;
        goto decideLocked
    }

awaitFrontWritersLocked:
    atomic {
        mFullBuffers?<buffer>;
        if
        :: writersPending(buffer) == 0 || MUTANT == 14 -> goto take
        :: else
        fi
    }
    beginWait(mCond);
    atomic {
        endWait(mCond, kWritersWaitEnds);
        mCond = AWAKE;
        goto awaitFrontWritersLocked
    }

take:
    atomic {
        mFullBuffers?<buffer>;
        remaining = len(mFullBuffers) - 1;
#if MUTANT == 15
        if
        :: remaining == 0 -> finishFlushLocked()
        :: else
        fi;
#endif
        unlock()
    }
#if MUTANT == 16
    recycleFront();
    renderBuffer();
#else
    renderBuffer();
    recycleFront();
#endif
    goto nextBuffer;

stop:
    atomic {
        assert(P4_STOP || (len(mFullBuffers) == 0 && !currentHoldsRecordsLocked()));
        finishFlushLocked();
        threadEnded = true;
        buffer = NONE;
        unlock()
    }
}

init {
    atomic {
        for (one : 0 .. BUFFERS - 1) {
            buffers[one].place = KERNEL;
            reset(one)
        }
        mCurrent = 0;
        buffers[mCurrent].place = SLOT;
        run FlushThread();
        for (one : 0 .. CALLERS - 1) {
            run Caller(one * RECORDS, (one + 1) * RECORDS)
        }
        for (one : 0 .. FLUSHERS - 1) {
            run Flusher(one)
        }
#ifndef NO_STOP
        run Stopper()
#endif
    }
}

#ifdef LIVENESS
#define callersDone (callersEnded == CALLERS + FLUSHERS)
#if defined(FULL_ONLY)
ltl P5_ALL_END { <> (callersDone && len(mFullBuffers) == 0) }
#elif defined(NO_STOP)
ltl P5_ALL_END { <> (callersDone && synced == reserved) }
#else
ltl P5_ALL_END { <> (callersDone && !mThread) }
#endif
#endif
