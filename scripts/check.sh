#!/usr/bin/env bash
# The static checks: format, lists, portability and weight of the sources, and clang-tidy.
source "$(dirname "$0")/common.sh"

if [ "${1:-}" = --help ] || [ "${1:-}" = -h ]; then
    cat <<'TEXT'
usage: scripts/check.sh [--quick | --tidy]

Checks the sources, and changes nothing: clang-format; shellcheck; the share of tests in the code;
Android.bp, by bpfmt and against the lists of CMake; that the library compiles with another libc and
libc++; clang-tidy. --quick leaves out clang-tidy, which takes minutes; --tidy runs nothing else.
TEXT
    exit 0
fi

check_format() {
    local sources
    mapfile -t sources < <(git ls-files '*.h' '*.cpp')
    clang-format --dry-run -Werror "${sources[@]}"
    echo "clang-format: ${#sources[@]} files are as they should be"
}

check_scripts() {
    shellcheck --external-sources --source-path=scripts scripts/*.sh .ci/run
    echo "shellcheck: the scripts are clean"
}

# Fails if more than a third of the code are tests. Blank lines and comments do not count.
check_test_share() {
    local folder lines total=0 in_tests=0 share
    for folder in tests fuzz jlog include platform examples tools bench reader; do
        lines=$(git ls-files "$folder" | grep -E '\.(cpp|h)$' | xargs -r cat | grep -vcE '^\s*(//.*)?$' || true)
        total=$((total + lines))
        if [ "$folder" = tests ] || [ "$folder" = fuzz ]; then
            in_tests=$((in_tests + lines))
        fi
        printf '    %-10s %6d lines\n' "$folder" "$lines"
    done
    share=$((in_tests * 1000 / total)) # in tenths of a per cent
    echo "code: $total lines, $((share / 10)).$((share % 10)) % of them in tests and fuzz"
    [ "$share" -le 330 ] || die "more than 33 % of the code are tests"
}

# "modules of Android.bp | the targets of CMake with the same sources | what a device does without".
android_bp=(
    "libjcam_jlog libjcam_jlog_stats | jcam_jlog |"
    "jcam_jlog_test_defaults | jcam_reader jcam_test_support |"
    "jcam_jlog_test | jlog_test android_log_test |"
    "jcam_file_test | jcam_test_interpose file_test | tests/file/FileMergeJLoggerTest.cpp"
    "jcam_track_test | jcam_test_interpose track_test | tests/track/StatsReportTest.cpp"
    "jcam_jlog_benchmark | jlog_microbench |"
)

# The sources that Android.bp lists for the modules $1.
sources_of_modules() {
    awk -F '"' -v modules=" $1 " '
        /^    name:/ { wanted = index(modules, " " $2 " ") }
        /^    srcs:/ { list = wanted }
        list { for (i = 2; i <= NF; i += 2) print $i }
        /\]/ { list = 0 }' Android.bp | LC_ALL=C sort
}

# The sources of the targets $1 but for $2, of a configured build that knows every target.
sources_of_targets() {
    awk -v root="$PWD/" -v targets=" $1 " -v left_out=" $2 " '
        /"command":/ && match($0, /CMakeFiles\/[^\/]+\.dir/) {
            target = substr($0, RSTART + 11, RLENGTH - 15)
            sub(/.* -c /, "")
            source = substr($0, length(root) + 1)
            sub(/".*/, "", source)
            if (index(targets, " " target " ") && !index(left_out, " " source " ")) print source
        }' build/clang/compile_commands.json | LC_ALL=C sort
}

check_android_bp() {
    local difference entry name modules targets left_out known=" jcam_jlog_defaults "
    difference=$(bpfmt -d Android.bp 2>&1)
    [ -z "$difference" ] || die "Android.bp: $difference"
    for entry in "${android_bp[@]}"; do
        IFS='|' read -r modules targets left_out <<<"$entry"
        known+="$modules "
        difference=$(diff -U 0 --label "CMake:$targets" --label "Android.bp: $modules" \
            <(sources_of_targets "$targets" "$left_out") <(sources_of_modules "$modules")) ||
            die "the lists of sources differ: $difference"
    done
    while read -r name; do
        [[ $known = *" $name "* ]] || die "Android.bp: which targets of CMake are in $name?"
    done < <(sed -n 's/^    name: "\(.*\)",/\1/p' Android.bp)
    name=$(sed -n 's/^    version_script: "\(.*\)",/\1/p' Android.bp)
    [ -f "$name" ] || die "Android.bp: there is no version script '$name'"
    echo "Android.bp: the sources are those of CMake"
}

# Another libc than GNU's, with the C++ library that Android has. (Which functions of libc are called at
# all is check_abi.sh's to watch.) The constant is younger than this musl, and older than the kernels of
# the devices.
check_libc() {
    local llvm units kernel=build/kernel
    # The kernel's headers, without those of GNU's libc beside them.
    mkdir -p "$kernel"
    ln -sfn -t "$kernel" /usr/include/linux /usr/include/asm-generic "/usr/include/$(uname -m)-linux-gnu/asm"
    llvm=$(dirname "$(dirname "$(readlink -f "$(command -v clang++)")")")
    mapfile -t units < <(git ls-files 'jlog/*.cpp')
    printf '%s\0' "${units[@]}" | xargs -0 -P "$(nproc)" -n 4 clang++ -std=c++20 -fsyntax-only -Werror \
        --target="$(uname -m)-linux-musl" -nostdinc -D_LIBCPP_HAS_MUSL_LIBC -DMADV_POPULATE_WRITE=23 \
        -isystem "$llvm/include/c++/v1" -isystem "$(clang++ -print-resource-dir)/include" \
        -isystem "/usr/include/$(uname -m)-linux-musl" -isystem "$kernel" -Iinclude -I. \
        -Iplatform/include -Iplatform/liblog/include
    echo "musl and libc++: ${#units[@]} sources of the library compile"
}

# Headers are checked with the sources that include them. One unit a process: with several, clang-tidy
# 14 mistakes the va_list of one for another's.
check_tidy() {
    local units
    mapfile -t units < <(git ls-files '*.cpp')
    printf '%s\0' "${units[@]}" | xargs -0 -P "$(nproc)" -n 1 clang-tidy -p build/clang --quiet \
        2> >(grep -v 'warnings generated\|Suppressed\|Use -header-filter' >&2)
    echo "clang-tidy: ${#units[@]} units are clean"
}

need_packages blueprint-tools clang-format clang-tidy libc++-dev libc++abi-dev musl-dev relacy-dev shellcheck
# The clang preset knows every target.
need_preset clang
cmake --preset clang >&2
if [ "${1:-}" != --tidy ]; then
    check_format
    check_scripts
    check_test_share
    check_android_bp
    check_libc
fi
if [ "${1:-}" != --quick ]; then
    check_tidy
fi
