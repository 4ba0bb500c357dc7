#!/usr/bin/env bash
# Makes the reference of the exported headers, and checks that whatever a user can reach is in it.
source "$(dirname "$0")/common.sh"

if [ "${1:-}" = --help ] || [ "${1:-}" = -h ]; then
    cat <<'TEXT'
usage: scripts/doxygen.sh

Makes HTML pages of the exported headers, README.md and docs/, by docs/Doxyfile, in
build/doxygen. Fails, and shows why, on any warning of doxygen, and when a class, member,
enumerator or macro that a user can reach has no comment. On a bare Debian machine it first
installs the packages that it needs.
TEXT
    exit 0
fi

need_packages doxygen python3
rm -rf build/doxygen
mkdir -p build
status=0
output=$(doxygen docs/Doxyfile 2>&1) || status=$?
# Once each: inherited members are reported again for every class that has them.
warnings=$(awk '!seen[$0]++' <<<"${output//"$PWD/"/}")
[ -d build/doxygen/xml ] || die "doxygen failed: $output"
gaps=$(/usr/bin/python3 scripts/check_reference.py build/doxygen/xml)
# Without those that doxygen has reported already.
reported=$(grep -oE '^include/[^:]+:[0-9]+: ' <<<"$warnings" || true)
gaps=$(grep -vFf <(printf '%s' "$reported") <<<"$gaps" || true)
found=$(printf '%s\n%s\n' "$warnings" "$gaps" | grep . || true)
if [ -n "$found" ]; then
    echo "$found" >&2
    die "$(wc -l <<<"$found") warnings"
fi
[ "$status" -eq 0 ] || die "doxygen failed with status $status"
echo "doxygen: 0 warnings; the pages begin at build/doxygen/index.html"
