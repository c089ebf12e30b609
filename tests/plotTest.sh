#!/bin/sh
# SPDX-License-Identifier: MIT
#
# i2cErrPlot with logs and results, good, empty, damaged and missing: what it says, its status, its picture.
#   plotTest.sh PROGRAM
set -u
plot=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
failures=0

result() { # WHAT, after the command that tells
    [ $? = 0 ] && return
    echo "plotTest: $1"
    failures=$((failures + 1))
}

# check WHAT STATUS PATTERN WORDS...: runs the program; PATTERN must be in what it says.
check() {
    what=$1 status=$2 pattern=$3
    shift 3
    said=$("$plot" "$@" 2>&1)
    got=$?
    case $said in *"$pattern"*) found=1 ;; *) found=0 ;; esac
    [ "$got" = "$status" ] && [ $found = 1 ]
    result "$what: status $got, wanted $status and \"$pattern\", said: $said"
}
# picture FILE BYTES: a PNG of 1200 x 1000 with at least so many bytes; a blank one has less than 6000.
picture() {
    size=$(od -A n -t u1 -j 16 -N 8 "$1" | tr -s ' ')
    [ "$size" = " 0 0 4 176 0 0 3 232" ] && [ "$(wc -c <"$1")" -ge "$2" ]
    result "a picture of 1200 x 1000 with something in it in $1"
}

mkdir flash 'a=b c' none runs
cat >flash/I2cErr.csv <<'CSV'
2025/03/07 09:05:03, 0, 3, 1
2025/03/07 09:06:10, 0, 0, 2
2025/03/07 09:06:10, 1, 7, 3
2025/03/07 09:06:10, 2, 250, 4
2025/03/07 09:08:00, 0, 2, 6
CSV
printf 'I2C Error Counts = 6\nI2C Read Error Counts = 0\n[2025/03/07 09:05:00][2025/03/07 09:12:40][999]:\n' \
    >flash/I2cTestResult_20250307091240
{ cat flash/I2cErr.csv && printf 'rubbish\n2025/13/07 09:05:03, 0, 3, 1\n2025/03/07 09:0'; } >'a=b c/damaged.csv'
printf 'rubbish\n' >rubbish.csv
: >empty.csv
cp flash/I2cTestResult_* runs

check "transfers and attempts" 0 "5 failed attempts in 3 transfers" -o good.png flash
picture good.png 20000
check "time lost" 0 "0.3 s in all, 85.0 ms a transfer, 250 ms at most" flash
check "the run's share: 6 of 9 x 1000 + 6" 0 "7 min 40 s: 1000 iterations, 6 errors (0.067 % of all" flash
check "lines that the log lacks" 0 "1 line is missing" flash
check "damaged lines are named" 0 "damaged.csv:7: not a line of the log: 2025/13/07" 'a=b c/damaged.csv'
check "damaged lines are counted" 0 "3 damaged lines left out" -o 'a=b c/p.svg' 'a=b c/damaged.csv'
grep -q "2nd and later retries failed" "a=b c/p.svg"
result "the legend of a picture in SVG"
check "nothing but damage" 1 "no line of the log can be read" -o no.png rubbish.csv
check "an empty log" 0 "No failed transfer is logged" -o empty.png empty.csv
picture empty.png 10000
check "a run without errors has no log" 0 "No failed transfer" runs
check "no such file" 1 "missing.csv: there is no such file" missing.csv
check "a folder without files" 1 "neither I2cErr.csv nor" none
check "no place for the picture" 1 "cannot be written" -o none/there/x.png flash
check "the last run alone needs a result" 1 "--last needs a result file" --last empty.csv
check "a picture of another kind" 2 "ends in .png or .svg" -o x.gif flash
[ "$(echo "./"*.part no.png)" = "./*.part no.png" ] && [ ! -e no.png ]
result "nothing is left behind"
exit $((failures > 0))
