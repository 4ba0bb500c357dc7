#!/usr/bin/env bash
# Checks the models of the hand-over between callers and flush thread and of the black box, and that
# they can fail.
source "$(dirname "$0")/common.sh"

if [ "${1:-}" = --help ] || [ "${1:-}" = -h ]; then
    cat <<'TEXT'
usage: scripts/check_model.sh

Lets spin look at every order of steps that model/BufferHandOver.pml allows, for several numbers
of threads, records and buffers. Prints what each search took; fails on any error, when a search
was not exhaustive, and when none has reached some statement. Then it lets spin search with one
fault put in at a time, or a bound taken away, and fails unless that breaks the property which it
has to break. Then it does so with model/BlackBox.pml. Takes some 110 s of processor time for the
first and 30 s for the second, and less than 1 GiB for each search; it runs as many at once as there
are processors. Works in build/model. On a bare Debian machine it first installs the packages that
it needs.

Then it does the same with Relacy and model/Reservation.cpp, which has the memory orders. That takes
some 40 s of processor time.
TEXT
    exit 0
fi

# "parameters | what is special", the longest first.
searches=(
    " | two callers, two records each"
    "CALLERS=3 RECORDS=1 | three callers"
    "HANDLER FLUSHERS=0 BUFFERS=3 | a signal handler logs"
    "HANDLER RECORDS=1 CAPACITY=1 BUFFERS=2 | ... short of memory, with a flush"
    "BUFFERS=2 | short of memory"
    "BUFFERS=1 | a single buffer"
    "FLUSHERS=2 RECORDS=1 CAPACITY=1 | two flushes"
    "UNTIMED_PAUSE UNTIMED_FLUSH UNTIMED_WRITERS | nothing is timed"
    "UNTIMED_PAUSE UNTIMED_FLUSH UNTIMED_WRITERS HANDLER RECORDS=1 CAPACITY=1 | ... and a signal handler logs"
    "KNOWLEDGE HANDLER FLUSHERS=0 RECORDS=1 CAPACITY=1 BUFFERS=3 | memory orders, a signal handler logs"
    "KNOWLEDGE FLUSHERS=0 BUFFERS=3 | memory orders, two records each"
    "KNOWLEDGE FLUSHERS=0 CALLERS=3 RECORDS=1 BUFFERS=3 | memory orders, three callers"
    "KNOWLEDGE RECORDS=1 CAPACITY=1 | memory orders, a flush"
    "KNOWLEDGE FLUSHERS=0 CAPACITY=1 BUFFERS=2 | memory orders, short of memory"
    "FLUSHERS=0 CAPACITY=1 BUFFERS=6 | a buffer for each record"
    "YIELD RECORDS=1 CAPACITY=1 | no idle pause"
    "SECONDS=2 RECORDS=1 CAPACITY=1 | a flush that waits twice"
    "LIVENESS RECORDS=1 CAPACITY=1 | all end after a stop"
    "LIVENESS HANDLER FLUSHERS=0 RECORDS=1 CAPACITY=1 BUFFERS=2 | ... short of memory, a signal handler logs"
    "LIVENESS NO_STOP UNTIMED_FLUSH RECORDS=1 | all get into the file without one"
    "LIVENESS NO_STOP UNTIMED_FLUSH UNTIMED_WRITERS FLUSHERS=2 CALLERS=1 | ... and two flushes end"
    "LIVENESS NO_STOP UNTIMED_FLUSH YIELD RECORDS=1 | ... without an idle pause"
    "LIVENESS NO_STOP UNTIMED_PAUSE UNTIMED_WRITERS FULL_ONLY FLUSHERS=0 | ... full buffers by notifications alone"
)

