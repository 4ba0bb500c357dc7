/*
 * What the black box keeps when its process ends between any two steps, for the model checker spin,
 * with the names of the C++ code: callers, flush thread and crash dump with the slots of the box,
 * and the recovery by later processes. BufferHandOver.pml has the hand-over of buffers in full. It
 * is short here. scripts/check_model.sh runs both.
 *
 * A step is atomic for the other threads. It has at most one access to what outlives the process: a
 * record, a word of the box, a file or a lock. What the process alone sees joins the step before or
 * behind it, unless a crash dump, which takes no mutex, could tell the difference.
 *
 * Assumed: when the process ends, each thread has executed a part of its program, in the order of
 * the program, and the box has all that was stored by then. Its lock is released when none of its
 * threads runs any more. Until then it keeps off every recovery, also one of its own. The name of a
 * file is stored in one step, and no file gets a name again.
 *
 * Left out: the compare-exchange of a reservation, text, a handler that logs, a logger that stops,
 * the bounded queue, a forked child, a damaged box, writes that wait at the gate. A buffer is
 * rendered in one step: its slot is live until all text is written. A recovery that has no file,
 * or one that takes no more text, leaves the box, as if it had been killed. The slots of the pool
 * are free ones, and the flush thread clears them all; those that go back to the box are cleared by
 * whoever takes one, which is the same while nobody has it. A dump copies the queue in one step. A
 * retirement waits for a free buffer.
 *
 * Properties:
 *   B1  A record whose call has returned is in the log file, in a crash file or in the file of a
 *       recovery, unless its buffer had no slot. The box then says that there is such a buffer.
 *   B2  Recovery, dump and flush thread never take the inside of a record for a record. All records
 *       of a rendered buffer are complete. A recovery has them in the order of their reservation.
 *   B3  No record is in the files of two recoveries.
 *   B4  A buffer that is taken is zero.
 *   B5  While the process logs, its box has a name, and the lock is its own.
 *   B6  The process can end at any time. In the end each box is gone.
 *
 * Parameters, by -D:
 *   CALLERS, RECORDS   threads that log, and how many records each; 7 in all at most
 *   CAPACITY           records in a buffer
 *   SLOTS, OUTSIDE     buffers in the box, and others
 *   DUMPS              crash dumps, one after another. The process goes on after each.
 *   RECOVERIES         recoveries that run at the same time and may be killed. Others follow, one
 *                      by one, that are not.
 *   FROM_START         the first may begin before the process has its box
 *   MUTANT             a fault, at the place of its number; check_model.sh has the list
 */

#ifndef CALLERS
#define CALLERS 2
#endif
#ifndef RECORDS
#define RECORDS 2
#endif
#ifndef CAPACITY
#define CAPACITY 2
#endif
#ifndef SLOTS
#define SLOTS 2
#endif
#ifndef OUTSIDE
#define OUTSIDE 1
#endif
#ifndef DUMPS
#define DUMPS 1
#endif
#ifndef RECOVERIES
#define RECOVERIES 2
#endif
#ifndef MUTANT
#define MUTANT 0
#endif

#define BUFFERS (SLOTS + OUTSIDE)
#define NONE 15

/* Always 0: in the message of a failed assertion they name the property. */
hidden byte B1_KEPT, B2_WHOLE, B3_ONCE, B4_ZERO, B5_NAMED;

/* The memory of a record: 0, or its number, from 1 on in the order of reservation, and what a walk
   finds there. kSized: its size, and no type yet. kInside: zeros, and then what is no size. */
#define kSized 1
#define kComplete 2
#define kInside 3
#define memory(number, what) ((number) * 4 + (what))
#define numberOf(memory) ((memory) / 4)
#define isComplete(memory) ((memory) % 4 == kComplete)
#define isInside(memory) ((memory) % 4 == kInside)

typedef Slot {
    byte sequence;
    byte dumpedSequence;
    byte dumpedRecords;
    byte record[CAPACITY]
}

