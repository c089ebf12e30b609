#!/bin/sh
# SPDX-License-Identifier: MIT
#
# Strangers' builds: build types, compilers, generators, kinds of library, unity build and link-time optimisation, combined
# so that every pair of two choices occurs, from a path with a blank; and the tree inside another project, both ways.
# Each is configured, built, installed and used from there; two of them also build and run the unit and program tests.
#   matrixTest.sh SOURCE_FOLDER [BUILD...]
set -eu
if [ -z "${MATRIX_WORK:-}" ]; then
    MATRIX_WORK=$(mktemp -d)
    trap 'rm -rf "$MATRIX_WORK"' EXIT
    trap 'exit 1' HUP INT TERM
    export MATRIX_WORK TMPDIR="$MATRIX_WORK"
    unset CFLAGS CXXFLAGS LDFLAGS DESTDIR
    mkdir "$MATRIX_WORK/a tree"
    tar -C "$1" --exclude=./build --exclude=./.git -c . | tar -C "$MATRIX_WORK/a tree" -x
    here=$(readlink -f "$0")
    source=$1
    shift
    [ $# -gt 0 ] || set -- 7 10 add_subdirectory FetchContent 0 1 2 3 4 5 6 8 9 11 12 13 14
    printf '%s\n' "$@" | xargs -P 2 -I {} sh -c "'$here' '$source' {} >\"\$0/{}.log\" 2>&1 || { tail -n 100 \"\$0/{}.log\"; exit 1; }" "$MATRIX_WORK"
    exit
fi

# One build.
tree="$MATRIX_WORK/a tree"
n=$2
build="$MATRIX_WORK/$n"
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

case $n in
[a-zF]*)
    cat >"$build/CMakeLists.txt" <<C
cmake_minimum_required(VERSION 3.25)
project(host LANGUAGES C CXX)
enable_testing()
include(FetchContent)
if($n STREQUAL FetchContent)
    FetchContent_Declare(camStat SOURCE_DIR "$tree")
    FetchContent_MakeAvailable(camStat)
else()
    add_subdirectory("$tree" camera)
endif()
add_executable(use use.c)
target_link_libraries(use PRIVATE kelisp::kelisp)
C
    cmake -S "$build" -B "$build/b" -DCMAKE_BUILD_TYPE=Release
    cmake --build "$build/b"
    [ "$("$build/b/use")" = 141 ]
    cmake --install "$build/b" --prefix "$installed"
    echo "what is the host's alone: tests, installed files"
    ctest --test-dir "$build/b" -N | grep -q '^Total Tests: 0'
    [ -z "$(find "$installed" -type f 2>&1 | grep -v 'No such file')" ]
    exit
    ;;
esac

pick() { shift "$1" && echo "$2"; } # pick N WORD...: the word N, from 0
type=$(pick $((n % 5)) "" Debug Release RelWithDebInfo MinSizeRel)
CC=$(pick $((n % 2)) gcc clang)
generator=$(pick $((n / 2 % 2)) Ninja "Unix Makefiles")
shared=$(pick $((n / 4 % 2)) OFF ON)
mode=$(pick $((n / 5)) CMAKE_VERBOSE_MAKEFILE CMAKE_UNITY_BUILD CMAKE_INTERPROCEDURAL_OPTIMIZATION)
case $n in 7 | 10) tests=ON ;; *) tests=OFF ;; esac
case $n in 7 | *[02468]) sim=ON ;; *) sim=OFF ;; esac
echo "matrixTest: $n: type '$type', $CC, $generator, shared $shared, $mode, tests $tests"
cmake -S "$tree" -B "$build" -G "$generator" -DCMAKE_BUILD_TYPE="$type" -DCMAKE_C_COMPILER="$CC" \
    -DCMAKE_CXX_COMPILER="$(pick $((n % 2)) g++ clang++)" -DBUILD_SHARED_LIBS="$shared" -D"$mode=ON" -DKELISP_TESTS="$tests" -DKELISP_SIM="$sim"
cmake --build "$build"
[ $tests = OFF ] || ctest --test-dir "$build" --output-on-failure -E 'Long|matrix|documentsTest|plotTest|runTest'
cmake --install "$build" --prefix "$installed"

"$installed/bin/camStat" -h | grep '^Usage: camStat v'
[ $sim = OFF ] || CAMSIM_BOARD="$build/board" "$installed/bin/camSim" camStat -r | grep '^Exposure Time.*1/60 sec$'
PKG_CONFIG_PATH=$(dirname "$(find "$installed" -name kelisp.pc)")
export PKG_CONFIG_PATH
library=$(find "$installed" -name 'libkelisp.*' | sort | head -1)
eval "$CC \"\$build/use.c\" $(pkg-config --cflags --libs kelisp) -o \"\$build/use\""
[ "$(LD_LIBRARY_PATH=$(dirname "$library") "$build/use")" = 141 ]
case $library in
*.a) "$CC" -shared -Wl,-z,text,-z,defs -Wl,--whole-archive "$library" -Wl,--no-whole-archive -lm -o "$build/use.so" ;;
esac
