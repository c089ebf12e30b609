#!/bin/sh
# SPDX-License-Identifier: MIT
#
# What is done on a board, a row a command; every row leaves its output, its exit status, and what reached the drivers.
#   commands.sh preloaded RESULTS BOARD  on a PC, as anybody: programs and camSim in PATH, BOARD is a folder for the board
#   commands.sh served RESULTS BOARD     as root: the same on the nodes of `camSim serve`
#   commands.sh real RESULTS             on a board with drivers of its own: no faults, no traces
#   commands.sh compare RESULTS RESULTS [live]   exit status 0: equal; with live, but for digits
# Runs under busybox, too.
set -u

# NAME  FAULT ("-": none; "none": there is no board)  COMMAND; names of commands in capitals are functions below.
rows() {
    cat <<'END'
help                 none  camStat -h
unknown-short        none  camStat -x
without-value        none  camStat -l
not-there            none  camStat -r
list                 none  camCtl list
read                 -     camStat -r
led                  -     camStat --led OFF
ircut                -     camStat -i ir_pass
exposure             -     camStat -e 30 2000 1000
exposure-read        -     camStat -r
reset                -     SETTLED camStat -s
reset-read           -     camStat -r
awb                  -     camStat -w 1e3 0.25
gamma                -     camStat -g 1
otf                  -     camStat -o 2
stress               -     STRESS 2 0
read-field-fails     i2c.read:reg=MnlAgn          camStat -r
write-fails          i2c.write:nth=2              camStat -e 30 2000 1000
busy                 reflect:busy=60ms            camStat -e 60 1000 1000
led-fails            gio.set                      camStat -l on
gpio-refused         open:/dev/gio:errno=EACCES   camStat -s
bus-missing          open:/dev/dev_i2c            camStat -r
old-memory           cmem.version=0x01000000      camStat -r
words                -     drvI2cTest -r E2 30
words-16             -     drvI2cTest -r E2 30 3 2
block                -     drvI2cTest -b E2 23 118
write                -     drvI2cTest -w E2 71 10
read-fails           i2c.read                     drvI2cTest -b E2 30 8
conf-show            -     camConf show --json /mnt/nand/conf.img
conf-check           -     camConf check /mnt/nand/conf.img
conf-set             -     camConf set /mnt/nand/conf.img IMG_CONTRAST 140
conf-apply           -     camConf apply -o IMG_FLIP=1 /mnt/nand/conf.img
conf-apply-fails     i2c.write:every=4            camConf apply /mnt/nand/conf.img
conf-watch           -     WATCH
get                  -     camCtl get all 0x30-0x3F
set                  -     camCtl set MnlAgn=2.0x MeExpTim=10ms AeEvSet=-0.5EV
save                 -     camCtl save /mnt/nand/settings
exposed              -     camCtl expose shutter=1/50s again=6dB
diff                 -     camCtl diff /mnt/nand/settings --json
load                 -     camCtl load /mnt/nand/settings
dump                 -     camCtl dump --hex
ctl-reset            -     SETTLED camCtl reset
status               -     camCtl status --metrics
doctor               -     camCtl doctor
retried              i2c.read:every=3             camCtl status --json
set-fails            i2c.write:nth=1              camCtl set AeSwitch=on MnlDgn=16 --retries 0
stress-fails         i2c.read:after=4,times=3     STRESS 1 3
stress-gives-up      i2c.read:after=9             STRESS 0 1
in-2039              i2c.read:after=4,times=3     LATE
END
}

# The configuration of the rows, wherever they run: with a comment, a key that is none, and a value that is too large.
configuration='# rows\nIMG_BRIGHTNESS = 100\nIMG_CONTRAST = 120\nEXT_WDR=3 # strong\n2A_AWB_EN = 0\n2A_WB_R=9999999999\nNO_KEY = 1\n'

# STRESS SECONDS RETRIES: Ctrl-C ends it after a message of the bus's driver; its files follow, and go.
STRESS() {
    $on camStat -t 1 "$2" &
    sleep 1
    echo "${stamp}i2c_davinci i2c_davinci.1: arbitration lost" >>"$kernel_log"
    sleep "$1" && kill -INT $! 2>/dev/null
    wait $!
    ended=$?
    for file in "$flash/dmesg_"* "$flash/I2c"*; do
        echo "== ${file##*/}"
        cat "$file"
        rm "$file" 2>/dev/null # there are tools that cannot look at files of 2039
    done
    return $ended
}

# In a year that 32-bit seconds do not reach.
LATE() {
    ! command -v setClock >/dev/null || { setClock 2180000000; year=2039; }
    STRESS 0 3
}

# Ends when the white balance has found its gains again.
SETTLED() { $on "$@" && sleep 2; }

WATCH() {
    $on camConf watch /mnt/nand/conf.img &
    sleep 1 && sed 's/100/110/' "$flash/conf.img" >"$flash/conf.img.new" && mv "$flash/conf.img.new" "$flash/conf.img"
    sleep 1 && kill -TERM $! && wait $!
}

