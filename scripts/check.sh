#!/usr/bin/env bash
# The static checks: layout of the sources, and clang-tidy with the whole of .clang-tidy.
source "$(dirname "$0")/common.sh"

if [ "${1:-}" = --help ] || [ "${1:-}" = -h ]; then
    echo "usage: scripts/check.sh    checks sources with clang-format and clang-tidy; changes nothing"
    exit 0
fi

need_packages clang-format clang-tidy

mapfile -t sources < <(git ls-files '*.h' '*.cpp')
clang-format --dry-run -Werror "${sources[@]}"
echo "clang-format: ${#sources[@]} files are as they should be"

# The clang preset knows every target. Headers are checked with the sources that include them.
need_preset clang
cmake --preset clang >&2
mapfile -t units < <(git ls-files '*.cpp')
# One unit a process: with several, clang-tidy 14 mistakes the va_list of one for another's.
printf '%s\0' "${units[@]}" |
    xargs -0 -P "$(nproc)" -n 1 clang-tidy -p build/clang --quiet 2> >(grep -v 'warnings generated\|Suppressed\|Use -header-filter' >&2)
echo "clang-tidy: ${#units[@]} units are clean"
