#!/usr/bin/env bash
# Builds the fuzzers and runs them.
source "$(dirname "$0")/common.sh"

if [[ ! "${1:-}" =~ ^[1-9][0-9]*$ ]]; then
    cat <<'TEXT'
usage: scripts/fuzz.sh SECONDS [TARGET]...

Runs every fuzzer of fuzz/CMakeLists.txt, or those named, for so many seconds each and as many
at a time as there are cores. A run starts from fuzz/seeds/TARGET. Its log and the corpus that
it gathers are in build/fuzz/run/TARGET until the next run; inputs that failed stay in
build/fuzz/failed/TARGET, and the fuzzer in build/fuzz/fuzz repeats one that it is given.
The exit status is 1 if any fuzzer failed.
TEXT
    [ "${1:-}" = --help ] || [ "${1:-}" = -h ]
    exit
fi
duration=$1
shift

mapfile -t known < <(sed -n 's/^jcam_add_fuzzer(\([a-z_]*\).*/\1/p' fuzz/CMakeLists.txt)
targets=("$@")
[ $# -gt 0 ] || targets=("${known[@]}")
[ ${#targets[@]} -gt 0 ] || die "there is no fuzzer"
for target in "${targets[@]}"; do
    [[ " ${known[*]} " == *" $target "* ]] || die "there is no fuzzer $target"
done

# Bytes of an input. Longer ones find no more, and take longer.
max_bytes=4096

# Unless the caller wants to see it: millions of runs would fill the screen.
export ANDROID_LOG_TAGS="${ANDROID_LOG_TAGS:-*:S}"

run_fuzzer() {
    local target=$1 folder=build/fuzz/run/$1 failed=build/fuzz/failed/$1
    rm -rf "$folder"
    mkdir -p "$folder/corpus" "$failed"
    TMPDIR=$PWD/$folder "build/fuzz/fuzz/$target" -max_total_time="$duration" -print_final_stats=1 \
        -timeout=10 -rss_limit_mb=2048 -max_len="$max_bytes" \
        -artifact_prefix="$failed/" "$folder/corpus" "fuzz/seeds/$target" >"$folder/log" 2>&1 &&
        touch "$folder/passed"
}

# What matches the pattern $2 last in the log of a run, by libFuzzer's own account.
last_of() {
    grep -oP "$2" "$1/log" | tail -n 1
}

# One line about a run; false if it failed.
report() {
    local folder=build/fuzz/run/$1 verdict=failed runs seeds
    runs=$(last_of "$folder" '^stat::number_of_executed_units: \K\d+') || runs=0
    seeds=$(find "fuzz/seeds/$1" -type f | wc -l)
    # libFuzzer runs the seeds and the empty input in any case.
    [ ! -e "$folder/passed" ] || [ "$runs" -le $((seeds + 1)) ] || verdict=passed
    printf '%-24s %10d runs %6s edges %5s inputs %5s s  %s\n' "$1" "$runs" \
        "$(last_of "$folder" ' cov: \K\d+' || echo -)" \
        "$(last_of "$folder" ' corp: \K\d+' || echo -)" \
        "$(last_of "$folder" '^Done \d+ runs in \K\d+' || echo -)" "$verdict"
    [ "$verdict" = passed ] && return
    grep -m 1 -B 3 -A 8 'check failed\|ERROR:\|runtime error:' "$folder/log" || true
    last_of "$folder" 'Test unit written to \K.*' || echo "see $folder/log"
    return 1
}

build_preset fuzz --target "${targets[@]}"
for target in "${targets[@]}"; do
    while [ "$(jobs -rp | wc -l)" -ge "$(nproc)" ]; do
        wait -n || true
    done
    run_fuzzer "$target" &
done
wait
status=0
for target in "${targets[@]}"; do
    report "$target" || status=1
done
exit "$status"