/* The box; from SLOTS on it is other memory. A buffer has the number of its memory. */
Slot slots[BUFFERS];
#define hasSlot(b) ((b) < SLOTS)
byte outside;
byte recoveredTo = NONE; /* the file of the recovery with this number */

/* The files that the process has made for its box; it uses the last one. A lock is held by the
   process or by the recovery with this number. */
#define BOXES (RECOVERIES + 1)
#define PROCESS 14
byte made;
bool hasName[BOXES];
byte lockHolder[BOXES] = NONE;
#define box (made - 1)

/* Sets of records, for the properties. */
#define with(records, number) (records | (1 << (number)))
unsigned returned : 8;
unsigned unprotected : 8; /* reserved in a buffer without a slot */
unsigned logged : 8;
unsigned dumped : 8;
byte recovered[RECOVERIES + 1]; /* the file of each recovery */

/* What only the process sees. */
typedef Buffer {
    bool isUsed;
    bool isOpen;
    byte units;
    byte pending
}
Buffer buffers[BUFFERS];
bool mMutex;
byte mCurrent;
byte freeBuffers = BUFFERS - 1;
chan mFullBuffers = [BUFFERS] of { byte };
byte mSequence;
byte lastReserved;
bool isDumping;
chan toDump = [BUFFERS] of { byte };

/* Its threads end with it, the youngest first, which makes fewer states. */
bool alive = true;
#define mayStep (alive || _nr_pr == _pid + 1)

/* Scratch, within a step. */
hidden byte i;
hidden byte one;

/* Walks the records of a buffer. */
inline countComplete(b, records) {
    records = 0;
    for (i : 0 .. CAPACITY - 1) {
        assert(B2_WHOLE || !isInside(slots[b].record[i]));
        if
        :: isComplete(slots[b].record[i]) -> records++
        :: else
        fi
    }
}

#define hasRoom(b) (buffers[b].isOpen && buffers[b].units < CAPACITY)
#define canRetire(b) (buffers[b].isOpen && !mMutex && freeBuffers > 0)

/* A retirement has several steps. The first closes the current buffer and puts it into the queue,
   and takes a successor, from the box if that has one. */
inline retireCurrentLocked() {
    mMutex = true;
    buffers[mCurrent].isOpen = false;
    mFullBuffers!mCurrent;
    buffer = 0;
    do
    :: buffers[buffer].isUsed -> buffer++
    :: else -> break
    od;
    freeBuffers--;
    for (i : 0 .. CAPACITY - 1) {
        assert(B4_ZERO || slots[buffer].record[i] == 0)
    }
    buffers[buffer].isUsed = true;
    buffers[buffer].units = 0
}

inline markOpened() {
    mSequence++;
    if
    :: hasSlot(buffer) -> slots[buffer].sequence = mSequence
    :: else -> outside = outside + (MUTANT != 2)
    fi
}

/* The other steps. */
inline openLocked() {
    atomic { mCurrent = buffer }
#if MUTANT != 1
    atomic { markOpened() }
#endif
    atomic {
        buffers[buffer].isOpen = true;
#if MUTANT == 1
    }
    atomic {
        markOpened();
#endif
        mMutex = false;
        buffer = NONE
    }
}

inline reserve() {
    assert(B5_NAMED || (hasName[box] && lockHolder[box] == PROCESS));
    at = buffers[buffer].units;
    buffers[buffer].units++;
    buffers[buffer].pending++;
    lastReserved++;
    number = lastReserved;
    if
    :: hasSlot(buffer)
    :: else -> unprotected = with(unprotected, number)
    fi
}

