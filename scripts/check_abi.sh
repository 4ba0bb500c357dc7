#!/usr/bin/env bash
# Holds what the library exports, how its classes lie in memory, and what it asks of libc, against the
# lists of jlog/abi.
source "$(dirname "$0")/common.sh"

if [ "${1:-}" = --help ] || [ "${1:-}" = -h ]; then
    cat <<'TEXT'
usage: scripts/check_abi.sh [--update]

Compares the release build with three lists, and shows the difference:

jlog/abi/exports.txt  what a program may refer to. A line that goes breaks programs that are
                      built already; a line that comes is a promise.
jlog/abi/layout.txt   what a program has compiled in: sizes of classes, offsets of members, the order
                      of virtual functions, values of enumerators.
jlog/abi/imports.txt  what is taken of libc. Before a line is added, make sure that Android's
                      libc has the function at API 35; those that it is known to lack are refused.

What a function returns is in none of them.

--update writes the lists anew; a commit that changes them says why.
TEXT
    exit 0
fi

need_packages abigail-tools python3
build_preset release --target jcam_jlog
library=build/release/jlog/libjcam_jlog.so

# Undefined symbols without those of the platform, of the C++ runtime and of the compiler's own.
list_imports() {
    nm --dynamic --undefined-only "$1" | awk '{ sub(/@.*/, "", $NF); print $NF }' |
        grep -vE '^(_Z|__cxa_|__gxx_|_Unwind_|_ITM_|__gmon_start__|__tls_get_addr$)' |
        grep -vE '^(AIBinder_|AServiceManager_|AStatus_|__android_log_|atrace_|property_|jlc_)' |
        # What libc's own headers and the C++ library put in under another name.
        grep -vE '^(__errno_location|__libc_single_threaded)$' | LC_ALL=C sort -u
}

# From the debug information, of the types that the exported headers define.
list_layout() {
    abidw --exported-interfaces-only --headers-dir include --drop-private-types --no-show-locs \
        --no-corpus-path --no-comp-dir-path --out-file build/release/jlog/abi.xml "$1"
    /usr/bin/python3 scripts/abi_layout.py build/release/jlog/abi.xml
}

if [ "${1:-}" = --update ]; then
    for list in exports layout imports; do
        "list_$list" "$library" >"jlog/abi/$list.txt"
    done
fi
# What glibc has and bionic, at API 35, has not.
lacking=$(list_imports "$library" | grep -xE '(secure_getenv|program_invocation_(short_)?name|pthread_cancel|pthread_(tryjoin|timedjoin)_np|pthread_mutex(attr_setrobust|_consistent)|shm_(open|unlink)|mq_.*|aio_.*|(get|set|make|swap)context|malloc_trim|mallopt|fopencookie|rawmemchr|canonicalize_file_name|qsort_r|strfry|error|argp_.*)' || true)
[ -z "$lacking" ] || die "Android's libc does not have: $lacking"
status=0
for list in exports layout imports; do
    diff -u --label "jlog/abi/$list.txt" --label "$library" \
        "jlog/abi/$list.txt" <("list_$list" "$library") || status=1
done
[ $status -eq 0 ] || die "the library has changed: scripts/check_abi.sh --help tells what to do"
echo "abi: $(wc -l <jlog/abi/exports.txt) names exported," \
    "as $(nm --dynamic --defined-only "$library" | wc -l) symbols;" \
    "$(grep -c '^[^ ]' jlog/abi/layout.txt) types laid out;" \
    "$(wc -l <jlog/abi/imports.txt) functions of libc used"
