#!/usr/bin/env bash
# Checks the model of the hand-over between callers and flush thread, and that it can fail.
source "$(dirname "$0")/common.sh"

if [ "${1:-}" = --help ] || [ "${1:-}" = -h ]; then
    cat <<'TEXT'
usage: scripts/check_model.sh

Lets spin look at every order of steps that model/BufferHandOver.pml allows, for several numbers
of threads, records and buffers. Prints what each search took; fails on any error, when a search
was not exhaustive, and when none has reached some statement. Then it lets spin search with one
fault put in at a time, or a bound taken away, and fails unless that breaks the property which it
has to break. Takes some 100 s of processor time, and less than 1 GiB for each search; it runs as
many at once as there are processors. Works in build/model. On a bare Debian machine it first
installs the packages that it needs.
TEXT
    exit 0
fi

# "parameters | what is special", the longest first.
searches=(
    "CALLERS=3 RECORDS=1 | three callers"
    "CAPACITY=1 BUFFERS=6 | a buffer for each record"
    " | two callers, two records each"
    "FLUSHERS=2 RECORDS=1 CAPACITY=1 | two flushes"
    "YIELD RECORDS=1 CAPACITY=1 | no idle pause"
    "SECONDS=2 RECORDS=1 CAPACITY=1 | a flush that waits twice"
    "BUFFERS=2 | short of memory"
    "BUFFERS=1 | a single buffer"
    "UNTIMED_PAUSE UNTIMED_FLUSH | only the wait for writers is timed"
    "UNTIMED_PAUSE UNTIMED_FLUSH UNTIMED_WRITERS NOTIFY_LOCKED | nothing is timed, writers notify locked"
    "LIVENESS RECORDS=1 CAPACITY=1 | all end after a stop"
    "LIVENESS BUFFERS=2 RECORDS=1 CAPACITY=1 | ... short of memory"
    "LIVENESS NO_STOP UNTIMED_FLUSH RECORDS=1 | all get into the file without one"
    "LIVENESS NO_STOP UNTIMED_FLUSH FLUSHERS=2 CALLERS=1 | ... and two flushes end"
    "LIVENESS NO_STOP UNTIMED_FLUSH YIELD RECORDS=1 | ... without an idle pause"
    "LIVENESS NO_STOP UNTIMED_FLUSH UNTIMED_PAUSE FULL_ONLY | ... full buffers by notifications alone"
)

# "parameters | what spin has to report | the fault"; an end state and a cycle are against P5.
faults=(
    "MUTANT=1 | P2_ONCE | a buffer of the pool is used again as it is"
    "MUTANT=2 | P1_COMPLETE | a writer decrements the count before it stores the type"
    "MUTANT=3 | P1_COMPLETE | a writer decrements the count before it has filled the record"
    "MUTANT=4 | P6_OWNED | the last writer looks at the count again after its decrement"
    "MUTANT=5 | P3_FLUSHED | onFlush() leaves the current buffer where it is"
    "MUTANT=6 UNTIMED_PAUSE | invalid end state | the stop is stored and notified without the mutex"
    "MUTANT=7 UNTIMED_PAUSE | invalid end state | the stop is not notified"
    "MUTANT=8 UNTIMED_FLUSH | invalid end state | onUninit() leaves a flush pending"
    "MUTANT=9 | P4_STOP | the stop is due though the current buffer holds records"
    "MUTANT=10 | P3_FLUSHED | a batch is synced only if a flush is pending then"
    "MUTANT=11 LIVENESS NO_STOP UNTIMED_FLUSH | acceptance cycle | an idle step leaves a flush pending"
    "MUTANT=12 | P4_STOP | the pause does not ask whether the logger is to stop"
    "MUTANT=13 | P6_OWNED | the buffer that the thread retired is not waited for"
    "MUTANT=14 | P6_OWNED | the front of the queue is not waited for"
    "MUTANT=15 | P3_FLUSHED | the flush request is cleared when the last buffer is taken"
    "MUTANT=16 | P6_OWNED | a buffer is recycled before it is rendered"
    "MUTANT=17 LIVENESS NO_STOP UNTIMED_PAUSE FULL_ONLY | acceptance cycle | a caller retires silently"
    "STRICT_FLUSH | P3_FLUSHED | none, but a flush speaks of what came after the thread's end, too"
    "UNTIMED_WRITERS | invalid end state | none, but the wait for writers has no bound"
    "LIVENESS NO_STOP UNTIMED_PAUSE | acceptance cycle | none, but the idle pause has no bound"
)

# One search, in folder $1, of the model with the parameters in $2, compiled with option $3. What it
# prints goes to pan.out.
search() {
    local parameters safety=(-DSAFETY) options=(-m20000 -w24)
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
    search "build/model/clean-$number" "$parameters" -O2
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
    search "build/model/fault-$number" "$parameters" -O0
    grep -q "^pan:1: .*$expected" pan.out || die "${text# }: no '$expected', but: $(head -n 5 pan.out)"
    echo "found, $expected: ${text# }"
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

need_packages gcc spin
rm -rf build/model
model=$PWD/model/BufferHandOver.pml
export model
export -f die search figures check_clean check_fault
numbered "${searches[@]}" | in_parallel check_clean
# Of a statement that no search has reached nothing is known.
unreached=$(for out in build/model/clean-*/pan.out; do
    awk '/^unreached in/ { unit = $NF }
         match($0, /pml:[0-9]+, state [0-9]+, /) {
             split(substr($0, RSTART + 4), line, ",")
             print unit, "line", line[1] ":", substr($0, RSTART + RLENGTH)
         }' "$out" | sort -u
done | sort | uniq -c | awk -v all="${#searches[@]}" '$1 == all')
[ -z "$unreached" ] || die "no search reaches: $unreached"
echo "model: ${#searches[@]} searches without an error"
numbered "${faults[@]}" | in_parallel check_fault
echo "model: ${#faults[@]} searches found the fault, all in $SECONDS s"
