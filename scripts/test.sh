#!/usr/bin/env bash
# Builds the tests and runs them.
source "$(dirname "$0")/common.sh"

preset=debug
while [ $# -gt 0 ]; do
    case "$1" in
        --preset) preset=${2:?--preset takes a name}; shift 2 ;;
        -h | --help)
            cat <<'TEXT'
usage: scripts/test.sh [--preset NAME] [CTEST-OPTION]...

Builds the library with its tests and runs them. The presets are debug (the default),
release, asan-ubsan, tsan, clang, libcxx (clang with libc++), aarch64 (cross-built, run under
qemu-user but for the few tests that ask more of a kernel) and real-liblog (Android's own
liblog, and the tests that run on it). On a bare Debian machine it first installs the packages
that it needs. Further options go to ctest, for example -R Writer.
TEXT
            exit 0
            ;;
        *) break ;;
    esac
done

build_preset "$preset"
exec ctest --preset "$preset" --parallel "$(nproc)" "$@"
