#!/usr/bin/env bash
# The static checks: layout and lists of the sources, and clang-tidy with the whole of .clang-tidy.
source "$(dirname "$0")/common.sh"

if [ "${1:-}" = --help ] || [ "${1:-}" = -h ]; then
    cat <<'TEXT'
usage: scripts/check.sh

Checks the sources, and changes nothing: clang-format; Android.bp, by bpfmt and against the lists of
CMake; clang-tidy.
TEXT
    exit 0
fi

need_packages blueprint-tools clang-format clang-tidy python3

mapfile -t sources < <(git ls-files '*.h' '*.cpp')
clang-format --dry-run -Werror "${sources[@]}"
echo "clang-format: ${#sources[@]} files are as they should be"

# The clang preset knows every target.
need_preset clang
cmake --preset clang >&2
[ -z "$(bpfmt -d Android.bp 2>&1)" ] || die "Android.bp: $(bpfmt -d Android.bp 2>&1)"
/usr/bin/python3 scripts/check_android_bp.py Android.bp build/clang/compile_commands.json

# Headers are checked with the sources that include them.
mapfile -t units < <(git ls-files '*.cpp')
# One unit a process: with several, clang-tidy 14 mistakes the va_list of one for another's.
printf '%s\0' "${units[@]}" |
    xargs -0 -P "$(nproc)" -n 1 clang-tidy -p build/clang --quiet 2> >(grep -v 'warnings generated\|Suppressed\|Use -header-filter' >&2)
echo "clang-tidy: ${#units[@]} units are clean"