/* In this and the other threads, `unless` leads to the end, where the locals are forgotten. */
proctype Caller() provided(mayStep) {
    byte buffer = NONE;
    byte at;
    byte number;
    byte records;

    {
        do
        :: atomic {
                records < RECORDS && hasRoom(mCurrent) ->
                records++;
                buffer = mCurrent;
                reserve()
            }
#if MUTANT == 12
            atomic { slots[buffer].record[at] = memory(number, kInside) }
#endif
            atomic { slots[buffer].record[at] = memory(number, kSized) }
            atomic {
                slots[buffer].record[at] = memory(number, kComplete);
                returned = with(returned, number);
                buffers[buffer].pending--;
                buffer = NONE;
                at = 0;
                number = 0
            }
        :: atomic {
                records < RECORDS && !hasRoom(mCurrent) && canRetire(mCurrent) ->
                retireCurrentLocked()
            }
            openLocked()
        od
    } unless {
        atomic {
            !alive ->
            buffer = NONE;
            at = 0;
            number = 0;
            records = 0
        }
    }
}

inline renderBuffer() {
    for (i : 0 .. buffers[buffer].units - 1) {
        assert(B2_WHOLE || isComplete(slots[buffer].record[i]));
        logged = with(logged, numberOf(slots[buffer].record[i]))
    }
}

inline markEmptied() {
    if
    :: hasSlot(buffer) -> slots[buffer].sequence = 0
    :: else -> outside = outside - (MUTANT != 2)
    fi
}

inline giveBack() {
    buffers[buffer].isUsed = false;
    freeBuffers++
}

proctype FlushThread() provided(mayStep) {
    byte buffer = NONE;
    byte at;

nextBuffer:
    {
        if
        :: atomic { /* idle */
                canRetire(mCurrent) && buffers[mCurrent].units > 0 ->
                retireCurrentLocked()
            }
            openLocked();
            goto nextBuffer
        :: atomic {
                len(mFullBuffers) > 0 ->
                mFullBuffers?<buffer>
            }
        fi;
#if MUTANT == 4
        atomic { markEmptied() }
#endif
        atomic {
            buffers[buffer].pending == 0 ->
            renderBuffer()
        }
        atomic { /* recycleFront */
            !mMutex ->
            mFullBuffers?buffer
        }
        atomic { /* unlessDumping: it stays as it is */
            if
            :: isDumping && MUTANT != 11 ->
                buffer = NONE;
                goto nextBuffer
            :: else
            fi
        }
#if MUTANT != 3 && MUTANT != 4
        atomic { markEmptied() }
#endif
#if MUTANT == 5
        atomic { giveBack() }
#endif
        do /* clear, from front to back: the size of a record first */
        :: atomic {
                at < CAPACITY && isComplete(slots[buffer].record[at]) ->
                slots[buffer].record[at] = memory(0, kInside)
            }
        :: atomic {
                at < CAPACITY && !isComplete(slots[buffer].record[at]) ->
                slots[buffer].record[at] = 0;
                at++
            }
        :: atomic {
                at == CAPACITY ->
#if MUTANT == 3
                markEmptied();
#endif
#if MUTANT != 5
                giveBack();
#endif
                buffer = NONE;
                at = 0;
                goto nextBuffer
            }
        od
    } unless {
        atomic {
            !alive ->
            buffer = NONE;
            at = 0
        }
    }
}

inline dumpRecords() {
    atomic {
        for (i : 0 .. CAPACITY - 1) {
            assert(B2_WHOLE || !isInside(slots[buffer].record[i]));
            if
            :: isComplete(slots[buffer].record[i]) ->
                dumped = with(dumped, numberOf(slots[buffer].record[i]))
            :: else
            fi
        }
    }
}

inline markDumped() {
    if
    :: hasSlot(buffer) ->
#if MUTANT == 7
        atomic { slots[buffer].dumpedSequence = slots[buffer].sequence }
#endif
        atomic { slots[buffer].dumpedRecords = complete }
#if MUTANT != 7
        atomic { slots[buffer].dumpedSequence = slots[buffer].sequence }
#endif
    :: else
    fi
}

