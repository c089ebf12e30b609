#!/bin/sh
# SPDX-License-Identifier: MIT
#
# Builds the packages of a build folder and treats them as a user would: lint, install into an empty root, use, remove.
#   packageTest.sh SOURCE_FOLDER BUILD_FOLDER ARCHITECTURE C_COMPILER [EMULATOR...]
# With CAMSIM set, the packaged camStat runs on that simulated board.
set -eu
source=$1
build=$2
architecture=$3
compiler=$4
shift 4

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
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

step "run the packaged program"
"$@" "$root/usr/bin/camStat" -h | grep -q '^Usage: camStat v'
if [ -n "${CAMSIM:-}" ]; then
    "$CAMSIM" --board "$work/board" ${1:+--emulator "$*"} --library "$root/usr/lib/camSim/libcamsim.so" \
        "$root/usr/bin/camStat" -e 30 2000 1000 | grep -q 'Set Shutter=33333.33 usec'
    "$CAMSIM" --board "$work/board" ${1:+--emulator "$*"} --library "$root/usr/lib/camSim/libcamsim.so" \
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
    -Dkelisp_DIR="$root/usr/lib/cmake/kelisp" >"$work/use.log" && cmake --build "$work/use" >>"$work/use.log" || {
    cat "$work/use.log"
    exit 1
}
for program in kelisp_c kelisp_cxx kelisp_static_c kelisp_static_cxx; do
    [ "$("$@" "$work/use/$program")" = "2.404 141" ]
done
flags=$(PKG_CONFIG_PATH=$root/usr/lib/pkgconfig pkg-config --cflags --libs kelisp)
# shellcheck disable=SC2086
"$compiler" -std=c11 -pedantic -Wall -Wextra -Werror "$work/use.c" $flags -o "$work/useByPkgConfig"

step "remove"
dpkg_there --remove camstat camsim libkelisp-dev libkelisp0
left=$(find "$root/usr" -type f 2>/dev/null || true)
[ -z "$left" ] || {
    echo "left behind: $left"
    exit 1
}
step "done"
