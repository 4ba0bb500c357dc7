#!/usr/bin/env bash
# The static checks: layout, lists and portability of the sources, and clang-tidy with the whole of
# .clang-tidy.
source "$(dirname "$0")/common.sh"

if [ "${1:-}" = --help ] || [ "${1:-}" = -h ]; then
    cat <<'TEXT'
usage: scripts/check.sh

Checks the sources, and changes nothing: clang-format; shellcheck; Android.bp, by bpfmt and against
the lists of CMake; that the library compiles with another libc and libc++; clang-tidy.
TEXT
    exit 0
fi

need_packages blueprint-tools clang-format clang-tidy libc++-dev libc++abi-dev musl-dev python3 shellcheck

mapfile -t sources < <(git ls-files '*.h' '*.cpp')
clang-format --dry-run -Werror "${sources[@]}"
echo "clang-format: ${#sources[@]} files are as they should be"

shellcheck --external-sources --source-path=scripts scripts/*.sh .ci/run
echo "shellcheck: the scripts are clean"

# The clang preset knows every target.
need_preset clang
cmake --preset clang >&2
[ -z "$(bpfmt -d Android.bp 2>&1)" ] || die "Android.bp: $(bpfmt -d Android.bp 2>&1)"
/usr/bin/python3 scripts/check_android_bp.py Android.bp build/clang/compile_commands.json

# Another libc than GNU's, with the C++ library that Android has. (Which functions of libc are called at
# all is check_abi.sh's to watch.) The constant is younger than this musl, and older than the kernels of
# the devices.
llvm=$(dirname "$(dirname "$(readlink -f "$(command -v clang++)")")")
mapfile -t units < <(git ls-files 'jlog/*.cpp')
printf '%s\0' "${units[@]}" | xargs -0 -P "$(nproc)" -n 4 clang++ -std=c++20 -fsyntax-only -Werror \
    --target="$(uname -m)-linux-musl" -nostdinc -D_LIBCPP_HAS_MUSL_LIBC -DMADV_POPULATE_WRITE=23 \
    -isystem "$llvm/include/c++/v1" -isystem "$(clang++ -print-resource-dir)/include" \
    -isystem "/usr/include/$(uname -m)-linux-musl" -Iinclude -I. \
    -Iplatform/include -Iplatform/liblog/include
echo "musl and libc++: ${#units[@]} sources of the library compile"

# Headers are checked with the sources that include them.
mapfile -t units < <(git ls-files '*.cpp')
# One unit a process: with several, clang-tidy 14 mistakes the va_list of one for another's.
printf '%s\0' "${units[@]}" |
    xargs -0 -P "$(nproc)" -n 1 clang-tidy -p build/clang --quiet 2> >(grep -v 'warnings generated\|Suppressed\|Use -header-filter' >&2)
echo "clang-tidy: ${#units[@]} units are clean"
