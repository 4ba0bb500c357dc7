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
targets=("$@")
[ $# -gt 0 ] ||
    mapfile -t targets < <(sed -n 's/^jcam_add_fuzzer(\([a-z_]*\).*/\1/p' fuzz/CMakeLists.txt)
[ ${#targets[@]} -gt 0 ] || die "there is no fuzzer"
build_preset fuzz --target "${targets[@]}"

# Unless the caller wants to see it: millions of runs would fill the screen.
export ANDROID_LOG_TAGS="${ANDROID_LOG_TAGS:-*:S}"
# Every run of an input writes files, which takes a multiple of its time on a disk.
TMPDIR=$(mktemp -d -p /dev/shm 2>/dev/null || mktemp -d)
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT

run_fuzzer() {
    local target=$1 folder=build/fuzz/run/$1 failed=build/fuzz/failed/$1
    rm -rf "$folder"
    mkdir -p "$folder/corpus" "$failed"
    # Inputs of more than 4096 bytes find no more, and take longer.
    "build/fuzz/fuzz/$target" -max_total_time="$duration" -timeout=10 -rss_limit_mb=2048 \
        -max_len=4096 -artifact_prefix="$failed/" \
        "$folder/corpus" "fuzz/seeds/$target" >"$folder/log" 2>&1 &&
        touch "$folder/passed"
}

# Prints libFuzzer's last count of runs and edges; false if the run failed.
report() {
    local folder=build/fuzz/run/$1
    printf '%-24s %s\n' "$1" "$(grep -P '^#\d+\s.* cov: ' "$folder/log" | tail -n 1)"
    [ -e "$folder/passed" ] && return
    grep -m 1 -B 3 -A 8 'check failed\|ERROR:\|runtime error:' "$folder/log" || true
    grep -o 'Test unit written to .*' "$folder/log" || echo "see $folder/log"
    return 1
}

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
