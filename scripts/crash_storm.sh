#!/usr/bin/env bash
# Lets many processes crash while they log at full speed, and checks what each leaves behind.
source "$(dirname "$0")/common.sh"

if [ "${1:-}" = --help ] || [ "${1:-}" = -h ]; then
    cat <<'TEXT'
usage: scripts/crash_storm.sh [N] [OPTION]...

Starts N processes (1000 by default) one after the other. In each, four threads log at full
speed until SIGABRT, SIGSEGV or SIGBUS ends it, at a random moment and in a random thread: a
logging thread, a stranger, one inside malloc, or the library's flush thread. Then every
record whose call had returned must be in a file, in whole lines. Further options go to the
camera host. The exit status is 1 if anything is amiss; the files of such a process stay in
build/demo/storm.
TEXT
    exit 0
fi

children=1000
if [[ "${1:-}" =~ ^[0-9]+$ ]]; then
    children=$1
    shift
fi
build_preset demo
# Thousands of starts would fill the screen.
export ANDROID_LOG_TAGS="${ANDROID_LOG_TAGS:-*:F}"
exec build/demo/examples/camera_host --mode 0x14 --folder build/demo/storm --storm "$children" "$@"