/* A thread that dumps after fatal signals, and goes on. */
proctype CrashDump() provided(mayStep) {
    byte buffer = NONE;
    byte complete;
    byte dumps;

    {
        do
        :: atomic {
                buffer == NONE && dumps < DUMPS ->
                dumps++;
                isDumping = true
            }
            atomic { buffer = mCurrent }
            atomic {
                for (one : 1 .. len(mFullBuffers)) {
                    mFullBuffers?i;
                    mFullBuffers!i;
                    if
                    :: i != buffer -> toDump!i
                    :: else
                    fi
                }
                toDump!buffer
            }
        :: atomic {
                len(toDump) > 0 ->
                toDump?buffer;
#if MUTANT == 9
            }
            dumpRecords();
            atomic {
#endif
                countComplete(buffer, complete)
            }
#if MUTANT == 8
            markDumped();
#endif
#if MUTANT != 9
            dumpRecords();
#endif
#if MUTANT != 8
            markDumped();
#endif
            atomic {
                complete = 0;
                if
                :: len(toDump) == 0 ->
                    isDumping = false;
                    buffer = NONE
                :: else
                fi
            }
        od
    } unless {
        atomic {
            !alive ->
            buffer = NONE;
            complete = 0;
            dumps = 0
        }
    }
}

#if MUTANT == 13
#define orderOf(s) (slots[s].sequence > 0 -> (s) + 1 : 0)
#else
#define orderOf(s) slots[s].sequence
#endif

/* The live slot that follows `last`, or NONE. */
inline findNextSlot() {
    slot = NONE;
    for (one : 0 .. SLOTS - 1) {
        if
        :: orderOf(one) > last && (slot == NONE || orderOf(one) < orderOf(slot)) -> slot = one
        :: else
        fi
    }
}

#define isMarked(s) (slots[s].dumpedSequence == slots[s].sequence)

/* Whether a crash file has the `complete` records of a slot. */
#if MUTANT == 6
#define isDumped(s) (slots[s].dumpedRecords == complete)
#elif MUTANT == 10
#define isDumped(s) isMarked(s)
#else
#define isDumped(s) (isMarked(s) && slots[s].dumpedRecords == complete)
#endif

inline recoverRecords() {
    for (i : 0 .. CAPACITY - 1) {
        if
        :: isComplete(slots[slot].record[i]) ->
            one = numberOf(slots[slot].record[i]);
            assert(B2_WHOLE || one > lastRecord);
            lastRecord = one;
            recovered[me] = with(recovered[me], one)
        :: else
        fi
    }
}

/* May end the recovery behind the step that it is in. */
inline mayBeKilled() {
    if
    :: isMortal -> goto closed
    :: true
    fi
}

/* Recovers one box, if it finds one that is not in use. */
proctype BoxRecovery(byte me; bool isMortal) {
    byte mine;
    byte slot;
    byte last; /* the order of the slot before */
    byte lastRecord;
    byte complete;
    bool hasFile;

    atomic { /* open */
        do
        :: mine < made && hasName[mine] -> break
        :: mine < made -> mine++
        :: mine == made -> goto end
        od
    }
    atomic {
        if
        :: lockHolder[mine] == NONE || MUTANT == 18 -> lockHolder[mine] = me
        :: else -> goto end
        fi;
        mayBeKilled()
    }
    atomic {
        if
        :: !hasName[mine] && MUTANT != 17 -> goto closed
        :: else
        fi;
        mayBeKilled()
    }
#if MUTANT == 14
    atomic { hasName[mine] = false }
#endif
    do
    :: atomic { /* recoverBlock */
            mine == box ->
            findNextSlot();
            if
            :: slot == NONE -> break
            :: else -> last = orderOf(slot)
            fi;
            countComplete(slot, complete);
            if
            :: complete == 0 || isDumped(slot) -> goto stepped
            :: !(complete == 0 || isDumped(slot)) && hasFile -> goto append
            :: else -> hasFile = true
            fi
        }
#if MUTANT != 16
        atomic {
            if
            :: recoveredTo != NONE -> recovered[recoveredTo] = 0
            :: else
            fi;
            mayBeKilled()
        }
#endif
#if MUTANT != 15
        atomic {
            recoveredTo = me;
            mayBeKilled()
        }
#endif
append:
        atomic {
            recoverRecords();
            mayBeKilled()
        }
#if MUTANT == 15
        atomic { recoveredTo = me }
#endif
stepped:
        skip
    :: else -> break
    od;
    atomic { /* finish */
        hasName[mine] = false;
        mayBeKilled()
    }
closed:
    atomic {
        if
        :: lockHolder[mine] == me -> lockHolder[mine] = NONE
        :: else
        fi
    }
end:
    skip
}

