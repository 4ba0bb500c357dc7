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
    # One script at a time: apt does not wait for another apt.
    local lock
    mkdir -p build
    exec {lock}>build/packages.lock
    flock "$lock"
    "${run[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -q >&2
    "${run[@]}" env DEBIAN_FRONTEND=noninteractive "${install[@]}" >&2
    exec {lock}>&-
}

# Installs what a preset is built with.
need_preset() {
    # With jlog: libjs-d3 for its page, protobuf-compiler for the tests of its traces.
    local examples=(libcli11-dev libfmt-dev libjs-d3 libprotozero-dev nlohmann-json3-dev zlib1g-dev)
    local tests=(libgmock-dev libgtest-dev protobuf-compiler)
    local benchmarks=(libbenchmark-dev)
    need_packages cmake ninja-build
    case "$1" in
        debug | asan-ubsan | tsan) need_packages g++ "${examples[@]}" "${tests[@]}" ;;
        release) need_packages g++ "${examples[@]}" "${tests[@]}" "${benchmarks[@]}" ;;
        clang) need_packages clang libclang-rt-dev "${examples[@]}" "${tests[@]}" "${benchmarks[@]}" ;;
        libcxx) need_packages clang googletest libc++-dev libc++abi-dev ;;
        aarch64) need_packages g++-aarch64-linux-gnu googletest qemu-user ;;
        real-liblog) need_packages android-liblog-dev g++ "${tests[@]}" ;;
        fuzz) need_packages clang libclang-rt-dev libfmt-dev ;;
        *) die "there is no preset $1" ;;
    esac
}

# Configures a preset and builds what has changed.
build_preset() {
    local preset=$1
    shift
    need_preset "$preset"
    cmake --preset "$preset" >&2
    cmake --build "build/$preset" "$@" >&2
}

# What the library $1 exports, by demangled names: the three symbols of a destructor, and the two of a
# constructor, have one.
list_exports() {
    nm --dynamic --defined-only --demangle "$1" | cut -d' ' -f2- |
        sed -E 's/^[TW] /function /; s/^[BDRV] /object /' | LC_ALL=C sort -u
}
