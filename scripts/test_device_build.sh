#!/usr/bin/env bash
# Builds the library as for a device, without platform/, and looks at the result.
source "$(dirname "$0")/common.sh"

if [ "${1:-}" = --help ] || [ "${1:-}" = -h ]; then
    cat <<'TEXT'
usage: scripts/test_device_build.sh

Builds libjcam_jlog.so for AArch64 the way the NDK's toolchain file makes CMake build it: the
platform's headers and libraries come from folders of the product, here from stand-ins that bear
the names of the real ones. Checks what the library is called, what it needs and what it exports,
and that a product which lacks something is told what.
TEXT
    exit 0
fi

need_packages cmake clang g++-aarch64-linux-gnu ninja-build
folder=$PWD/build/device
rm -rf "$folder"
mkdir -p "$folder/lib"
# The headers that a product has, without those by which a program on a host plays the device.
cp -r platform/include "$folder/include"
cp -r platform/liblog/include/. "$folder/include"
rm -r "$folder/include/host"

# A library of the device by its name there, from the stand-in's sources.
stand_in() {
    local name=$1 sources=()
    shift
    for source in "$@"; do
        sources+=("platform/host/$source.cpp")
    done
    aarch64-linux-gnu-g++ -std=c++20 -O1 -fPIC -shared "-Wl,-soname,$name" \
        -Iplatform/include -Iplatform/liblog/include "${sources[@]}" -o "$folder/lib/$name"
}
stand_in liblog.so log LogFilter StderrLogger
stand_in libcutils.so properties PropertyFile trace
stand_in libbinder_ndk.so binder ServiceRegistry
stand_in android.frameworks.stats-V1-ndk.so IStats
stand_in libmtkcam_ulog.so FileULogger
stand_in libjlc_vnd.so jlc_vnd

configure() {
    cmake -S . -B "$folder/$1" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/android-stand-in.cmake" "${@:2}"
}

if output=$(configure incomplete 2>&1); then
    die "configured without any interface of the platform"
fi
for missing in '<cutils/properties.h> (JCAM_DEVICE_INCLUDE_DIRS)' \
    'libmtkcam_ulog (JCAM_DEVICE_LIBRARY_DIRS)'; do
    grep -qF "$missing" <<<"$output" || die "does not name '$missing': $output"
done

configure build -DJCAM_DEVICE_INCLUDE_DIRS="$folder/include" \
    -DJCAM_DEVICE_LIBRARY_DIRS="$folder/lib" >&2
cmake --build "$folder/build" >&2
[ ! -e "$folder/build/platform" ] || die "platform/ is in a device's build"

library=$folder/build/jlog/libjcam_jlog.so
dynamic=$(readelf -d "$library")
grep -qF 'soname: [libjcam_jlog.so]' <<<"$dynamic" || die "the soname is not the plain one: $dynamic"
for needed in liblog.so libcutils.so libbinder_ndk.so android.frameworks.stats-V1-ndk.so \
    libmtkcam_ulog.so libjlc_vnd.so; do
    grep -qF "[$needed]" <<<"$dynamic" || die "$needed is not needed: $dynamic"
done
if ! grep -qF '(BIND_NOW)' <<<"$dynamic" && ! grep -q 'FLAGS.*NOW' <<<"$dynamic"; then
    die "symbols are not bound when the library is loaded: $dynamic"
fi
alignments=$(readelf -lW "$library" | awk '$1 == "LOAD" { print $NF }' | sort -u)
[ "$alignments" = 0x4000 ] || die "segments are aligned to $alignments, not to pages of 16 KiB"
# Every name that the host's library exports, whatever else the other compiler leaves behind.
lost=$(comm -23 jlog/abi/exports.txt <(list_exports "$library"))
[ -z "$lost" ] || die "not exported: $lost"
echo "device build: $(readelf -h "$library" | sed -n 's/ *Machine: *//p')," \
    "$(basename "$library"), all $(wc -l <jlog/abi/exports.txt) names exported"
