#!/usr/bin/env bash
# Builds the benchmarks and runs them.
source "$(dirname "$0")/common.sh"

if [ "${1:-}" = --help ] || [ "${1:-}" = -h ]; then
    cat <<'TEXT'
usage: scripts/bench.sh [GOOGLE-BENCHMARK-OPTION]...

Measures what a call costs and how fast records become text, and ends with ratios of
times of this one run. For example --benchmark_filter=render.
TEXT
    exit 0
fi

need_packages cmake g++ ninja-build libgtest-dev libgmock-dev libcli11-dev libfmt-dev libbenchmark-dev
build_preset release --target jlog_bench
# Repetitions of all benchmarks take turns, so that what else the machine does meets all of them.
exec build/release/bench/jlog_bench --benchmark_enable_random_interleaving=true "$@"
