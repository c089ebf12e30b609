#!/bin/sh
# SPDX-License-Identifier: MIT
#
# The static programs of the target need nothing but a kernel: they cannot be run on the simulated board, so what they do
# without one is compared with this machine's programs, word for word.
#   staticTest.sh STATIC_BUILD HOST_BUILD
set -eu
static=$1
host=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
passed=0
failed=0

result() { # NAME 0|1
    if [ "$2" -eq 0 ]; then
        passed=$((passed + 1))
    else
        failed=$((failed + 1))
        echo "staticTest: $1 failed"
    fi
}

# same PROGRAM ARGS...: output and exit status on both machines; location lines' numbers are the same source's.
same() {
    name=$1
    shift
    for side in static host; do
        folder=$static emulator=qemu-arm
        [ $side = static ] || folder=$host emulator=""
        (
            set +e
            PATH=$folder:$PATH
            # shellcheck disable=SC2086
            $emulator "$folder/$name" "$@" 2>&1 | sed "s|$folder/||"
            exit 0
        ) >"$work/$side"
    done
    cmp -s "$work/static" "$work/host" && [ -s "$work/static" ]
    result "$name $*" $?
}

printf 'IMG_BRIGHTNESS = 100\nEXT_WDR=3 # strong\n2A_WB_R=9999999999\n' >"$work/conf.img"
set +e
for program in camStat drvI2cTest camConf camCtl; do
    ! readelf -d "$static/$program" | grep -q NEEDED
    result "$program needs no library" $?
done
same camStat
same camStat -r
same camStat -l maybe
same camStat -e 30 2000 1000
same camStat -e 0 99999999999 x
same camStat -w 1e3 0.25
same drvI2cTest -r 100 30
same drvI2cTest -x
same camConf show "$work/conf.img"
same camConf check "$work/conf.img"
same camConf get "$work/conf.img" EXT_WDR
same camCtl list
cpack --config "$static/CPackConfig.cmake" -B "$work/packages" >/dev/null 2>&1 &&
    tar -tzf "$work"/packages/*.tar.gz | grep -q 'usr/bin/camStat$'
result "archive for a board" $?
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
