#!/usr/bin/env bash
# Installs the library and builds a program against it, as a project that uses it does.
source "$(dirname "$0")/common.sh"

if [ "${1:-}" = --help ] || [ "${1:-}" = -h ]; then
    cat <<'TEXT'
usage: scripts/test_package.sh

Installs the release build, moves the tree elsewhere, and builds and runs examples/consumer
against it, by find_package and by pkg-config; then the same with what the Debian packages
contain. The consumer and the headers are compiled as C++17 and as C++20, by g++ and
by clang++, without a warning. Runs jlog, looks whether its manual page and completion know all its
options, and lets lnav read a log with its format. Looks for the documents that README names. Everything stays under
build/package, the packages too.
TEXT
    exit 0
fi

# Builds a program from source $2 to $1 with what pkg-config says of the modules behind.
build_by_pkg_config() {
    local flags
    # In the words of a shell: a path may have blanks.
    eval "flags=($(pkg-config --cflags --libs "${@:3}"))"
    g++ -std=c++17 "$2" "${flags[@]}" -o "$1"
}

# Compiles the headers below the folder $1 with compiler $2 as C++$3.
compile_headers() {
    find "$1" -name '*.h' -printf '#include "%p"\n' |
        "$2" "-std=c++$3" -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I"$1" -I"$1/jcam_platform" \
            -x c++ - || die "the headers do not compile with $2 as C++$3"
}

# Runs program $1 with its libraries in folder $2. Of what it logs the rest of the arguments are part.
run_program() {
    local output
    output=$(LD_LIBRARY_PATH="$2" "$1" 2>&1) || die "$1 ends with status $?: $output"
    for line in "${@:3}"; do
        grep -qF -- "$line" <<<"$output" || die "$1 did not log '$line' but: $output"
    done
    echo "built and ran $1"
}

# Builds the consumer by both ways against the tree whose prefix is $1, into folder $2.
test_tree() {
    local prefix=$1 folder=$2 library
    library=$(dirname "$(find "$prefix" -name libjcam_jlog.so)")
    local consumer=(' E Consumer: 10 lines are enough' 'D JLOG    : main R[1] M[Common : 2] -')
    for compiler in g++ clang++; do
        for standard in 17 20; do
            compile_headers "$prefix/include" "$compiler" "$standard"
            local build=$folder/$compiler-c++$standard
            cmake -S examples/consumer -B "$build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
                -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_STANDARD="$standard" \
                -DCMAKE_CXX_FLAGS="-Wall -Wextra -Wpedantic -Werror" >/dev/null
            cmake --build "$build" >/dev/null
            run_program "$build/consumer" "" "${consumer[@]}"
        done
    done

    local document
    while read -r document; do
        [ -f "$prefix/share/doc/jcam_jlog/$document" ] || die "README names $document, which is not in $prefix"
    done < <(grep -oE '[a-z]+/[A-Za-z-]+\.md' README.md | sort -u)

    export PKG_CONFIG_PATH="$library/pkgconfig"
    mkdir -p "$folder/pkg-config"
    build_by_pkg_config "$folder/pkg-config/consumer" examples/consumer/main.cpp jcam_jlog
    run_program "$folder/pkg-config/consumer" "$library" "${consumer[@]}"
    # A program that sets properties, for which a host has the stand-ins.
    build_by_pkg_config "$folder/pkg-config/quickstart" examples/quickstart/main.cpp \
        jcam_jlog jcam_platform
    run_program "$folder/pkg-config/quickstart" "$library" ' D IspNode : gain 2.50'
}

# jlog below the prefix $1 runs, and its manual page and completion know what its help says.
test_tool() {
    local prefix=$1 command option words
    local jlog=$prefix/bin/jlog page=$prefix/share/man/man1/jlog.1
    local log=$package/lnav/cam_jlog_4321_2024_0315_142530_01.txt
    mkdir -p "$package/lnav"
    cat >"$log" <<'LOG'
-- CONTINUED --
03-15 14:25:30.123456  4321  4350 D JLog    : R AppRequest:42 M[Preview:4] +  :process Frame #17
03-15 14:25:30.123460  4321  4351 W Stream  : configure: done #1
03-15 14:25:30.123471  4321  4350 D JLog    : R AppRequest:42 M[Preview:4] -  :process Frame #18
LOG
    "$jlog" "$log" | grep -q '^series   4321 2024-03-15 14:25:30' || die "$jlog does not report"
    for command in $("$jlog" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p'); do
        grep -q "^.B $command\$" "$page" || die "jlog.1 does not describe $command"
        words=$(PATH=$prefix/bin:$PATH bash -c 'source "$0"; COMP_WORDS=(jlog "$1" --) COMP_CWORD=2; _jlog
            echo " ${COMPREPLY[*]} "' "$prefix/share/bash-completion/completions/jlog" "$command")
        while read -r option; do
            grep -qF -- "\\-\\-${option#--}" "$page" || die "jlog.1 does not describe $option of $command"
            [[ $words = *" $option "* ]] || die "the completion of $command lacks $option"
        done < <("$jlog" "$command" --help | grep -oE -- '--[a-z]+' | sort -u)
    done
    # lnav takes an enter, an exit and details for one format, with all their fields.
    local formats=$package/lnav/formats/jcam_jlog
    mkdir -p "$formats"
    cp "$prefix/share/jcam-jlog-tools/jcam_jlog.lnav.json" "$formats/"
    words=$(lnav -n -I "$package/lnav" -c ';SELECT count(tag), count(DISTINCT tid), count(scope),
        max(request), max(edge || module || scope || serial), max(log_level), max(tag) FROM jcam_jlog' \
        -c ':write-csv-to -' "$package"/lnav/cam_jlog_*.txt | tail -1)
    [ "$words" = '3,2,2,42,-Previewprocess Frame18,warning,Stream' ] || die "lnav reads: $words"
    echo "ran $jlog, and lnav with its format"
}

need_packages clang dpkg-dev file lnav pkg-config
build_preset release --target jcam_jlog jcam_platform jcam_liblog jlc_vnd jlog
unset ANDROID_LOG_TAGS
package=$PWD/build/package
rm -rf "$package"
mkdir -p "$package"
# At level debug, so that the Android log gets scopes, too.
echo persist.vendor.jovix.camera.log_level=3 >"$package/properties"
export JCAM_PROPERTIES=$package/properties

cmake --install build/release --prefix "$package/installed" --strip >/dev/null
mv "$package/installed" "$package/moved"
test_tree "$package/moved" "$package/from-tree"

(cd "$package" && cpack --config ../release/CPackConfig.cmake >/dev/null)
rm -rf "$package/_CPack_Packages"
for deb in "$package"/*.deb; do
    echo "made $(basename "$deb"): $(dpkg-deb --field "$deb" Package Version Depends | paste -sd ' ')"
    dpkg-deb --extract "$deb" "$package/debian"
done
test_tree "$package/debian/usr" "$package/from-debian"
test_tool "$package/moved"
test_tool "$package/debian/usr"

soname=$(readelf -d "$package/moved/lib/libjcam_jlog.so" | sed -n 's/.*SONAME.*\[\(.*\)\]/\1/p')
echo "soname $soname, stripped $(stat -L -c %s "$package/moved/lib/libjcam_jlog.so") bytes"
