#!/bin/sh
# SPDX-License-Identifier: MIT
#
# Strangers' builds, from a path with a blank: build types, compilers, generators, kinds of library, unity build and
# link-time optimisation, so that every pair of two choices occurs; and the tree inside another project, both ways.
# Each is configured, built, installed and used from there; one of them also builds tests, and runs those that take a short time.
#   matrixTest.sh SOURCE_FOLDER [BUILD...]
set -eu
# BUILD TYPE COMPILER GENERATOR SHARED MODE PARTS; "-" is CMake's own type, none, and no mode.
rows="
0 -              gcc   Ninja     OFF UNITY_BUILD                 SIM
1 Debug          clang Ninja     OFF UNITY_BUILD                 -
2 Release        gcc   Makefiles ON  UNITY_BUILD                 -
3 RelWithDebInfo clang Makefiles ON  UNITY_BUILD                 SIM
4 MinSizeRel     gcc   Makefiles OFF UNITY_BUILD                 -
5 -              clang Makefiles ON  INTERPROCEDURAL_OPTIMIZATION -
6 Debug          gcc   Makefiles ON  INTERPROCEDURAL_OPTIMIZATION -
7 Release        clang Ninja     OFF INTERPROCEDURAL_OPTIMIZATION SIM,TESTS
8 RelWithDebInfo gcc   Ninja     OFF INTERPROCEDURAL_OPTIMIZATION -
9 MinSizeRel     clang Ninja     ON  INTERPROCEDURAL_OPTIMIZATION SIM
10 -              clang Ninja     ON  -                           SIM
11 Debug          gcc   Makefiles OFF -                           -
12 Release        clang Makefiles OFF -                           -
13 RelWithDebInfo gcc   Ninja     ON  -                           -
14 MinSizeRel     clang Ninja     OFF -                           -
"
tests="mapTest sensorTest boardTest imgConfigTest camStatTest simTest launcherTest"
if [ -z "${MATRIX_WORK:-}" ]; then
    MATRIX_WORK=$(mktemp -d)
    trap 'rm -rf "$MATRIX_WORK"' EXIT
    trap 'exit 1' HUP INT TERM
    export MATRIX_WORK TMPDIR="$MATRIX_WORK" CCACHE_BASEDIR="$MATRIX_WORK" CCACHE_NOHASHDIR=1
    unset CFLAGS CXXFLAGS LDFLAGS DESTDIR
    mkdir "$MATRIX_WORK/a tree"
    tar -C "$1" --exclude=./build --exclude=./.git -c . | tar -C "$MATRIX_WORK/a tree" -x
    here=$(readlink -f "$0")
    source=$1
    shift
    [ $# -gt 0 ] || set -- 7 add_subdirectory FetchContent 0 1 2 3 4 5 6 8 9 10 11 12 13 14
    # shellcheck disable=SC2016
    printf '%s\n' "$@" | xargs -P 2 -I {} sh -c '"$0" "$1" "$2" >"$MATRIX_WORK/$2.log" 2>&1 || {
        tail -n 100 "$MATRIX_WORK/$2.log"; exit 1; }' "$here" "$source" {}
    exit
fi

# One build.
tree="$MATRIX_WORK/a tree"
build="$MATRIX_WORK/$2"
installed="$build/installed"
mkdir "$build"
cat >"$build/use.c" <<'C'
#include <kelisp.h>
#include <stdio.h>
int main(void)
{
    printf("%d\n", CXD3193AR_AgainTable_Again2RegValue(4.452));
    return 0;
}
C

case $2 in
[a-zF]*)
    cat >"$build/CMakeLists.txt" <<C
cmake_minimum_required(VERSION 3.25)
project(host LANGUAGES C CXX)
enable_testing()
include(FetchContent)
if($2 STREQUAL FetchContent)
    FetchContent_Declare(camStat SOURCE_DIR "$tree")
    FetchContent_MakeAvailable(camStat)
else()
    add_subdirectory("$tree" camera)
endif()
add_executable(use use.c)
target_link_libraries(use PRIVATE kelisp::kelisp)
C
    cmake -S "$build" -B "$build/b" -DCMAKE_BUILD_TYPE=Release
    cmake --build "$build/b" --target use
    [ "$("$build/b/use")" = 141 ]
    echo "what is the host's alone: tests, installed files"
    cmake --install "$build/b" --prefix "$installed"
    ctest --test-dir "$build/b" -N | grep -q '^Total Tests: 0'
    [ -z "$(find "$installed" -type f 2>&1 | grep -v 'No such file')" ]
    exit
    ;;
esac

row=$(echo "$rows" | grep "^$2 ")
echo "matrixTest: $row"
# shellcheck disable=SC2086
set -- $row
type=${2#-} CC=$3 generator=$4 shared=$5 mode=${6#-} parts=$7
CXX=g++ lto=""
[ "$CC" = gcc ] || CXX=clang++
[ "$generator" = Ninja ] || generator="Unix Makefiles"
case $parts in *SIM*) sim=ON ;; *) sim=OFF ;; esac
cmake -S "$tree" -B "$build" -G "$generator" -DCMAKE_BUILD_TYPE="$type" -DCMAKE_C_COMPILER="$CC" -DCMAKE_CXX_COMPILER="$CXX" \
    -DBUILD_SHARED_LIBS="$shared" ${mode:+-D"CMAKE_$mode=ON"} -DKELISP_TESTS=OFF -DKELISP_SIM="$sim"
cmake --build "$build"
cmake --install "$build" --prefix "$installed"

"$installed/bin/camStat" -h | grep '^Usage: camStat v'
[ $sim = OFF ] || CAMSIM_BOARD="$build/board" "$installed/bin/camSim" camStat -r | grep '^Exposure Time.*1/60 sec$'
PKG_CONFIG_PATH=$(dirname "$(find "$installed" -name kelisp.pc)")
export PKG_CONFIG_PATH
library=$(find "$installed" -name 'libkelisp.*' | sort | head -1)
# clang's archive for link-time optimisation is for those who optimise then, too.
[ "$CC $shared $mode" != "clang OFF INTERPROCEDURAL_OPTIMIZATION" ] || lto=-flto
eval "$CC $lto \"\$build/use.c\" $(pkg-config --cflags --libs kelisp) -o \"\$build/use\""
[ "$(LD_LIBRARY_PATH=$(dirname "$library") "$build/use")" = 141 ]
case $library in
*.a) "$CC" $lto -shared -Wl,-z,text,-z,defs -Wl,--whole-archive "$library" -Wl,--no-whole-archive -lm -o "$build/use.so" ;;
esac
case $parts in
*TESTS*)
    # shellcheck disable=SC2086
    cmake -S "$tree" -B "$build" -DKELISP_TESTS=ON && cmake --build "$build" --target $tests
    ctest --test-dir "$build" --output-on-failure -R "^($(echo "$tests" | tr ' ' '|'))\$"
    ;;
esac