run_rows() {
    while read -r name fault command; do
        on=""
        case $road:$fault in
        *:none | served:- | real:-) ;;
        preloaded:-) on="camSim --trace-json trace" ;;
        preloaded:*) on="camSim --trace-json trace --fault $fault" ;;
        served:*) camSim fault "$fault" ;;
        *) continue ;;
        esac
        : >trace
        [ "$road" != served ] || echo "$name" >&2 # the last one tells where a machine stopped
        case $command in [A-Z]*) ;; *) command="$on $command" ;; esac
        eval "$command" >"$name.out" 2>"$name.err" </dev/null
        echo $? >"$name.status"
        cat trace >"$name.calls"
        echo "$year" >"$name.year"
        case $road:$fault in served:none | served:-) ;; served:*) camSim fault clear ;; esac
    done
}

# plain FILE NAME: what is left when times and numbers of processes are masked; a stamp of another year stays. Of the traces,
# what reaches the drivers on every road: opening and closing of the nodes, requests; polls that find the camera busy, and
# repetitions of the stress test, are as many as the time allows.
plain() {
    year=$(cat "${1%.*}.year")
    case $2 in
    *.calls)
        sed -nE '/"path":"\/dev\/(dev_i2c|gio|cmem)"/{
            /"call":"fcntl"|"first":32,.*"registers":.*"value":[1-9]/d
            s/"t":.*"pid":[0-9]+,//; s/("call":"open".*"result":)[0-9]+/\1N/; p; }' "$1" ;;
    *)
        sed -E "s/${year}[0-9]{10}/STAMP/; s/\]\[[0-9]+\]:/][N]:/
            s|$year/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9:]{5}|TIME|g; s/, [0-9]+(, [0-9]+)\$/, MS\1/; s/ [0-9]+ ms\$/ MS ms/
            s/^\[ *[0-9]+\.[0-9]+\]/[TIME]/; s/^([a-zA-Z]+\[)[0-9]+\]: /\1PID]: /" "$1" ;;
    esac | case $2 in stress* | in-2039*) sort -u ;; *) cat ;; esac |
        sed -E "$(echo "$libraries" | sed -n "s#^$2 \([^ ]*\) \(.*\)#s,\1,(\2),#p")
            ${live:+s/0x[0-9A-Fa-f]+|\b[0-9A-Fa-f][0-9A-Fa-f]\b|[0-9]+/N/g}"
}

# What a C library words in its own way: row, expression, what it is. It is not compared.
libraries='unknown-short.err ^camStat:.* getopt
without-value.err ^camStat:.* getopt
set-fails.err (Input/output|I/O).error EIO'

# compare RESULTS RESULTS [live]
compare() {
    compared=0 different=0 live=${3:-}
    for file in "$2"/*.status "$2"/*.out "$2"/*.err "$2"/*.calls; do
        name=${file##*/}
        [ "$live ${name##*.}" != "live calls" ] || continue
        plain "$1/$name" "$name" >"$2/left"
        plain "$file" "$name" >"$2/right"
        compared=$((compared + 1))
        [ -f "$1/$name" ] && diff "$2/left" "$2/right" >"$2/difference" && continue
        different=$((different + 1))
        echo "$name: $1 < > $2"
        cat "$2/difference"
    done
    rows=$(ls "$2"/*.status | wc -l)
    echo "$compared comparisons of $rows commands, $different different"
    [ "$different" = 0 ] && [ "$rows" -gt 25 ] && { [ "$live" ] || [ "$rows" = "$(ls "$1"/*.status | wc -l)" ]; }
}

road=$1 results=$2 board=${3:-}
[ "$road" != compare ] || { shift; compare "$@"; exit; }
mkdir -p "$results" && cd "$results" && : >trace || exit 2
export CAMSIM_BOARD="$board" TZ=UTC LC_ALL=C
year=$(date +%Y) flash=/mnt/nand kernel_log=/dev/kmsg stamp=""
case $road in
real) ! ls $flash/I2c* $flash/dmesg_* 2>/dev/null || exit 2 ;; # the rows would take them for theirs: move them away
*)
    camSim reset
    [ "$road" = served ] || flash=$board/mnt/nand kernel_log=$board/kernel.log stamp="[    1.000000] "
    rows | grep ' none ' | run_rows ;;
esac
if [ "$road" = served ]; then
    camSim --trace-json trace serve 2>server &
    server=$!
    until [ -e /dev/csl9 ] || ! kill -0 $server; do sleep 0.1; done
fi
printf '%b' "$configuration" >"$flash/conf.img"
rows | grep -v ' none ' | run_rows
[ "$road" != served ] || { kill -TERM $server && wait $server; }
echo $? >end.status
echo "$year" >end.year
rm "$flash/conf.img" "$flash/settings"
[ "$road" = real ] || ls /dev/dev_i2c /dev/gio /dev/cmem /dev/csl* >end.out 2>/dev/null || :
