#!/usr/bin/env bash
# Builds the benchmarks, runs them all and compares.
source "$(dirname "$0")/common.sh"

if [ "${1:-}" = --help ] || [ "${1:-}" = -h ]; then
    cat <<'TEXT'
usage: scripts/bench.sh [--rounds N] [--charts FOLDER]

Measures what a call costs, what reaches the file, and what the logger takes while it
idles: for this library, for a ring buffer per thread written by hand, for spdlog and glog,
and for what is physically possible. Prints one table of ratios within this run and draws
charts into build/bench. Takes about four minutes with the default of 4 rounds; leave the
machine alone meanwhile.

The programs behind it run on their own, too: build/release/bench/jlog_microbench takes
the options of Google Benchmark, build/release/bench/jlog_loadbench has --help.
TEXT
    exit 0
fi

need_packages libspdlog-dev libgoogle-glog-dev python3-matplotlib
build_preset release --target jlog_microbench jlog_loadbench
# Debian's own Python, for which its packages are.
exec /usr/bin/python3 bench/campaign.py build/release/bench "$@"
