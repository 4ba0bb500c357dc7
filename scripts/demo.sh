#!/usr/bin/env bash
# Builds the camera host and lets it log into rotating text files, crash, or track exceptions.
source "$(dirname "$0")/common.sh"

if [ "${1:-}" = --help ] || [ "${1:-}" = -h ]; then
    cat <<'TEXT'
usage: scripts/demo.sh [OPTION]...

Builds the camera host and runs it in mode 0x14 (own log files) with the log folder
build/demo/logs. The options are the camera host's, for example
  --crash segv   crashes half way, and shows what the crash file saves
  --storm 1000   lets a thousand processes crash at full load, one after the other, each at a random
                 moment and in a random thread, and looks for every record in their files; those of
                 a process that lost one stay in build/demo/storm
  --exceptions   reports camera exceptions instead, and shows who is told of them
On a bare Debian machine it first installs the packages that it needs.

Lines that the library itself writes to the Android log go to stderr. ANDROID_LOG_TAGS
chooses among them, for example ANDROID_LOG_TAGS="*:V" for all (a line for every record).

TEXT
    build_preset release --target camera_host
    exec build/release/examples/camera_host --help
fi

build_preset release --target camera_host
folder=build/demo/logs
tags='FileAloneJLogger:I JLogInit:W *:I'
if [[ " $* " = *' --storm '* ]]; then
    folder=build/demo/storm
    tags='*:F' # thousands of starts would fill the screen
fi
export ANDROID_LOG_TAGS="${ANDROID_LOG_TAGS:-$tags}"
exec build/release/examples/camera_host --mode 0x14 --folder "$folder" "$@"