# "parameters | what spin has to report | the fault"; an end state and a cycle are against P5.
faults=(
    "MUTANT=1 | P10_ZERO | a recycled buffer is not cleared"
    "MUTANT=2 | P1_COMPLETE | a writer decrements the count before it stores the type"
    "MUTANT=3 | P1_COMPLETE | a writer decrements the count before it has filled the record"
    "MUTANT=4 RECORDS=1 CAPACITY=1 | P3_FLUSHED | onFlush() leaves the current buffer where it is"
    "MUTANT=5 RECORDS=1 CAPACITY=1 | P6_OWNED | nobody looks at the queue again when the boost was lowered"
    "MUTANT=6 UNTIMED_PAUSE RECORDS=1 CAPACITY=1 | invalid end state | the stop is not notified"
    "MUTANT=7 UNTIMED_FLUSH RECORDS=1 CAPACITY=1 | invalid end state | onUninit() leaves a flush pending"
    "MUTANT=8 | P4_STOP | the stop is due though the current buffer holds records"
    "MUTANT=9 RECORDS=1 CAPACITY=1 | P3_FLUSHED | a batch is synced only if a flush is pending then"
    "MUTANT=10 LIVENESS NO_STOP UNTIMED_FLUSH | acceptance cycle | an idle step leaves a flush pending"
    "MUTANT=11 | P4_STOP | the pause does not ask whether the logger is to stop"
    "MUTANT=12 | P1_COMPLETE | the buffer that the thread retired is not waited for"
    "MUTANT=13 | P1_COMPLETE | the front of the queue is not waited for"
    "MUTANT=14 RECORDS=1 CAPACITY=1 | P3_FLUSHED | the flush request is cleared when the last buffer is taken"
    "MUTANT=15 | P6_OWNED | a buffer is recycled before it is rendered"
    "MUTANT=16 LIVENESS NO_STOP UNTIMED_PAUSE FULL_ONLY | acceptance cycle | a caller retires silently"
    "MUTANT=17 UNTIMED_WRITERS | invalid end state | the last writer does not notify"
    "MUTANT=18 UNTIMED_WRITERS | invalid end state | the flush thread waits without kAwaited"
    "MUTANT=19 UNTIMED_WRITERS | invalid end state | the ticket is read after kAwaited is set"
    "MUTANT=20 | P6_OWNED | the writer that opens a buffer is not counted"
    "MUTANT=21 | P9_OPEN | a retired buffer is not closed"
    "MUTANT=22 | P9_OPEN | a retired buffer is closed only when its successor is in the slot"
    "MUTANT=23 | P9_OPEN | a buffer is opened before it is in the slot"
    "MUTANT=24 | P9_OPEN | a recycled buffer is open"
    "MUTANT=25 | P7_ORDER | serialBase is read before the exchange"
    "MUTANT=26 | P7_ORDER | the successor's serialBase is from before the close"
    "MUTANT=27 KNOWLEDGE | P8_KNOWN | the exchange does not acquire"
    "MUTANT=28 KNOWLEDGE | P8_KNOWN | the store that opens does not release"
    "MUTANT=29 KNOWLEDGE | P8_KNOWN | the decrement does not release"
    "MUTANT=30 KNOWLEDGE | P8_KNOWN | the look at the count does not acquire"
    "MUTANT=31 KNOWLEDGE | P8_KNOWN | the close does not acquire"
    "MUTANT=32 HANDLER RECORDS=1 CAPACITY=1 | invalid end state | a handler whose thread holds the mutex waits for it"
    "MUTANT=33 HANDLER RECORDS=1 CAPACITY=1 | P11_KEPT | a record is dropped though the thread does not hold the mutex"
    "MUTANT=34 | P9_OPEN | the exchange does not ask for room"
    "STRICT_FLUSH RECORDS=1 | P3_FLUSHED | none, but a flush speaks of what came after the thread's end, too"
    "LIVENESS NO_STOP UNTIMED_PAUSE | acceptance cycle | none, but the idle pause has no bound"
)

# One search, in folder $1, of the model with the parameters in $2, compiled with option $3. What it
# prints goes to pan.out.
search() {
    local parameters safety=(-DSAFETY) options=(-m40000 -w24)
    read -ra parameters <<<"$2"
    # Fairness needs room for a number of threads.
    if [[ $2 = *LIVENESS* ]]; then
        safety=(-DNFAIR=3)
        options+=(-a -f)
    fi
    mkdir -p "$1"
    cd "$1"
    spin -a "${parameters[@]/#/-D}" "$model" >spin.out
    gcc "$3" "${safety[@]}" -DMEMLIM=3500 -o pan pan.c
    ./pan "${options[@]}" >pan.out 2>&1 || true
}

