# shellcheck shell=bash
# What the scripts share. Sourced, not run.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

die() {
    echo "$(basename "$0"): $*" >&2
    exit 1
}

# Installs the Debian packages that are missing; without the right to, says which command would.
need_packages() {
    local missing=() package
    for package in "$@"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q '^install ok installed$' ||
            missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    local install=(apt-get install -y --no-install-recommends "${missing[@]}")
    local run=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || die "packages are missing; as root: apt-get update && ${install[*]}"
        run=(sudo)
    fi
    echo "Installing: ${missing[*]}" >&2
    "${run[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -q >&2
    "${run[@]}" env DEBIAN_FRONTEND=noninteractive "${install[@]}" >&2
}

# Configures a preset once and builds what has changed.
build_preset() {
    local preset=$1
    shift
    [ -f "build/$preset/build.ninja" ] || cmake --preset "$preset" >&2
    cmake --build "build/$preset" "$@" >&2
}
