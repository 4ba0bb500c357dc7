#!/usr/bin/env bash
# Builds the camera host and lets it log into rotating text files, crash, or track exceptions.
source "$(dirname "$0")/common.sh"

if [ "${1:-}" = --help ] || [ "${1:-}" = -h ]; then
    cat <<'TEXT'
usage: scripts/demo.sh [OPTION]...

Builds the camera host and runs it in mode 0x14 (own log files) with the log folder
build/demo/logs. The options are the camera host's and go to it unchanged; for example
"--crash segv" lets it crash half way, and shows what the crash file saves, and
"--exceptions" reports camera exceptions instead, and shows who is told of them.
On a bare Debian machine it first installs the packages that it needs.

Lines that the library itself writes to the Android log go to stderr. ANDROID_LOG_TAGS
chooses among them, for example ANDROID_LOG_TAGS="*:V" for all (a line for every record).

TEXT
    build_preset demo
    exec build/demo/examples/camera_host --help
fi

build_preset demo
export ANDROID_LOG_TAGS="${ANDROID_LOG_TAGS:-FileAloneJLogger:I JLogInit:W *:I}"
exec build/demo/examples/camera_host --mode 0x14 --folder build/demo/logs "$@"