# The figures of a search, of what it left in pan.out.
figures() {
    awk '/, stored/ { states = $1 }
         /depth reached/ { depth = $6 }
         /total actual memory/ { memory = $1 }
         /elapsed time/ { seconds = $4 }
         END { printf "%7d states, depth %d, %3.0f MiB, %4.1f s", states, depth, memory, seconds }' pan.out
}

check_clean() {
    local number=$1 parameters text
    IFS='|' read -r parameters text <<<"$2"
    search "build/model/${model##*/}-clean-$number" "$parameters" -O2
    if ! grep -q '^Full statespace search' pan.out || ! grep -q 'errors: 0$' pan.out ||
        grep -qE '^pan: (out of memory|reached)|not completed|too small|truncated' pan.out; then
        die "${text# }: $(head -n 5 pan.out)"
    fi
    echo "$(figures): ${text# }"
}

check_fault() {
    local number=$1 parameters expected text
    IFS='|' read -r parameters expected text <<<"$2"
    expected=${expected# } expected=${expected% }
    search "build/model/${model##*/}-fault-$number" "$parameters" -O0
    grep -q "^pan:1: .*$expected" pan.out || die "${text# }: no '$expected', but: $(head -n 5 pan.out)"
    echo "found, $expected: ${text# }"
}

# Kind, process, line and text of the statements of the search in folder $1, and of those that it
# has not reached. The parameters are in the texts; so all numbers are alike.
statements() {
    {
        "$1/pan" -d | awk '/^(proctype|init|claim)/ { unit = $NF }
            match($0, /pml:[0-9]+ => /) {
                text = substr($0, RSTART + RLENGTH)
                gsub(/[0-9]+/, "0", text)
                print "all", unit, substr($0, RSTART + 4, RLENGTH - 8), text
            }'
        awk '/^unreached in/ { unit = $NF }
            match($0, /pml:[0-9]+, state [0-9]+, "/) {
                split(substr($0, RSTART + 4), line, ",")
                text = substr($0, RSTART + RLENGTH)
                sub(/"$/, "", text)
                gsub(/[0-9]+/, "0", text)
                print "all", unit, line[1], text
                print "unreached", unit, line[1], text
            }' "$1/pan.out"
    } | sort -u
}

# Calls $1 with two words at a time.
in_parallel() {
    xargs -0 -P "$(nproc)" -n 2 bash -euo pipefail -c '"$@"' check_model.sh "$1" || exit 1
}

# Two words an entry: its number and the entry.
numbered() {
    local number=0 entry
    for entry in "$@"; do
        printf '%d\0%s\0' $((++number)) "$entry"
    done
}

# Searches with model $1 for what is in the lists.
check_with_spin() {
    local unreached
    export model=$PWD/model/$1
    numbered "${searches[@]}" | in_parallel check_clean
    # Of a statement that no search has reached nothing is known.
    unreached=$(for folder in "build/model/$1-clean-"*; do
        statements "$folder"
    done | sort | uniq -c | awk '
        { count = $1; kind = $2; $1 = $2 = ""; }
        kind == "all" { all[$0] = count }
        kind == "unreached" && count == all[$0]')
    [ -z "$unreached" ] || die "no search reaches: $unreached"
    echo "$1: ${#searches[@]} searches without an error"
    numbered "${faults[@]}" | in_parallel check_fault
    echo "$1: ${#faults[@]} searches found the fault, all in $SECONDS s"
}

need_packages gcc spin
rm -rf build/model
export -f die search figures check_clean check_fault
check_with_spin BufferHandOver.pml

# The black box.
searches=(
    "RECOVERIES=1 | two callers, two records each"
    "CALLERS=1 RECORDS=3 CAPACITY=1 SLOTS=3 | three slots"
    "CALLERS=1 RECORDS=3 CAPACITY=1 DUMPS=2 | two dumps"
    "CALLERS=3 RECORDS=1 CAPACITY=3 SLOTS=1 | three callers in one buffer"
    "CALLERS=1 RECORDS=3 CAPACITY=1 DUMPS=0 RECOVERIES=3 | three recoveries at once"
    "CALLERS=1 RECORDS=1 DUMPS=0 FROM_START | recoveries meet a box that is being made"
    "RECORDS=1 CAPACITY=1 SLOTS=1 OUTSIDE=2 | a single slot"
)
faults=(
    "MUTANT=1 CALLERS=1 | B1_KEPT | a buffer is opened before the box knows of it"
    "MUTANT=2 CALLERS=1 RECORDS=3 CAPACITY=1 | B1_KEPT | a buffer outside is not counted"
    "MUTANT=3 CALLERS=1 | B2_WHOLE | a buffer is cleared before its sequence"
    "MUTANT=4 CALLERS=1 | B1_KEPT | the sequence is cleared before the text is written"
    "MUTANT=5 CALLERS=1 RECORDS=3 CAPACITY=1 | B4_ZERO | a slot is given back before it is clear"
    "MUTANT=6 CALLERS=1 RECORDS=3 CAPACITY=1 | B1_KEPT | the mark of a dump holds for the slot's next buffer, too"
    "MUTANT=7 CALLERS=1 RECORDS=3 CAPACITY=1 DUMPS=2 | B1_KEPT | a dump stores the sequence before the number of records"
    "MUTANT=8 CALLERS=1 | B1_KEPT | a dump marks a slot before its text is written"
    "MUTANT=9 CALLERS=1 | B1_KEPT | a dump counts the records when it has written them"
    "MUTANT=10 CALLERS=1 | B1_KEPT | a recovery does not compare the number of records"
    "MUTANT=11 CALLERS=1 | B2_WHOLE | a buffer is cleared while a dump runs"
    "MUTANT=12 CALLERS=1 | B2_WHOLE | a record has other contents before its size"
    "MUTANT=13 CALLERS=1 RECORDS=3 CAPACITY=1 | B2_WHOLE | a recovery takes slots by number"
    "MUTANT=14 CALLERS=1 | B1_KEPT | a recovery deletes the box before its file is complete"
    "MUTANT=15 CALLERS=1 | B3_ONCE | a recovery writes text before the box knows the file"
    "MUTANT=16 CALLERS=1 | B3_ONCE | a recovery leaves the file of the one before"
    "MUTANT=17 CALLERS=1 | B1_KEPT | a recovery takes a box that another has deleted before it had the lock"
    "MUTANT=18 CALLERS=1 | B3_ONCE | a recovery takes a box that is locked"
    "MUTANT=18 CALLERS=1 RECORDS=1 DUMPS=0 FROM_START | B5_NAMED | ... by a living process"
    "MUTANT=19 CALLERS=1 RECORDS=1 DUMPS=0 FROM_START | B5_NAMED | a process uses a box that was deleted before it had the lock"
)
check_with_spin BlackBox.pml

# The memory orders, by Relacy. "parameters | what is special", the longest first.
executions=(
    "BOUND=2 | two callers, two retirements"
    "BOUND=2 CALLERS=1 RECORDS=2 CAPACITY=1 DUMP=1 | a dump meets retirements of callers"
    "FULL=1 CALLERS=1 RETIREMENTS=0 DUMP=1 | a dump and one record, all executions"
    "BOUND=2 CALLERS=1 KERNEL=1 DUMP=1 | a dump, and no pool"
    "RANDOM=500000 RECORDS=2 BUFFERS=3 DUMP=1 | a dump and everything else, at random"
    "RANDOM=500000 CALLERS=3 CAPACITY=3 RETIREMENTS=0 DUMP=1 | a dump in a buffer of three callers"
    "BOUND=3 CALLERS=1 KERNEL=1 | no pool"
    "BOUND=2 CAPACITY=1 RETIREMENTS=1 | callers retire, too"
    "BOUND=3 CALLERS=1 RECORDS=2 CAPACITY=1 | one caller, and one preemption more"
    "BOUND=2 RETIREMENTS=0 DUMP=1 | a dump in a buffer of two callers"
    "BOUND=1 KERNEL=1 | no pool, two callers"
)

# "parameters | what Relacy has to report | the fault".
order_faults=(
    "BOUND=2 MUTANT=1 | DATA RACE | the exchange does not acquire"
    "BOUND=2 MUTANT=2 | DATA RACE | a caller reads the head before the exchange"
    "BOUND=2 MUTANT=3 | DATA RACE | the opening does not release"
    "BOUND=2 CALLERS=1 DUMP=1 MUTANT=4 | USER ASSERT FAILED (DUMPED) | a buffer is opened before it is in the slot"
    "BOUND=2 MUTANT=5 | DATA RACE | a retirement does not close the buffer"
    "BOUND=2 MUTANT=6 | DATA RACE | the decrement does not release"
    "BOUND=2 MUTANT=7 | DATA RACE | the look at the count does not acquire"
    "BOUND=2 MUTANT=8 | DATA RACE | a buffer is recycled while the count is above 0"
    "BOUND=2 MUTANT=9 | DEADLOCK | the ticket is taken after the last look"
    "BOUND=2 MUTANT=10 | DEADLOCK | a notification looks for waiters with acquire"
    "BOUND=2 MUTANT=11 | USER ASSERT FAILED (ZERO_MEMORY) | a buffer of the pool is not cleared"
    "BOUND=2 RETIREMENTS=0 DUMP=1 MUTANT=12 | USER ASSERT FAILED (NO_INSIDE) | no release fence behind the first word"
    "BOUND=2 RETIREMENTS=0 DUMP=1 MUTANT=13 | USER ASSERT FAILED (NO_INSIDE) | the walk has no acquire fence"
    "BOUND=2 RETIREMENTS=0 DUMP=1 MUTANT=14 | USER ASSERT FAILED (NO_INSIDE) | the walk does not read again"
    "BOUND=2 RETIREMENTS=0 DUMP=1 MUTANT=15 | USER ASSERT FAILED (COMPLETE) | the walk's load of the type does not acquire"
    "BOUND=2 CALLERS=1 KERNEL=1 DUMP=1 MUTANT=16 | DATA RACE | the look at the gate only acquires"
    "BOUND=2 CALLERS=1 KERNEL=1 DUMP=1 MUTANT=17 | DATA RACE | a buffer leaves the slot with acquire and release"
    "BOUND=2 CALLERS=1 KERNEL=1 DUMP=1 MUTANT=18 | DATA RACE | a buffer leaves the queue with release"
)

# Runs Relacy with the parameters in $2. What it prints goes to the file $1.
execute() {
    local parameters
    read -ra parameters <<<"$2"
    build/model/reservation "${parameters[@]}" >"$1" 2>&1
}

check_execution() {
    local out=build/model/execution-$1 parameters text
    IFS='|' read -r parameters text <<<"$2"
    if ! execute "$out" "$parameters" || ! grep -q '^iterations: ' "$out"; then
        die "${text# }: $(sed -n '2,3p' "$out")"
    fi
    awk -v text="$text" '/^iterations/ { iterations = $2 }
         /^total time/ { printf "%7d executions, %4.1f s:%s\n", iterations, $3 / 1000, text }' "$out"
}

check_order_fault() {
    local out=build/model/order-fault-$1 parameters expected text
    IFS='|' read -r parameters expected text <<<"$2"
    expected=${expected# } expected=${expected% }
    if execute "$out" "$parameters" || [[ $(sed -n 2p "$out") != "$expected"* ]]; then
        die "${text# }: no '$expected', but: $(sed -n '2,3p' "$out")"
    fi
    echo "found, $expected, execution $(awk '/^iteration: / { print $2 }' "$out"): ${text# }"
}

need_packages g++ relacy-dev
mkdir -p build/model
# Relacy replaces operator delete, but not the one with a size.
g++ -std=c++20 -O2 -Wall -Wextra -Werror -fno-sized-deallocation \
    -o build/model/reservation model/Reservation.cpp
export -f execute check_execution check_order_fault
numbered "${executions[@]}" | in_parallel check_execution
echo "memory orders: ${#executions[@]} searches without an error"
numbered "${order_faults[@]}" | in_parallel check_order_fault
echo "memory orders: ${#order_faults[@]} searches found the fault, all in $SECONDS s"
