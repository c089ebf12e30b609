#!/bin/sh
# SPDX-License-Identifier: MIT
#
# Builds the packages of a build folder and treats them as a user would: lint, install into an empty root, use, remove.
#   packageTest.sh BUILD_FOLDER ARCHITECTURE C_COMPILER [EMULATOR...]
# With CAMSIM set, the packaged camStat runs on that simulated board.
set -eu
build=$1
architecture=$2
compiler=$3
shift 3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export TMPDIR="$work" # of the tools
trap 'exit 1' HUP INT TERM
root=$work/root

step() { echo "packageTest: $*"; }

step "pack"
cpack --config "$build/CPackConfig.cmake" -B "$work/packages" >"$work/cpack.log" 2>&1 || {
    cat "$work/cpack.log"
    exit 1
}

step "lint"
lintian --allow-root --fail-on error --suppress-tags initial-upload-closes-no-bugs "$work"/packages/*.deb

step "install into an empty root"
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates"
: >"$root/var/lib/dpkg/status"
echo "$architecture" >"$root/var/lib/dpkg/arch"
dpkg_there() {
    dpkg --root="$root" --log="$work/dpkg.log" --force-not-root --force-depends --force-architecture "$@" >"$work/dpkg.out" 2>&1 || {
        cat "$work/dpkg.out"
        exit 1
    }
}
dpkg_there --install "$work"/packages/*.deb

step "where things are"
libraries=$(cd "$root" && find usr -name 'lib*.so.*' -o -name 'lib*.so' -o -name 'lib*.a' -o -name kelisp.pc)
folder=usr/lib/$("$compiler" -print-multiarch)
for file in $libraries; do
    case $file in "$folder"/*) ;; *) echo "not in the multiarch folder: $file" && exit 1 ;; esac
done
# All is hardened: each has these in its headers, dynamic section and symbols. Fixed addresses on ARM: see docs/packaging.md.
for file in $(find "$root/usr/bin" -type f) $(cd "$root" && find "$PWD/$folder" -type f -name 'lib*.so*'); do
    found=$(readelf -hldW --dyn-syms "$file")
    wanted="GNU_RELRO BIND_NOW __stack_chk_fail GNU_STACK.*RW[[:blank:]]"
    case $architecture in armel) ;; *) wanted="$wanted DYN" ;; esac
    for sign in $wanted; do
        echo "$found" | grep -q "$sign" || {
            echo "not hardened: $file has no $sign"
            exit 1
        }
    done
done
readelf -W --dyn-syms "$root/usr/bin/camStat" | grep -q '__[a-z]*_chk@'
readelf -W --dyn-syms "$root/usr/bin/camSim" | grep -q '__[a-z]*_chk@'
# Manual pages cite nothing but what is installed.
find "$root/usr/share/man" -name '*.gz' -exec zcat {} + >"$work/pages"
sed -n 's/^\.Xr \([^ ]*\) \([1-8]\).*/share\/man\/man\2\/\1.\2.gz/p; s/^\.Pa \/usr\/\(.*[^ .,]\)[ .,]*$/\1/p; s/^\.Pa \(docs\/[^ ]*\).*/\1/p' \
    "$work/pages" | sort -u | while read -r cited; do
    [ -e "$root/usr/$cited" ] || echo "$cited"
done >"$work/missing"
[ ! -s "$work/missing" ] || {
    echo "cited by manual pages, not installed: $(cat "$work/missing")"
    exit 1
}

step "run the packaged program"
"$@" "$root/usr/bin/camStat" -h | grep -q '^Usage: camStat v'
"$root/usr/bin/camPlot" errors --json "$root" 2>&1 | grep -q 'neither I2cErr.csv'
if [ -n "${CAMSIM:-}" ]; then
    "$CAMSIM" --board "$work/board" ${1:+--emulator "$*"} --library "$root/$folder/camSim/libcamsim.so" \
        "$root/usr/bin/camStat" -e 30 2000 1000 | grep -q 'Set Shutter=33333.33 usec'
    "$CAMSIM" --board "$work/board" ${1:+--emulator "$*"} --library "$root/$folder/camSim/libcamsim.so" \
        "$root/usr/bin/camStat" -r | grep -q '^Exposure Time.*1/30 sec$'
fi

step "build against the installed library"
cat >"$work/use.c" <<'C'
#include <kelisp.h>
#include <stdio.h>
int main(void)
{
    printf("%.3f %d\n", gtWbTable[141].gain, CXD3193AR_AgainTable_Again2RegValue(4.452));
    return 0;
}
C
cp "$work/use.c" "$work/use.cpp"
cat >"$work/CMakeLists.txt" <<'C'
cmake_minimum_required(VERSION 3.25)
project(use LANGUAGES C CXX)
set(CMAKE_CXX_STANDARD 20)
find_package(kelisp 0.0.4 REQUIRED)
foreach(kind IN ITEMS kelisp kelisp_static)
    add_executable(${kind}_c use.c)
    add_executable(${kind}_cxx use.cpp)
    target_link_libraries(${kind}_c PRIVATE kelisp::${kind})
    target_link_libraries(${kind}_cxx PRIVATE kelisp::${kind})
endforeach()
C
toolchain=$(sed -n 's/^CMAKE_TOOLCHAIN_FILE:[A-Z]*=//p' "$build/CMakeCache.txt")
cmake -G Ninja -S "$work" -B "$work/use" ${toolchain:+-DCMAKE_TOOLCHAIN_FILE="$toolchain"} \
    -Dkelisp_DIR="$root/$folder/cmake/kelisp" >"$work/use.log" && cmake --build "$work/use" >>"$work/use.log" || {
    cat "$work/use.log"
    exit 1
}
for program in kelisp_c kelisp_cxx kelisp_static_c kelisp_static_cxx; do
    [ "$("$@" "$work/use/$program")" = "2.404 141" ]
done
# What pkg-config says links every public function from the archive, statically, and the archive into a shared object.
export PKG_CONFIG_PATH="$root/$folder/pkgconfig" PKG_CONFIG_LIBDIR="$root/$folder/pkgconfig"
compiled="-std=c11 -pedantic -Wall -Wextra -Werror $(pkg-config --cflags kelisp)"
{
    echo '#include <kelisp.h>'
    echo 'int main(void) { return 0; }'
    readelf -sW "$root/$folder/libkelisp.so" | awk '$5 == "GLOBAL" && $6 == "DEFAULT" && $7 != "UND" {
        print "extern const char " $8 "_there __asm__(\"" $8 "\"); const char *const use_" $8 " = &" $8 "_there;" }'
} >"$work/all.c"
# shellcheck disable=SC2046,SC2086
{
    "$compiler" $compiled "$work/use.c" $(pkg-config --libs kelisp) -o "$work/useByPkgConfig"
    "$compiler" $compiled -static "$work/all.c" $(pkg-config --libs kelisp) -o "$work/useAll"
    "$compiler" -shared -Wl,-z,text,-z,defs -o "$work/use.so" \
        -Wl,--whole-archive "$root/$folder/libkelisp.a" -Wl,--no-whole-archive $(pkg-config --libs-only-l kelisp | sed 's/-lkelisp//')
}

step "remove"
dpkg_there --remove camstat camstat-plot camsim libkelisp-dev libkelisp0
left=$(find "$root/usr" -type f 2>/dev/null || true)
[ -z "$left" ] || {
    echo "left behind: $left"
    exit 1
}
step "done"