inline runRecoveries() {
    for (one : 0 .. RECOVERIES - 1) {
        run BoxRecovery(one, true)
    }
}

/* Makes the box, starts the threads, ends the process, and starts the recoveries. */
init {
#ifdef FROM_START
    atomic { runRecoveries() }
#endif
createFile:
    atomic {
        hasName[made] = true;
        made++
    }
    atomic {
        if
        :: lockHolder[box] != NONE -> goto createFile
        :: else -> lockHolder[box] = PROCESS
        fi
    }
    atomic {
        if
        :: !hasName[box] && MUTANT != 19 -> goto createFile
        :: else
        fi;
        buffers[mCurrent].isUsed = true;
        buffers[mCurrent].isOpen = true;
        mSequence = 1;
        slots[mCurrent].sequence = 1;
        for (one : 1 .. CALLERS) {
            run Caller()
        }
        run FlushThread();
        if
        :: DUMPS > 0 -> run CrashDump()
        :: else
        fi
    }
    atomic { /* at any time */
        alive = false;
        for (one : 0 .. BUFFERS - 1) {
            buffers[one].isUsed = false;
            buffers[one].isOpen = false;
            buffers[one].units = 0;
            buffers[one].pending = 0
        }
        do
        :: len(mFullBuffers) > 0 -> mFullBuffers?one
        :: len(toDump) > 0 -> toDump?one
        :: else -> break
        od;
        mMutex = false;
        mCurrent = 0;
        freeBuffers = 0;
        mSequence = 0;
        lastReserved = 0;
        isDumping = false
    }
    atomic {
#ifdef FROM_START
        _nr_pr <= RECOVERIES + 1 ->
#else
        _nr_pr == 1 ->
        runRecoveries();
#endif
        lockHolder[box] = NONE;
        returned = returned & ~(logged | dumped);
        assert(B1_KEPT || (returned & unprotected) == 0 || outside > 0);
        returned = returned & ~unprotected;
        /* What nobody looks at any more, so that fewer states differ. */
        logged = 0;
        dumped = 0;
        unprotected = 0;
        outside = 0;
        for (one : 0 .. BUFFERS - 1) {
            if
            :: slots[one].sequence > 0
            :: else ->
                slots[one].dumpedSequence = 0;
                slots[one].dumpedRecords = 0;
                for (i : 0 .. CAPACITY - 1) {
                    slots[one].record[i] = 0
                }
            fi
        }
    }
    do
    :: atomic {
            _nr_pr == 1 ->
            one = 0;
            do
            :: one < made && !hasName[one] -> one++
            :: else -> break
            od;
            if
            :: one < made -> run BoxRecovery(RECOVERIES, false)
            :: else -> break
            fi
        }
    od;
    atomic {
        for (one : 0 .. RECOVERIES) {
            for (i : one + 1 .. RECOVERIES) {
                assert(B3_ONCE || (recovered[i] & recovered[one]) == 0)
            }
            returned = returned & ~recovered[one]
        }
        assert(B1_KEPT || returned == 0)
    }
}
