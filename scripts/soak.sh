#!/usr/bin/env bash
# Lets loggers live under load for a while, and checks every byte that they write.
source "$(dirname "$0")/common.sh"

if [ "${1:-}" = --help ] || [ "${1:-}" = -h ]; then
    cat <<'TEXT'
usage: scripts/soak.sh MINUTES [--preset NAME] [OPTION]...

Builds the soak and runs it for so many minutes, 0.5 for example. Generation after
generation, each a few seconds long, a host starts the file logger with properties at
random; 16 threads that come and go log names and texts of any length and with any byte,
in bursts and with pauses, flush, and change level and filter; then the host ends. Every
record must be in the files once, in order and with its exact text, and the process may
keep no descriptor, thread, record buffer or other memory.

The presets are release (the default), debug, clang, asan-ubsan and tsan. Further options
go to the program: --seed N makes the same choices again (not the same interleaving). At
the first fault it tells what it expected, and where, and ends with status 1; the files of
that generation stay in build/NAME/soak.
TEXT
    exit 0
fi

[[ "${1:-}" =~ ^[0-9]*\.?[0-9]+$ ]] || die "for how many minutes? See --help"
minutes=$1
shift
preset=release
if [ "${1:-}" = --preset ]; then
    preset=${2:?--preset takes a name}
    shift 2
fi
build_preset "$preset" --target soak
# Each generation starts a logger, and threads change the level: too much to read.
export ANDROID_LOG_TAGS="${ANDROID_LOG_TAGS:-*:F}"
exec "build/$preset/tools/soak/soak" "$minutes" --folder "build/$preset/soak" "$@"
