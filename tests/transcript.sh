#!/bin/sh
# SPDX-License-Identifier: MIT
#
# Runs the commands of a transcript again and compares what they print and how they end.
#   PROGRAMS=FOLDER CAMSIM=FILE EMULATOR=WORDS transcript.sh FILE
# A line "$ COMMAND" is a command of the shell; below it stand the lines of its standard output, then those of its standard
# error behind "! " (empty ones as "."), then "[STATUS]" when that is not 0. Lines that begin with "## ", and empty ones, are the writer's.
# Commands share one empty folder. A program's name runs it as it is, `board PROGRAM` on the folder's simulated board.
set -u
: "${PROGRAMS:?}" "${CAMSIM:?}"
transcript=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/files"
cd "$work/files" || exit 1
export CAMSIM_BOARD="$work/board"

board() { # a program's name stands for the one in PROGRAMS
    found=
    for word; do
        shift
        case $found$word in
        camStat | camConf | camCtl | drvI2cTest) word=$PROGRAMS/$word found=yes ;;
        esac
        set -- "$@" "$word"
    done
    "$CAMSIM" --emulator "${EMULATOR-}" "$@"
}
camSim() { PATH=$PROGRAMS:$PATH "$CAMSIM" "$@"; }
for name in camStat camConf camCtl drvI2cTest; do
    eval "$name() { \${EMULATOR-} \"\$PROGRAMS/$name\" \"\$@\"; }"
done

# The folder, times, stamps, source lines and process numbers differ from run to run.
steady="s,$work/files,.,g;"'s/^$/./; s/, [0-9]+ ms$/, N ms/; s/(\|[A-Za-z0-9_]+\|)[0-9]+\)/\1N)/; s/_[0-9]{14}/_STAMP/; s,^/[^ ]*/(camStat: ),\1,; s/^camStat\[[0-9]+\]:/camStat[PID]:/'

while IFS= read -r line; do
    case $line in
    '$ '*)
        printf '%s\n' "$line"
        (eval "${line#??}") >"$work/out" 2>"$work/err" </dev/null
        status=$?
        sed -E "$steady" "$work/out"
        sed -E "$steady; s/^/! /" "$work/err"
        [ $status -eq 0 ] || echo "[$status]"
        ;;
    '## '* | '') printf '%s\n' "$line" ;;
    esac
done <"$transcript" >"$work/got"
diff -u "$transcript" "$work/got"
