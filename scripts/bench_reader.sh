#!/usr/bin/env bash
# Times jlog against other ways to read a log file of 180 MiB, in turn.
source "$(dirname "$0")/common.sh"

rounds=7
if [ "${1:-}" = --help ] || [ "${1:-}" = -h ]; then
    cat <<'TEXT'
usage: scripts/bench_reader.sh [ROUNDS]

Lets the camera host log at full load until it has filled files, and times jlog on the first of them
(180 MiB) beside: reading it (dd), wc -l, ripgrep with a pattern, mawk pairing scopes, and lnav. Every
round runs each once, in turn, so that all meet the same machine. Shows the medians, each as a
ratio to wc and to report, and the memory. Then jlog report of a folder of 2 GB. On a bare Debian
machine it first installs the packages that it needs.
TEXT
    exit 0
fi
rounds=${1:-$rounds}

need_packages lnav mawk ripgrep time
build_preset release --target camera_host jlog
folder=$PWD/build/bench/reader
jlog=$PWD/build/release/tools/jlog/jlog
if [ "$(find "$folder" -name '*_12.txt' 2>/dev/null | wc -l)" -eq 0 ]; then
    rm -rf "$folder"
    # Some three seconds fill 2 GB; what comes beyond is deleted.
    ANDROID_LOG_TAGS='*:S' build/release/examples/camera_host --mode 0x14 --folder "$folder" --rate 0 \
        --seconds 4 >/dev/null
    find "$folder" -name '*_1[2-9].txt' -not -name '*_12.txt' -delete
    find "$folder" -name '*_[2-9][0-9].txt' -delete
fi
first=$(find "$folder" -name '*_01.txt')
[ -n "$first" ] || die "the camera host has left no file in $folder"

# What a script of an engineer does: pairs by thread, request and name, and keeps sums.
cat >"$folder/pair.awk" <<'AWK'
$6 == "JLog" {
    split($2, t, /[:.]/)
    now = (t[1] * 3600 + t[2] * 60 + t[3]) * 1000000 + t[4]
    key = $4 $9 $10 $12
    if ($11 == "+") { begin[key] = now }
    else if (key in begin) { name = $10 $12; count[name]++; sum[name] += now - begin[key]; delete begin[key] }
}
END { for (name in count) print name, count[name], sum[name] / count[name] }
AWK

names=(dd wc rg mawk lnav report scopes perfetto ndjson)
dd() { command dd if="$first" of=/dev/null bs=1M status=none; }
wc() { command wc -l "$first"; }
rg() { command rg -c 'JLog    : R AppRequest:[0-9]+ M\[Preview:4\] \+' "$first"; }
mawk() { command mawk -f "$folder/pair.awk" "$first"; }
lnav() { command lnav -n -I "$folder/lnav" -c ';SELECT count(*) FROM jcam_jlog' "$first"; }
report() { "$jlog" report "$first"; }
scopes() { "$jlog" export ndjson --scopes "$first" -o "$folder/scopes.ndjson"; }
perfetto() { "$jlog" export perfetto --scopes "$first" -o "$folder/trace.pftrace"; }
ndjson() { "$jlog" export ndjson --records "$first" -o "$folder/records.ndjson"; }
mkdir -p "$folder/lnav/formats/jcam_jlog"
cp tools/jlog/share/jcam_jlog.lnav.json "$folder/lnav/formats/jcam_jlog/"

declare -A times
for ((round = 0; round <= rounds; round++)); do
    for name in "${names[@]}"; do
        begin=${EPOCHREALTIME/[.,]/}
        "$name" >/dev/null
        end=${EPOCHREALTIME/[.,]/}
        # The first round warms the caches.
        [ "$round" -eq 0 ] || times[$name]+="$((end - begin)) "
    done
done

median() {
    tr ' ' '\n' <<<"${times[$1]}" | grep . | sort -n | sed -n "$(((rounds + 1) / 2))p"
}
printf '%s: %d bytes, %d lines; medians of %d rounds\n' "$(basename "$first")" \
    "$(stat -c %s "$first")" "$(command wc -l <"$first")" "$rounds"
printf '%-10s %9s %8s %10s\n' program seconds '/ wc' '/ report'
for name in "${names[@]}"; do
    awk -v name="$name" -v t="$(median "$name")" -v wc="$(median wc)" -v report="$(median report)" \
        'BEGIN { printf "%-10s %9.3f %8.2f %10.2f\n", name, t / 1e6, t / wc, t / report }'
done
memory() {
    printf '%s: ' "$1"
    command time -f '%e s, %M KiB at most' "${@:2}" 2>&1 >/dev/null | tail -1
}
memory "report of 180 MiB" "$jlog" report "$first"
memory "export perfetto of 180 MiB" "$jlog" export perfetto "$first" -o "$folder/trace.pftrace"
memory "export ndjson of 180 MiB" "$jlog" export ndjson "$first" -o "$folder/scopes.ndjson"
memory "report of $(du -sm --exclude='*.ndjson' --exclude='*.pftrace' "$folder" | cut -f1) MB" \
    "$jlog" report "$folder"
memory "export ndjson of the same" "$jlog" export ndjson "$folder" -o "$folder/scopes.ndjson"
